// Power, heat and idle readings on Linux: sysfs trees made in a test folder, a fake UPower and
// power-profiles service on a private bus, and the order of the idle sources.

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "PrivateBus.hpp"
#include "TestTree.hpp"
#include "environment/Gates.hpp"
#include "platform/LinuxPowerReadings.hpp"
#include "platform/LinuxUserActivity.hpp"
#include "platform/SysfsPower.hpp"
#include "support/ManualClocks.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

class SysfsTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path supplies = root / "class/power_supply";
    fs::path thermal = root / "class/thermal";

    void supply(const std::string& name, const std::map<std::string, std::string>& values) {
        for (const auto& [file, value] : values)
            writeFile(supplies / name / file, value + "\n");
    }
};

TEST_F(SysfsTest, ALaptopOnItsBattery) {
    supply("AC", {{"type", "Mains"}, {"online", "0"}});
    supply("BAT0", {{"type", "Battery"},
                    {"status", "Discharging"},
                    {"energy_now", "14950000"},
                    {"energy_full", "50000000"},
                    {"capacity", "29"}});
    const auto battery = sysfs::internalBattery(supplies);
    ASSERT_TRUE(battery);
    EXPECT_EQ(battery->currentCapacity, 14950000);
    EXPECT_EQ(battery->maxCapacity, 50000000);
    EXPECT_EQ(battery->powerSourceState, "Battery Power");

    LinuxPowerReadings readings(nullptr, root / "class");
    EXPECT_EQ(batteryPercent(readings), 29);
    EXPECT_EQ(powerPauseReason(readings), "Battery at 29% — will resume when plugged in.");
}

TEST_F(SysfsTest, PluggedInTheSameBatteryHoldsNothingBack) {
    supply("ADP1", {{"type", "Mains"}, {"online", "1"}});
    supply("BAT1", {{"type", "Battery"},
                    {"status", "Charging"},
                    {"charge_now", "1000"},
                    {"charge_full", "4000"}});
    LinuxPowerReadings readings(nullptr, root / "class");
    EXPECT_EQ(batteryPercent(readings), 25);
    EXPECT_TRUE(isOnACPower(readings));
    EXPECT_FALSE(powerPauseReason(readings));
}

TEST_F(SysfsTest, PeripheralsAndAbsentBatteriesAreNotTheMachines) {
    supply(
        "hidpp_battery_0",
        {{"type", "Battery"}, {"scope", "Device"}, {"capacity", "5"}, {"status", "Discharging"}});
    supply("BAT0", {{"type", "Battery"}, {"present", "0"}, {"capacity", "3"}});
    EXPECT_FALSE(sysfs::internalBattery(supplies));
    EXPECT_FALSE(sysfs::internalBattery(root / "nothing-here"));
}

TEST_F(SysfsTest, AZeroMaximumGivesNoPercentage) {
    supply("BAT0", {{"type", "Battery"},
                    {"status", "Discharging"},
                    {"energy_now", "0"},
                    {"energy_full", "0"}});
    LinuxPowerReadings readings(nullptr, root / "class");
    EXPECT_FALSE(batteryPercent(readings));
    EXPECT_FALSE(powerPauseReason(readings));
}

TEST_F(SysfsTest, OnlyACapacityInPercentStillCounts) {
    supply("BAT0", {{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "30"}});
    LinuxPowerReadings readings(nullptr, root / "class");
    EXPECT_EQ(batteryPercent(readings), 30);
    EXPECT_FALSE(powerPauseReason(readings)) << "at exactly 30 a backup runs";
    supply("BAT0", {{"capacity", "garbage"}});
    EXPECT_FALSE(batteryPercent(readings));
}

TEST_F(SysfsTest, AZonePastItsCriticalTripIsCritical) {
    const auto zone = [&](int number, const std::string& temp, const std::string& type,
                          const std::string& limit) {
        const fs::path folder = thermal / ("thermal_zone" + std::to_string(number));
        writeFile(folder / "temp", temp + "\n");
        writeFile(folder / "trip_point_0_type", "passive\n");
        writeFile(folder / "trip_point_0_temp", "60000\n");
        writeFile(folder / "trip_point_1_type", type + "\n");
        writeFile(folder / "trip_point_1_temp", limit + "\n");
    };
    zone(0, "70000", "critical", "105000");
    EXPECT_EQ(sysfs::thermalState(thermal), ThermalState::nominal) << "past a passive trip only";
    zone(1, "105000", "critical", "105000");
    EXPECT_EQ(sysfs::thermalState(thermal), ThermalState::critical);
    LinuxPowerReadings readings(nullptr, root / "class");
    EXPECT_EQ(powerPauseReason(readings),
              "Your computer is running hot — will resume when it cools down.");
}

TEST(NoReadings, MeanGo) {
    TemporaryFolder root;
    LinuxPowerReadings readings(nullptr, root / "empty");
    EXPECT_FALSE(readings.internalBatteryDescription());
    EXPECT_EQ(readings.thermalState(), ThermalState::nominal);
    EXPECT_FALSE(readings.isLowPowerModeEnabled());
    EXPECT_FALSE(powerPauseReason(readings));
}

TEST(LinuxUserActivity, AsksTheSourcesInOrderAndKeepsAReadingForASecond) {
    ManualClock clock;
    std::vector<std::string> asked;
    LinuxUserActivity activity({[&]() -> std::optional<double> {
                                    asked.push_back("idle monitor");
                                    return std::nullopt;
                                },
                                [&]() -> std::optional<double> {
                                    asked.push_back("screensaver");
                                    return 5.0;
                                },
                                [&]() -> std::optional<double> {
                                    asked.push_back("x11");
                                    return 3600.0;
                                }},
                               clock);
    EXPECT_DOUBLE_EQ(activity.secondsSinceLastUserInput(), 5.0);
    clock.advance(0.5);
    EXPECT_DOUBLE_EQ(activity.secondsSinceLastUserInput(), 5.5);
    EXPECT_EQ(asked, (std::vector<std::string>{"idle monitor", "screensaver"}));
    clock.advance(0.5);
    activity.secondsSinceLastUserInput();
    EXPECT_EQ(asked.size(), 4u);
}

TEST(LinuxUserActivity, NobodyAnsweringMeansAway) {
    ManualClock clock;
    LinuxUserActivity activity({[] { return std::optional<double>(); }}, clock);
    EXPECT_GE(activity.secondsSinceLastUserInput(), userIdleThreshold);
}

// A dbus-daemon of the test's own, with a fake UPower and power-profiles service on it.
class FakePowerServices : public ::testing::Test {
  protected:
    struct State {
        std::mutex mutex;
        int onBattery = 1;
        std::uint32_t type = 2;
        int isPresent = 1;
        double percentage = 29.4;
        std::string activeProfile = "balanced";
        std::string degraded;
    };

    void SetUp() override {
        bus_ = std::make_unique<PrivateBus>([this](sd_bus* bus) { serve(bus); });
        if (bus_->address().empty()) GTEST_SKIP() << bus_->whyNot();
    }

    void TearDown() override { bus_.reset(); }

    LinuxPowerReadings readings() {
        return LinuxPowerReadings(DBusConnection::openAddress(bus_->address()),
                                  root.path() / "no-sysfs");
    }

    State state;
    TemporaryFolder root;

  private:
    template <typename Value>
    static int get(sd_bus_message* reply, const char* type, State* state, Value State::*field) {
        std::lock_guard lock(state->mutex);
        if constexpr (std::is_same_v<Value, std::string>) {
            return sd_bus_message_append(reply, type, (state->*field).c_str());
        } else {
            return sd_bus_message_append(reply, type, state->*field);
        }
    }

    void serve(sd_bus* bus) {
        static const sd_bus_vtable upower[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_PROPERTY(
                "OnBattery", "b",
                [](sd_bus*, const char*, const char*, const char*, sd_bus_message* m, void* s,
                   sd_bus_error*) {
                    return get(m, "b", static_cast<State*>(s), &State::onBattery);
                },
                0, 0),
            SD_BUS_VTABLE_END};
        static const sd_bus_vtable device[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_PROPERTY(
                "Type", "u",
                [](sd_bus*, const char*, const char*, const char*, sd_bus_message* m, void* s,
                   sd_bus_error*) { return get(m, "u", static_cast<State*>(s), &State::type); },
                0, 0),
            SD_BUS_PROPERTY(
                "IsPresent", "b",
                [](sd_bus*, const char*, const char*, const char*, sd_bus_message* m, void* s,
                   sd_bus_error*) {
                    return get(m, "b", static_cast<State*>(s), &State::isPresent);
                },
                0, 0),
            SD_BUS_PROPERTY(
                "Percentage", "d",
                [](sd_bus*, const char*, const char*, const char*, sd_bus_message* m, void* s,
                   sd_bus_error*) {
                    return get(m, "d", static_cast<State*>(s), &State::percentage);
                },
                0, 0),
            SD_BUS_VTABLE_END};
        static const sd_bus_vtable profiles[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_PROPERTY(
                "ActiveProfile", "s",
                [](sd_bus*, const char*, const char*, const char*, sd_bus_message* m, void* s,
                   sd_bus_error*) {
                    return get(m, "s", static_cast<State*>(s), &State::activeProfile);
                },
                0, 0),
            SD_BUS_PROPERTY(
                "PerformanceDegraded", "s",
                [](sd_bus*, const char*, const char*, const char*, sd_bus_message* m, void* s,
                   sd_bus_error*) { return get(m, "s", static_cast<State*>(s), &State::degraded); },
                0, 0),
            SD_BUS_VTABLE_END};
        sd_bus_add_object_vtable(bus, nullptr, "/org/freedesktop/UPower", "org.freedesktop.UPower",
                                 upower, &state);
        sd_bus_add_object_vtable(bus, nullptr, "/org/freedesktop/UPower/devices/DisplayDevice",
                                 "org.freedesktop.UPower.Device", device, &state);
        // The older name of the profiles service, to check that it is found too.
        sd_bus_add_object_vtable(bus, nullptr, "/net/hadess/PowerProfiles",
                                 "net.hadess.PowerProfiles", profiles, &state);
        sd_bus_request_name(bus, "org.freedesktop.UPower", 0);
        sd_bus_request_name(bus, "net.hadess.PowerProfiles", 0);
    }

    std::unique_ptr<PrivateBus> bus_;
};

TEST_F(FakePowerServices, UPowerGivesTheBatteryAndThePowerSource) {
    const LinuxPowerReadings power = readings();
    EXPECT_EQ(batteryPercent(power), 29);
    EXPECT_FALSE(isOnACPower(power));
    EXPECT_EQ(powerPauseReason(power), "Battery at 29% — will resume when plugged in.");
    {
        std::lock_guard lock(state.mutex);
        state.onBattery = 0;
    }
    EXPECT_TRUE(isOnACPower(power));
    EXPECT_FALSE(powerPauseReason(power));
    {
        std::lock_guard lock(state.mutex);
        state.type = 1;  // a line power display device: no battery
    }
    EXPECT_FALSE(power.internalBatteryDescription());
}

TEST_F(FakePowerServices, PowerSaverAndHeatComeFromTheProfilesService) {
    const LinuxPowerReadings power = readings();
    EXPECT_FALSE(power.isLowPowerModeEnabled());
    {
        std::lock_guard lock(state.mutex);
        state.activeProfile = "power-saver";
        state.onBattery = 0;
    }
    EXPECT_EQ(powerPauseReason(power),
              "Power saver mode is on — will resume when disabled or plugged in.");
    {
        std::lock_guard lock(state.mutex);
        state.degraded = "high-operating-temperature";
    }
    EXPECT_EQ(power.thermalState(), ThermalState::serious);
    EXPECT_EQ(powerPauseReason(power),
              "Your computer is running hot — will resume when it cools down.");
    {
        std::lock_guard lock(state.mutex);
        state.degraded = "lap-detected";
    }
    EXPECT_EQ(power.thermalState(), ThermalState::nominal);
}

}  // namespace
}  // namespace quillstow
