// The gates on readings a test sets: heat, power saving and a low battery off AC pause a pass;
// the bandwidth mode, and under auto the user at the machine, slow it down.

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

std::string battery(int percent) {
    return "Battery at " + std::to_string(percent) + "% — will resume when plugged in.";
}

BatteryDescription charged(std::int64_t current, std::optional<std::int64_t> maximum,
                           std::optional<std::string> source = "Battery Power") {
    return {current, maximum, std::move(source)};
}

// Each row: the power readings, the bandwidth mode and the user's idle time; why the pass pauses
// (nothing: it runs, as on every doubt), the pauses taken between files and between chunks (0:
// none), and how often the idle time was read: afresh on each call.
TEST(Gates, PauseForHeatThenPowerSavingThenALowBatteryAndSlowDownForTheUser) {
    const std::string hot = "Your computer is running hot — will resume when it cools down.";
    const std::string saver = "Power saver mode is on — will resume when disabled or plugged in.";
    const std::optional<std::string> runs;
    const std::optional<BatteryDescription> desktop;
    using enum ThermalState;
    using enum BandwidthMode;
    const struct {
        const char* name;
        std::optional<BatteryDescription> battery;
        bool lowPower;
        ThermalState heat;
        BandwidthMode mode;
        double idle;
        std::optional<std::string> reason;
        double filePause, chunkPause;
        int reads;
    } rows[] = {
        {"under 30%, full mode", charged(29, 100), false, nominal, full, 0, battery(29), 0, 0, 0},
        {"29.9% reads 29, quiet", charged(299, 1000), false, nominal, quiet, 1e5, battery(29),
         0.030, 0.002, 0},
        {"on AC, the user there", charged(29, 100, "AC Power"), false, nominal, automatic, 119.9,
         runs, 0.010, 0.002, 3},
        {"exactly 30%, the user away", charged(30, 100), false, nominal, automatic, 120, runs, 0, 0,
         3},
        {"serious heat before all", charged(10, 100), true, serious, full, 0, hot, 0, 0, 0},
        {"critical heat", desktop, false, critical, full, 0, hot, 0, 0, 0},
        {"fair heat is none", charged(10, 100), true, fair, full, 0, saver, 0, 0, 0},
        {"power saving on AC", charged(100, 100, "AC Power"), true, nominal, full, 0, saver, 0, 0,
         0},
        {"a desktop", desktop, false, nominal, full, 0, runs, 0, 0, 0},
        {"a zero maximum", charged(5, 0), false, nominal, full, 0, runs, 0, 0, 0},
        {"no source reads as AC", charged(5, 100, std::nullopt), false, nominal, full, 0, runs, 0,
         0, 0},
        {"only those words mean AC", charged(5, 100, "Charging"), false, nominal, full, 0,
         battery(5), 0, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakePower power;
        power.setBattery(row.battery);
        power.setLowPower(row.lowPower);
        power.setHeat(row.heat);
        EXPECT_EQ(powerPauseReason(power), row.reason);

        FakeActivity activity;
        RecordingSleeper sleeper;
        ActivityGate gate{activity, sleeper};
        gate.setBandwidthMode(row.mode);
        activity.idle = row.idle;
        EXPECT_EQ(gate.isThrottling(), row.filePause > 0);
        gate.pauseBetweenFiles({});
        gate.pauseBetweenChunks();
        const std::vector<double> expected{row.filePause, row.chunkPause};
        EXPECT_EQ(sleeper.slept, row.filePause > 0 ? expected : std::vector<double>{});
        EXPECT_EQ(activity.reads, row.reads);
    }
}

}  // namespace
}  // namespace quillstow
