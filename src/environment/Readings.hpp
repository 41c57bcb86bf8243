#pragma once

// What the gates read of the machine. Each reading is a small interface whose default answers
// "go": a user far away, no battery, AC power, nominal heat, no power saving. The Linux
// implementations live in platform/. Any thread may call.

#include <cstdint>
#include <optional>
#include <string>

#include "support/Sleeper.hpp"

namespace quillstow {

class UserActivity {
  public:
    virtual ~UserActivity() = default;
    // Seconds since the last key press or pointer movement; very large when nothing tells.
    virtual double secondsSinceLastUserInput() const { return 1e9; }
};

// The internal battery as the power source describes it; a field that could not be read is
// absent.
struct BatteryDescription {
    std::optional<std::int64_t> currentCapacity;
    std::optional<std::int64_t> maxCapacity;
    std::optional<std::string> powerSourceState;  // "AC Power" or "Battery Power"
};

enum class ThermalState { nominal, fair, serious, critical };

class PowerReadings {
  public:
    virtual ~PowerReadings() = default;
    // Nothing on a machine without a battery.
    virtual std::optional<BatteryDescription> internalBatteryDescription() const {
        return std::nullopt;
    }
    virtual ThermalState thermalState() const { return ThermalState::nominal; }
    virtual bool isLowPowerModeEnabled() const { return false; }
};

}  // namespace quillstow
