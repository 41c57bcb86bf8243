// Power, heat and idle readings where no desktop service answers: sysfs trees made in a test
// folder, and the order of the idle sources.

#include <gtest/gtest.h>

#include <sstream>

#include "TestTree.hpp"
#include "environment/Gates.hpp"
#include "platform/LinuxPowerReadings.hpp"
#include "platform/LinuxUserActivity.hpp"
#include "support/ManualClocks.hpp"

namespace quillstow {
namespace {

using namespace testing;

// "current/max source" of a battery, "?" for what is unknown; "none" without one.
std::string described(const std::optional<BatteryDescription>& battery) {
    if (!battery) return "none";
    const auto number = [](auto value) { return value ? std::to_string(*value) : "?"; };
    return number(battery->currentCapacity) + "/" + number(battery->maxCapacity) + " " +
           battery->powerSourceState.value_or("?");
}

TEST(SysfsPower, FindsTheMachinesBatteryItsSourceAndAZonePastItsCriticalTrip) {
    const struct {
        const char* name;
        const char* supplies;  // split by ";", each its folder, then its files as "file=value"
        const char* zones;     // temperatures; each has a passive trip at 60000, critical 105000
        const char* battery;
        ThermalState thermal;
    } rows[] = {
        {"off AC, by energy",
         "AC type=Mains online=0;BAT0 type=Battery status=Discharging energy_now=1 energy_full=5",
         "", "1/5 Battery Power", ThermalState::nominal},
        {"plugged in, by charge",
         "ADP1 type=Mains online=1;BAT1 type=Battery status=Charging charge_now=1 charge_full=4",
         "", "1/4 AC Power", ThermalState::nominal},
        {"only a capacity in percent", "BAT0 type=Battery status=Discharging capacity=30", "",
         "30/100 Battery Power", ThermalState::nominal},
        {"a capacity that is no number", "BAT0 type=Battery status=Discharging capacity=x", "",
         "?/? Battery Power", ThermalState::nominal},
        {"a mouse's battery and an absent one",
         "mouse type=Battery scope=Device capacity=5;BAT0 type=Battery present=0 capacity=3", "",
         "none", ThermalState::nominal},
        {"past a passive trip only", "", "70000", "none", ThermalState::nominal},
        {"one zone past its critical trip", "", "70000 105000", "none", ThermalState::critical},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TemporaryFolder root;
        std::istringstream supplies(row.supplies);
        for (std::string supply; std::getline(supplies, supply, ';');) {
            std::istringstream words(supply);
            std::string folder, file;
            words >> folder;
            while (words >> file) {
                const auto equals = file.find('=');
                writeFile(root / "class/power_supply" / folder / file.substr(0, equals),
                          file.substr(equals + 1) + "\n");
            }
        }
        std::istringstream zones(row.zones);
        int number = 0;
        for (std::string temperature; zones >> temperature; ++number) {
            const auto zone = root / "class/thermal" / ("thermal_zone" + std::to_string(number));
            writeFile(zone / "temp", temperature + "\n");
            writeFile(zone / "trip_point_0_type", "passive\n");
            writeFile(zone / "trip_point_0_temp", "60000\n");
            writeFile(zone / "trip_point_1_type", "critical\n");
            writeFile(zone / "trip_point_1_temp", "105000\n");
        }
        const LinuxPowerReadings readings(nullptr, root / "class");
        EXPECT_EQ(described(readings.internalBatteryDescription()), row.battery);
        EXPECT_EQ(readings.thermalState(), row.thermal);
        EXPECT_FALSE(readings.isLowPowerModeEnabled());
    }
}

TEST(LinuxUserActivity, AsksTheSourcesInOrderKeepsAReadingForASecondAndTakesSilenceAsAway) {
    ManualClock clock;
    std::vector<std::string> asked;
    const auto source = [&](const char* name, std::optional<double> idle) {
        return [&asked, name, idle] {
            asked.push_back(name);
            return idle;
        };
    };
    LinuxUserActivity activity(
        {source("idle monitor", std::nullopt), source("screensaver", 5.0), source("x11", 3600.0)},
        clock);
    EXPECT_DOUBLE_EQ(activity.secondsSinceLastUserInput(), 5.0);
    clock.advance(0.5);
    EXPECT_DOUBLE_EQ(activity.secondsSinceLastUserInput(), 5.5);
    EXPECT_EQ(asked, (std::vector<std::string>{"idle monitor", "screensaver"}));
    clock.advance(0.5);
    activity.secondsSinceLastUserInput();
    EXPECT_EQ(asked.size(), 4u);

    LinuxUserActivity silent({source("idle monitor", std::nullopt)}, clock);
    EXPECT_GE(silent.secondsSinceLastUserInput(), userIdleThreshold);
}

}  // namespace
}  // namespace quillstow
