// One action at a quiet moment: 2.0 seconds after the last signal, 10.0 during a burst of more
// than 500 signals in five seconds, never after a cancel or once the debouncer is gone.

#include <gtest/gtest.h>

#include <thread>

#include "copy/Debouncer.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

class DebouncerTest : public ::testing::Test {
  protected:
    ManualClock clock{100.0};
    VirtualMainQueue queue{clock};
    Debouncer debouncer{queue, clock};
    std::vector<double> fired;

    void signal() {
        debouncer.schedule([this] { fired.push_back(clock.now()); });
    }
};

TEST_F(DebouncerTest, TwoSignalsASecondApartFireOnceTwoSecondsAfterTheSecond) {
    signal();
    queue.advance(1.0);
    signal();
    queue.advance(1.999);
    EXPECT_TRUE(fired.empty());
    queue.advance(0.001);
    EXPECT_EQ(fired, (std::vector<double>{103.0}));
    queue.advance(60);
    EXPECT_EQ(fired.size(), 1u);
}

TEST_F(DebouncerTest, MoreThanFiveHundredSignalsInTheWindowWaitTenSeconds) {
    for (int i = 0; i < 500; ++i)
        signal();
    queue.advance(2.0);
    EXPECT_EQ(fired, (std::vector<double>{102.0})) << "500 is no burst";

    for (int i = 0; i < 501; ++i)
        signal();
    queue.advance(9.999);
    EXPECT_EQ(fired.size(), 1u) << "501 within five seconds are";
    queue.advance(0.001);
    EXPECT_EQ(fired.back(), 112.0);
}

TEST_F(DebouncerTest, OnlySignalsOfTheLastFiveSecondsCount) {
    for (int i = 0; i < 400; ++i)
        signal();
    queue.advance(5.0);
    // The first 400 are exactly five seconds old and still in the window: 501 make a burst.
    for (int i = 0; i < 101; ++i)
        signal();
    queue.advance(2.0);
    EXPECT_EQ(fired, (std::vector<double>{102.0})) << "the first batch alone, at 2.0";
    queue.advance(8.0);
    EXPECT_EQ(fired.back(), 115.0);

    // After a pause of more than five seconds the old signals have gone.
    for (int i = 0; i < 400; ++i)
        signal();
    queue.advance(5.001);
    for (int i = 0; i < 101; ++i)
        signal();
    queue.advance(2.0);
    EXPECT_EQ(fired.back(), 122.001);
}

TEST_F(DebouncerTest, ACancelJustBeforeTheDelayDropsTheActionAndTheNextSignalWaitsNormally) {
    signal();
    queue.advance(1.999);
    debouncer.cancel();
    queue.advance(60);
    EXPECT_TRUE(fired.empty());
    signal();
    queue.advance(2.0);
    EXPECT_EQ(fired, (std::vector<double>{163.999}));
}

TEST_F(DebouncerTest, ADebouncerThatGoesAwayNeverRunsItsAction) {
    auto shortLived = std::make_unique<Debouncer>(queue, clock);
    shortLived->schedule([this] { fired.push_back(clock.now()); });
    shortLived.reset();
    queue.advance(60);
    EXPECT_TRUE(fired.empty());
}

TEST_F(DebouncerTest, AnActionMayScheduleTheNext) {
    debouncer.schedule([this] {
        fired.push_back(clock.now());
        signal();
    });
    queue.advance(4.0);
    EXPECT_EQ(fired, (std::vector<double>{102.0, 104.0}));
}

using DebouncerDeathTest = DebouncerTest;

TEST_F(DebouncerDeathTest, UseOffTheMainThreadStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(std::thread([this] { signal(); }).join(), "off the main thread");
}

}  // namespace
}  // namespace quillstow
