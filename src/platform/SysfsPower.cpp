#include "platform/SysfsPower.hpp"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <string>
#include <vector>

namespace quillstow::sysfs {

namespace fs = std::filesystem;

namespace {

std::optional<std::string> readLine(const fs::path& file) {
    std::ifstream stream(file);
    std::string line;
    if (!stream || !std::getline(stream, line)) return std::nullopt;
    return line;
}

std::optional<std::int64_t> readNumber(const fs::path& file) {
    const auto line = readLine(file);
    if (!line) return std::nullopt;
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(line->data(), line->data() + line->size(), value);
    if (error != std::errc() || end != line->data() + line->size()) return std::nullopt;
    return value;
}

std::vector<fs::path> entries(const fs::path& folder) {
    std::vector<fs::path> found;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error))
        found.push_back(entry.path());
    std::sort(found.begin(), found.end());
    return found;
}

}  // namespace

std::optional<BatteryDescription> internalBattery(const fs::path& powerSupplies) {
    std::optional<fs::path> battery;
    bool hasExternalSupply = false;
    bool externalOnline = false;
    for (const auto& supply : entries(powerSupplies)) {
        const auto type = readLine(supply / "type");
        if (!type) continue;
        if (*type == "Mains" || *type == "USB") {
            hasExternalSupply = true;
            externalOnline = externalOnline || readNumber(supply / "online").value_or(0) == 1;
        } else if (*type == "Battery" && !battery) {
            if (readLine(supply / "scope").value_or("System") == "Device") continue;
            if (readNumber(supply / "present").value_or(1) == 0) continue;
            battery = supply;
        }
    }
    if (!battery) return std::nullopt;

    BatteryDescription description;
    if (const auto full = readNumber(*battery / "energy_full")) {
        description.currentCapacity = readNumber(*battery / "energy_now");
        description.maxCapacity = full;
    } else if (const auto chargeFull = readNumber(*battery / "charge_full")) {
        description.currentCapacity = readNumber(*battery / "charge_now");
        description.maxCapacity = chargeFull;
    } else if (const auto percent = readNumber(*battery / "capacity")) {
        description.currentCapacity = percent;
        description.maxCapacity = 100;
    }

    const std::string status = readLine(*battery / "status").value_or("");
    if (hasExternalSupply) {
        description.powerSourceState = externalOnline ? "AC Power" : "Battery Power";
    } else if (status == "Discharging") {
        description.powerSourceState = "Battery Power";
    } else if (status == "Charging" || status == "Full" || status == "Not charging") {
        description.powerSourceState = "AC Power";
    }
    return description;
}

ThermalState thermalState(const fs::path& thermal) {
    for (const auto& zone : entries(thermal)) {
        if (!zone.filename().native().starts_with("thermal_zone")) continue;
        const auto temperature = readNumber(zone / "temp");
        if (!temperature) continue;
        for (int trip = 0; trip < 32; ++trip) {
            const std::string prefix = "trip_point_" + std::to_string(trip);
            const auto type = readLine(zone / (prefix + "_type"));
            if (!type) break;
            if (*type != "critical") continue;
            const auto limit = readNumber(zone / (prefix + "_temp"));
            if (limit && *limit > 0 && *temperature >= *limit) return ThermalState::critical;
        }
    }
    return ThermalState::nominal;
}

}  // namespace quillstow::sysfs
