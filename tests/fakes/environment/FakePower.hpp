#pragma once

// Power readings a test sets: a battery or none, the heat, power saver mode. Set on the test's
// thread, read by gates on any thread.

#include <mutex>
#include <optional>
#include <string>

#include "environment/Readings.hpp"

namespace quillstow::testing {

class FakePower final : public PowerReadings {
  public:
    std::optional<BatteryDescription> internalBatteryDescription() const override {
        std::lock_guard lock(mutex_);
        return battery_;
    }
    ThermalState thermalState() const override {
        std::lock_guard lock(mutex_);
        return heat_;
    }
    bool isLowPowerModeEnabled() const override {
        std::lock_guard lock(mutex_);
        return lowPower_;
    }

    void setHeat(ThermalState heat) {
        std::lock_guard lock(mutex_);
        heat_ = heat;
    }
    void setLowPower(bool isOn) {
        std::lock_guard lock(mutex_);
        lowPower_ = isOn;
    }
    void setBattery(std::optional<BatteryDescription> battery) {
        std::lock_guard lock(mutex_);
        battery_ = std::move(battery);
    }

  private:
    mutable std::mutex mutex_;
    ThermalState heat_ = ThermalState::nominal;
    bool lowPower_ = false;
    std::optional<BatteryDescription> battery_;
};

}  // namespace quillstow::testing
