#include "platform/LinuxPowerReadings.hpp"

#include <cmath>

#include "platform/SysfsPower.hpp"

namespace quillstow {

namespace {

constexpr DBusConnection::Target upower{"org.freedesktop.UPower", "/org/freedesktop/UPower",
                                        "org.freedesktop.UPower"};
constexpr DBusConnection::Target displayDevice{"org.freedesktop.UPower",
                                               "/org/freedesktop/UPower/devices/DisplayDevice",
                                               "org.freedesktop.UPower.Device"};
// The service moved into UPower's name; older systems still have the first one.
constexpr DBusConnection::Target powerProfiles[] = {
    {"org.freedesktop.UPower.PowerProfiles", "/org/freedesktop/UPower/PowerProfiles",
     "org.freedesktop.UPower.PowerProfiles"},
    {"net.hadess.PowerProfiles", "/net/hadess/PowerProfiles", "net.hadess.PowerProfiles"},
};

constexpr std::uint32_t batteryType = 2;

}  // namespace

LinuxPowerReadings::LinuxPowerReadings()
    : LinuxPowerReadings(DBusConnection::open(DBusConnection::Bus::system), "/sys/class") {}

LinuxPowerReadings::LinuxPowerReadings(std::unique_ptr<DBusConnection> systemBus,
                                       std::filesystem::path sysfsRoot)
    : bus_(std::move(systemBus)), sysfsRoot_(std::move(sysfsRoot)) {}

std::optional<LinuxPowerReadings::UPowerAnswer> LinuxPowerReadings::askUPower() const {
    if (!bus_) return std::nullopt;
    const auto onBattery = bus_->boolProperty(upower, "OnBattery");
    const auto type = bus_->uint32Property(displayDevice, "Type");
    if (!onBattery || !type) return std::nullopt;
    if (*type != batteryType || !bus_->boolProperty(displayDevice, "IsPresent").value_or(false)) {
        return UPowerAnswer{};  // a machine without a battery
    }
    BatteryDescription battery;
    battery.powerSourceState = *onBattery ? "Battery Power" : "AC Power";
    if (const auto percentage = bus_->doubleProperty(displayDevice, "Percentage");
        percentage && std::isfinite(*percentage)) {
        battery.currentCapacity = std::llround(*percentage * 100);
        battery.maxCapacity = 10000;
    }
    return UPowerAnswer{battery};
}

std::optional<BatteryDescription> LinuxPowerReadings::internalBatteryDescription() const {
    if (const auto answer = askUPower()) return answer->battery;
    return sysfs::internalBattery(sysfsRoot_ / "power_supply");
}

std::optional<std::string> LinuxPowerReadings::powerProfilesProperty(const char* name) const {
    if (!bus_) return std::nullopt;
    for (const auto& service : powerProfiles) {
        if (auto value = bus_->stringProperty(service, name)) return value;
    }
    return std::nullopt;
}

ThermalState LinuxPowerReadings::thermalState() const {
    if (sysfs::thermalState(sysfsRoot_ / "thermal") == ThermalState::critical) {
        return ThermalState::critical;
    }
    if (powerProfilesProperty("PerformanceDegraded") == "high-operating-temperature") {
        return ThermalState::serious;
    }
    return ThermalState::nominal;
}

bool LinuxPowerReadings::isLowPowerModeEnabled() const {
    return powerProfilesProperty("ActiveProfile") == "power-saver";
}

}  // namespace quillstow
