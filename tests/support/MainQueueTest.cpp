// The virtual main queue: what the tests in virtual time stand on.

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

class VirtualMainQueueTest : public ::testing::Test {
  protected:
    ManualClock clock{100.0};
    VirtualMainQueue queue{clock};
    std::vector<std::string> ran;
};

// In order of due time, then of posting, the clock at each due time; cancelled work never, and
// what work posts in the same advance.
TEST_F(VirtualMainQueueTest, RunsDelayedWorkInOrderOfDueTimeThenOfPosting) {
    const auto record = [&](std::string name) {
        return [&, name] { ran.push_back(name + "@" + std::to_string(clock.now())); };
    };
    queue.postDelayed(2.0, record("b"));
    queue.postDelayed(1.0, [&, record] {
        record("a")();
        queue.post(record("posted"));
        queue.postDelayed(0.5, record("chained"));
    });
    queue.postDelayed(2.0, record("c"));
    DelayedWork cancelled = queue.postDelayed(0.5, record("cancelled"));
    EXPECT_EQ(queue.scheduledCount(), 4u);
    cancelled.cancel();
    EXPECT_EQ(queue.scheduledCount(), 3u);
    queue.advance(1.999);
    EXPECT_EQ(ran.size(), 3u);
    queue.advance(0.001);
    cancelled.cancel();  // after the fact: nothing happens
    const auto at = [](const char* name, double time) {
        return name + ("@" + std::to_string(time));
    };
    EXPECT_EQ(ran, (std::vector<std::string>{at("a", 101), at("posted", 101), at("chained", 101.5),
                                             at("b", 102), at("c", 102)}));
    EXPECT_DOUBLE_EQ(clock.now(), 102.0);
}

TEST_F(VirtualMainQueueTest, WorkFromAnotherThreadRunsOnTheMainThread) {
    bool ranOnMain = false;
    std::thread background([&] {
        EXPECT_FALSE(queue.isCurrent());
        queue.post([&] { ranOnMain = queue.isCurrent(); });
    });
    EXPECT_TRUE(queue.waitForPosted(5.0));
    background.join();
    EXPECT_FALSE(ranOnMain);
    queue.runPending();
    EXPECT_TRUE(ranOnMain);
}

}  // namespace
}  // namespace quillstow
