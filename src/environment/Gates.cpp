#include "environment/Gates.hpp"

#include <cmath>

namespace quillstow {

namespace {

const UserActivity noUserActivity;
const Sleeper realSleeper;

}  // namespace

ActivityGate::ActivityGate() : ActivityGate(noUserActivity, realSleeper) {}

ActivityGate::ActivityGate(const UserActivity& activity, const Sleeper& sleeper)
    : activity_(activity), sleeper_(sleeper) {}

bool ActivityGate::isThrottling() const {
    switch (bandwidthMode()) {
        case BandwidthMode::quiet:
            return true;
        case BandwidthMode::full:
            return false;
        case BandwidthMode::automatic:
            return activity_.secondsSinceLastUserInput() < userIdleThreshold;
    }
    return false;
}

void ActivityGate::pauseBetweenFiles(std::stop_token stop) const {
    switch (bandwidthMode()) {
        case BandwidthMode::quiet:
            sleeper_.sleep(quietFilePause, stop);
            return;
        case BandwidthMode::full:
            return;
        case BandwidthMode::automatic:
            if (activity_.secondsSinceLastUserInput() < userIdleThreshold) {
                sleeper_.sleep(activeFilePause, stop);
            }
            return;
    }
}

void ActivityGate::pauseBetweenChunks() const {
    if (isThrottling()) sleeper_.sleep(chunkPause, {});
}

std::optional<int> batteryPercent(const PowerReadings& power) {
    const auto battery = power.internalBatteryDescription();
    if (!battery || !battery->currentCapacity || !battery->maxCapacity) return std::nullopt;
    if (*battery->maxCapacity < 1) return std::nullopt;
    // Multiplied first: 29 / 100 * 100 is 28.999... in double precision, which would read 28.
    const double percent =
        double(*battery->currentCapacity) * 100.0 / double(*battery->maxCapacity);
    return int(std::trunc(percent));
}

bool isOnACPower(const PowerReadings& power) {
    const auto battery = power.internalBatteryDescription();
    if (!battery || !battery->powerSourceState) return true;
    return *battery->powerSourceState == "AC Power";
}

std::optional<std::string> powerPauseReason(const PowerReadings& power) {
    const ThermalState heat = power.thermalState();
    if (heat == ThermalState::serious || heat == ThermalState::critical) {
        return "Your computer is running hot — will resume when it cools down.";
    }
    if (power.isLowPowerModeEnabled()) {
        return "Power saver mode is on — will resume when disabled or plugged in.";
    }
    if (const auto percent = batteryPercent(power);
        percent && !isOnACPower(power) && *percent < lowBatteryPercent) {
        return "Battery at " + std::to_string(batteryPercent(power).value_or(0)) +
               "% — will resume when plugged in.";
    }
    return std::nullopt;
}

}  // namespace quillstow
