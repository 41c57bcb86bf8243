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

using Supplies = std::map<std::string, std::map<std::string, std::string>>;

// Each row: the power supplies sysfs lists, and the battery the machine is judged by.
TEST(SysfsPower, FindsTheMachinesBatteryAndItsSource) {
    const struct {
        const char* name;
        Supplies supplies;
        std::optional<BatteryDescription> battery;
    } rows[] = {
        {"a laptop off AC, by energy",
         {{"AC", {{"type", "Mains"}, {"online", "0"}}},
          {"BAT0",
           {{"type", "Battery"},
            {"status", "Discharging"},
            {"energy_now", "14950000"},
            {"energy_full", "50000000"}}}},
         BatteryDescription{14950000, 50000000, "Battery Power"}},
        {"plugged in, by charge",
         {{"ADP1", {{"type", "Mains"}, {"online", "1"}}},
          {"BAT1",
           {{"type", "Battery"},
            {"status", "Charging"},
            {"charge_now", "1000"},
            {"charge_full", "4000"}}}},
         BatteryDescription{1000, 4000, "AC Power"}},
        {"only a capacity in percent",
         {{"BAT0", {{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "30"}}}},
         BatteryDescription{30, 100, "Battery Power"}},
        {"a capacity that is no number",
         {{"BAT0", {{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "x"}}}},
         BatteryDescription{std::nullopt, std::nullopt, "Battery Power"}},
        {"a mouse's battery and an absent one are not the machine's",
         {{"hidpp_battery_0", {{"type", "Battery"}, {"scope", "Device"}, {"capacity", "5"}}},
          {"BAT0", {{"type", "Battery"}, {"present", "0"}, {"capacity", "3"}}}},
         std::nullopt},
        {"no supplies at all", {}, std::nullopt},
    };
    for (const auto& row : rows) {
        TemporaryFolder root;
        for (const auto& [name, values] : row.supplies) {
            for (const auto& [file, value] : values)
                writeFile(root / "power_supply" / name / file, value + "\n");
        }
        const auto battery = sysfs::internalBattery(root / "power_supply");
        EXPECT_EQ(battery.has_value(), row.battery.has_value()) << row.name;
        if (battery && row.battery) {
            EXPECT_EQ(battery->currentCapacity, row.battery->currentCapacity) << row.name;
            EXPECT_EQ(battery->maxCapacity, row.battery->maxCapacity) << row.name;
            EXPECT_EQ(battery->powerSourceState, row.battery->powerSourceState) << row.name;
        }
    }
}

// The readings of the machine's sysfs reach the power gate: a battery below thirty percent, then a
// zone past its critical trip, which comes first.
TEST(SysfsPower, TheReadingsOfALaptopPauseThePassForItsBatteryThenForItsHeat) {
    TemporaryFolder root;
    for (const auto& [file, value] :
         {std::pair{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "29"}})
        writeFile(root / "class/power_supply/BAT0" / file, std::string(value) + "\n");
    LinuxPowerReadings readings(nullptr, root / "class");
    EXPECT_EQ(powerPauseReason(readings), "Battery at 29% — will resume when plugged in.");

    const auto zone = [&](int number, const std::string& temp) {
        const fs::path folder = root / "class/thermal" / ("thermal_zone" + std::to_string(number));
        writeFile(folder / "temp", temp + "\n");
        writeFile(folder / "trip_point_0_type", "passive\n");
        writeFile(folder / "trip_point_0_temp", "60000\n");
        writeFile(folder / "trip_point_1_type", "critical\n");
        writeFile(folder / "trip_point_1_temp", "105000\n");
    };
    zone(0, "70000");
    EXPECT_EQ(sysfs::thermalState(root / "class/thermal"), ThermalState::nominal)
        << "past a passive trip only";
    zone(1, "105000");
    EXPECT_EQ(sysfs::thermalState(root / "class/thermal"), ThermalState::critical);
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

    template <typename Value>
    void set(Value State::*field, Value value) {
        std::lock_guard lock(state.mutex);
        state.*field = std::move(value);
    }

    State state;
    TemporaryFolder root;

  private:
    // Every property of the fake services, answered from the state by its name.
    static int property(sd_bus*, const char*, const char*, const char* name, sd_bus_message* reply,
                        void* userdata, sd_bus_error*) {
        State& state = *static_cast<State*>(userdata);
        std::lock_guard lock(state.mutex);
        const std::string_view property(name);
        if (property == "OnBattery") return sd_bus_message_append(reply, "b", state.onBattery);
        if (property == "Type") return sd_bus_message_append(reply, "u", state.type);
        if (property == "IsPresent") return sd_bus_message_append(reply, "b", state.isPresent);
        if (property == "Percentage") return sd_bus_message_append(reply, "d", state.percentage);
        if (property == "ActiveProfile") {
            return sd_bus_message_append(reply, "s", state.activeProfile.c_str());
        }
        return sd_bus_message_append(reply, "s", state.degraded.c_str());
    }

    void serve(sd_bus* bus) {
        static const sd_bus_vtable upower[] = {SD_BUS_VTABLE_START(0),
                                               SD_BUS_PROPERTY("OnBattery", "b", property, 0, 0),
                                               SD_BUS_VTABLE_END};
        static const sd_bus_vtable device[] = {
            SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("Type", "u", property, 0, 0),
            SD_BUS_PROPERTY("IsPresent", "b", property, 0, 0),
            SD_BUS_PROPERTY("Percentage", "d", property, 0, 0), SD_BUS_VTABLE_END};
        static const sd_bus_vtable profiles[] = {
            SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("ActiveProfile", "s", property, 0, 0),
            SD_BUS_PROPERTY("PerformanceDegraded", "s", property, 0, 0), SD_BUS_VTABLE_END};
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
    set(&State::onBattery, 0);
    EXPECT_TRUE(isOnACPower(power));
    set(&State::type, 1u);  // a line power display device: no battery
    EXPECT_FALSE(power.internalBatteryDescription());
}

TEST_F(FakePowerServices, PowerSaverAndHeatComeFromTheProfilesService) {
    const LinuxPowerReadings power = readings();
    EXPECT_FALSE(power.isLowPowerModeEnabled());
    set(&State::activeProfile, std::string("power-saver"));
    EXPECT_TRUE(power.isLowPowerModeEnabled());
    set(&State::degraded, std::string("high-operating-temperature"));
    EXPECT_EQ(power.thermalState(), ThermalState::serious);
    set(&State::degraded, std::string("lap-detected"));
    EXPECT_EQ(power.thermalState(), ThermalState::nominal);
}

}  // namespace
}  // namespace quillstow
