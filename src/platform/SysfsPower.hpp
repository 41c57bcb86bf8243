#pragma once

// Power and heat as the kernel shows them in sysfs, for machines without UPower or a power
// profiles service. Every reading that is missing or unreadable resolves towards running.

#include <filesystem>
#include <optional>

#include "environment/Readings.hpp"

namespace quillstow::sysfs {

// The first system battery below `powerSupplies` (peripheral batteries, of scope "Device", are
// not the machine's), with its energy or charge, or its capacity in percent; "AC Power" when a
// mains or USB supply is online or the battery charges, "Battery Power" when it discharges.
std::optional<BatteryDescription> internalBattery(
    const std::filesystem::path& powerSupplies = "/sys/class/power_supply");

// Critical when a thermal zone has reached one of its critical trip points; nominal otherwise.
ThermalState thermalState(const std::filesystem::path& thermal = "/sys/class/thermal");

}  // namespace quillstow::sysfs
