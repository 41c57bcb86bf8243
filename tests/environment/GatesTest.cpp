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

class ActivityGateTest : public ::testing::Test {
  protected:
    FakeActivity activity;
    RecordingSleeper sleeper;
    ActivityGate gate{activity, sleeper};
};

TEST_F(ActivityGateTest, FullNeverReadsTheIdleTimeNorPauses) {
    gate.setBandwidthMode(BandwidthMode::full);
    activity.idle = 0;
    EXPECT_FALSE(gate.isThrottling());
    gate.pauseBetweenFiles({});
    gate.pauseBetweenChunks();
    EXPECT_EQ(activity.reads, 0);
    EXPECT_TRUE(sleeper.slept.empty());
}

TEST_F(ActivityGateTest, QuietPausesEvenWhenTheUserIsLongGone) {
    gate.setBandwidthMode(BandwidthMode::quiet);
    activity.idle = 10 * 3600;
    EXPECT_TRUE(gate.isThrottling());
    gate.pauseBetweenFiles({});
    gate.pauseBetweenChunks();
    EXPECT_EQ(sleeper.slept, (std::vector<double>{0.030, 0.002}));
}

TEST_F(ActivityGateTest, AutoPausesBelowOneHundredTwentySecondsOfIdleOnly) {
    activity.idle = 119.9;
    EXPECT_TRUE(gate.isThrottling());
    gate.pauseBetweenFiles({});
    activity.idle = 120.0;
    EXPECT_FALSE(gate.isThrottling());
    gate.pauseBetweenFiles({});
    gate.pauseBetweenChunks();
    EXPECT_EQ(sleeper.slept, (std::vector<double>{0.010}));
    EXPECT_EQ(activity.reads, 5) << "read afresh at every call";
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

TEST(PowerGate, ABatteryUnderThirtyPercentPausesOnlyOffAC) {
    FakePower power;
    power.setBattery(29, 100, "Battery Power");
    EXPECT_EQ(powerPauseReason(power), "Battery at 29% — will resume when plugged in.");
    power.setBattery(29, 100, "AC Power");
    EXPECT_FALSE(powerPauseReason(power));
    power.setBattery(30, 100, "Battery Power");
    EXPECT_FALSE(powerPauseReason(power));
    power.setBattery(299, 1000, "Battery Power");  // 29.9 reads 29
    EXPECT_EQ(batteryPercent(power), 29);
    EXPECT_TRUE(powerPauseReason(power));
}

TEST(PowerGate, HeatComesBeforePowerSavingWhichComesBeforeTheBattery) {
    FakePower power;
    power.setBattery(10, 100, "Battery Power");
    power.setLowPower(true);
    power.setHeat(ThermalState::serious);
    EXPECT_EQ(powerPauseReason(power),
              "Your computer is running hot — will resume when it cools down.");
    power.setHeat(ThermalState::critical);
    EXPECT_EQ(powerPauseReason(power),
              "Your computer is running hot — will resume when it cools down.");
    power.setHeat(ThermalState::fair);
    EXPECT_EQ(powerPauseReason(power),
              "Power saver mode is on — will resume when disabled or plugged in.");
    power.setLowPower(false);
    EXPECT_EQ(powerPauseReason(power), "Battery at 10% — will resume when plugged in.");
}

TEST(PowerGate, PowerSavingPausesOnACToo) {
    FakePower power;
    power.setBattery(100, 100, "AC Power");
    power.setLowPower(true);
    EXPECT_TRUE(powerPauseReason(power));
}

TEST(PowerGate, EveryDoubtResolvesTowardsRunning) {
    FakePower power;
    EXPECT_FALSE(batteryPercent(power)) << "a desktop has no battery";
    EXPECT_TRUE(isOnACPower(power));
    EXPECT_FALSE(powerPauseReason(power));

    power.setBattery(5, 0, "Battery Power");
    EXPECT_FALSE(batteryPercent(power)) << "no division by a zero maximum";
    EXPECT_FALSE(powerPauseReason(power));

    power.setBattery(BatteryDescription{5, std::nullopt, "Battery Power"});
    EXPECT_FALSE(powerPauseReason(power));

    power.setBattery(5, 100, nullptr);
    EXPECT_TRUE(isOnACPower(power)) << "no state reads as AC power";
    EXPECT_FALSE(powerPauseReason(power));

    power.setBattery(5, 100, "Charging");
    EXPECT_FALSE(isOnACPower(power)) << "only the exact words mean AC";
}

}  // namespace
}  // namespace quillstow
