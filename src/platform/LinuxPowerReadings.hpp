#pragma once

// Battery, power saving and heat on Linux: UPower for the battery and the power source, sysfs
// when UPower isn't there; power-profiles-daemon for the power-saver profile and for degraded
// performance from heat; the thermal zones' critical trip points. What can't be read means go.

#include <filesystem>
#include <memory>

#include "environment/Readings.hpp"
#include "platform/DBus.hpp"

namespace quillstow {

class LinuxPowerReadings final : public PowerReadings {
  public:
    // The system bus and the real sysfs.
    LinuxPowerReadings();
    // For tests: a bus of their own (or none) and a fake sysfs tree.
    LinuxPowerReadings(std::unique_ptr<DBusConnection> systemBus, std::filesystem::path sysfsRoot);

    std::optional<BatteryDescription> internalBatteryDescription() const override;
    ThermalState thermalState() const override;
    bool isLowPowerModeEnabled() const override;

  private:
    // What UPower says of the battery; nothing when UPower can't be asked.
    struct UPowerAnswer {
        std::optional<BatteryDescription> battery;
    };
    std::optional<UPowerAnswer> askUPower() const;
    std::optional<std::string> powerProfilesProperty(const char* name) const;

    std::unique_ptr<DBusConnection> bus_;
    std::filesystem::path sysfsRoot_;
};

}  // namespace quillstow
