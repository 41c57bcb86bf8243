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

TEST_F(VirtualMainQueueTest, RunsDelayedWorkInOrderOfDueTimeThenOfPosting) {
    queue.postDelayed(2.0, [&] { ran.push_back("b@" + std::to_string(int(clock.now()))); });
    queue.postDelayed(1.0, [&] { ran.push_back("a@" + std::to_string(int(clock.now()))); });
    queue.postDelayed(2.0, [&] { ran.push_back("c@" + std::to_string(int(clock.now()))); });
    queue.advance(1.999);
    EXPECT_EQ(ran, (std::vector<std::string>{"a@101"}));
    queue.advance(0.001);
    EXPECT_EQ(ran, (std::vector<std::string>{"a@101", "b@102", "c@102"}));
    EXPECT_DOUBLE_EQ(clock.now(), 102.0);
}

TEST_F(VirtualMainQueueTest, CancelledWorkNeverRuns) {
    DelayedWork first = queue.postDelayed(0.5, [&] { ran.push_back("first"); });
    queue.postDelayed(0.5, [&] { ran.push_back("second"); });
    EXPECT_EQ(queue.scheduledCount(), 2u);
    first.cancel();
    EXPECT_EQ(queue.scheduledCount(), 1u);
    queue.advance(10);
    EXPECT_EQ(ran, (std::vector<std::string>{"second"}));
    first.cancel();  // after the fact: nothing happens
}

TEST_F(VirtualMainQueueTest, WorkPostedByWorkRunsInTheSameAdvance) {
    queue.postDelayed(1.0, [&] {
        queue.post([&] { ran.push_back("posted"); });
        queue.postDelayed(0.5, [&] { ran.push_back("chained@" + std::to_string(clock.now())); });
    });
    queue.advance(1.5);
    ASSERT_EQ(ran.size(), 2u);
    EXPECT_EQ(ran[0], "posted");
    EXPECT_EQ(ran[1], "chained@" + std::to_string(101.5));
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
