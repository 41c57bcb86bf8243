// The activity gate's pauses and the power gate's verdicts, on readings a test sets.

#include <gtest/gtest.h>

#include "environment/FakePower.hpp"
#include "environment/Gates.hpp"
#include "support/RecordingSleeper.hpp"

namespace quillstow {
namespace {

using testing::FakePower;
using testing::RecordingSleeper;

class FakeActivity final : public UserActivity {
  public:
    double secondsSinceLastUserInput() const override {
        ++reads;
        return idle;
    }
    double idle = 1e9;
    mutable int reads = 0;
};

// Each row: the mode and the user's idle time; whether the gate throttles, the pauses it takes
// between files and then between chunks, and how often it read the idle time, afresh each call.
TEST(ActivityGate, PausesByTheModeAndUnderAutoBelowTwoMinutesOfIdleOnly) {
    const struct {
        const char* name;
        BandwidthMode mode;
        double idle;
        bool throttles;
        std::vector<double> slept;
        int reads;
    } rows[] = {
        {"full never reads nor pauses", BandwidthMode::full, 0, false, {}, 0},
        {"quiet pauses with the user long gone",
         BandwidthMode::quiet,
         36000,
         true,
         {0.030, 0.002},
         0},
        {"auto, the user just there", BandwidthMode::automatic, 119.9, true, {0.010, 0.002}, 3},
        {"auto, two minutes away", BandwidthMode::automatic, 120.0, false, {}, 3},
    };
    for (const auto& row : rows) {
        FakeActivity activity;
        RecordingSleeper sleeper;
        ActivityGate gate{activity, sleeper};
        gate.setBandwidthMode(row.mode);
        activity.idle = row.idle;
        EXPECT_EQ(gate.isThrottling(), row.throttles) << row.name;
        gate.pauseBetweenFiles({});
        gate.pauseBetweenChunks();
        EXPECT_EQ(sleeper.slept, row.slept) << row.name;
        EXPECT_EQ(activity.reads, row.reads) << row.name;
    }
}

TEST(BandwidthMode, IsEachGatesOwnAndStartsAtAuto) {
    ActivityGate first;
    const ActivityGate second;
    first.setBandwidthMode(BandwidthMode::quiet);
    EXPECT_EQ(second.bandwidthMode(), BandwidthMode::automatic);
}

TEST(Sleeper, AStopRequestCutsThePauseShort) {
    std::stop_source stop;
    stop.request_stop();
    const auto before = std::chrono::steady_clock::now();
    Sleeper().sleep(3600, stop.get_token());
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
}

// Each row: the readings, and why the pass pauses (nothing: it runs). Every doubt runs.
TEST(PowerGate, PausesForHeatThenPowerSavingThenALowBatteryOffAC) {
    const std::string hot = "Your computer is running hot — will resume when it cools down.";
    const std::string saver = "Power saver mode is on — will resume when disabled or plugged in.";
    const struct {
        const char* name;
        std::optional<BatteryDescription> battery;
        bool lowPower;
        ThermalState heat;
        std::optional<std::string> reason;
    } rows[] = {
        {"a battery under thirty percent", BatteryDescription{29, 100, "Battery Power"}, false,
         ThermalState::nominal, "Battery at 29% — will resume when plugged in."},
        {"29.9 percent reads 29", BatteryDescription{299, 1000, "Battery Power"}, false,
         ThermalState::nominal, "Battery at 29% — will resume when plugged in."},
        {"the same battery on AC", BatteryDescription{29, 100, "AC Power"}, false,
         ThermalState::nominal, std::nullopt},
        {"exactly thirty percent", BatteryDescription{30, 100, "Battery Power"}, false,
         ThermalState::nominal, std::nullopt},
        {"serious heat before all", BatteryDescription{10, 100, "Battery Power"}, true,
         ThermalState::serious, hot},
        {"critical heat", std::nullopt, false, ThermalState::critical, hot},
        {"fair heat is none; power saving next", BatteryDescription{10, 100, "Battery Power"}, true,
         ThermalState::fair, saver},
        {"power saving on AC too", BatteryDescription{100, 100, "AC Power"}, true,
         ThermalState::nominal, saver},
        {"a desktop has no battery", std::nullopt, false, ThermalState::nominal, std::nullopt},
        {"a zero maximum", BatteryDescription{5, 0, "Battery Power"}, false, ThermalState::nominal,
         std::nullopt},
        {"no maximum", BatteryDescription{5, std::nullopt, "Battery Power"}, false,
         ThermalState::nominal, std::nullopt},
        {"no power source reads as AC", BatteryDescription{5, 100, std::nullopt}, false,
         ThermalState::nominal, std::nullopt},
        {"only the exact words mean AC", BatteryDescription{5, 100, "Charging"}, false,
         ThermalState::nominal, "Battery at 5% — will resume when plugged in."},
    };
    for (const auto& row : rows) {
        FakePower power;
        power.setBattery(row.battery);
        power.setLowPower(row.lowPower);
        power.setHeat(row.heat);
        EXPECT_EQ(powerPauseReason(power), row.reason) << row.name;
    }
}

}  // namespace
}  // namespace quillstow
