// Queues, timers and tasks: delayed work in order, background tasks at utility priority that a
// runner cancels and waits for, the timer that counts through suspend, and the in-process
// notifications. The repeating timer is shown by the status manager's schedule, the plain run
// loop by the headless program.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "support/ContinuousTimer.hpp"
#include "support/NotificationCenter.hpp"
#include "support/Tasks.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using ::testing::ElementsAre;

// In order of due time, then of posting, the clock at each due time; cancelled work never, and
// what work posts in the same advance.
TEST(VirtualMainQueueTest, RunsDelayedWorkInOrderOfDueTimeThenOfPosting) {
    ManualClock clock{100.0};
    VirtualMainQueue queue{clock};
    std::vector<std::string> ran;
    const auto record = [&](std::string name) {
        return [&, name] { ran.push_back(name + "@" + std::to_string(int(clock.now() * 10))); };
    };
    queue.postDelayed(2.0, record("b"));
    queue.postDelayed(1.0, [&, record] {
        record("a")();
        queue.post(record("posted"));
        queue.postDelayed(0.5, record("chained"));
    });
    queue.postDelayed(2.0, record("c"));
    const DelayedWork cancelled = queue.postDelayed(0.5, record("cancelled"));
    cancelled.cancel();
    EXPECT_EQ(queue.scheduledCount(), 3u);
    queue.advance(1.999);
    EXPECT_EQ(ran.size(), 3u);
    queue.advance(0.001);
    EXPECT_THAT(ran, ElementsAre("a@1010", "posted@1010", "chained@1015", "b@1020", "c@1020"));
}

TEST(TaskRunnerTest, RunsTasksAtUtilityPriorityCancelsThemAndWaitsForThemAtItsEnd) {
    auto runner = std::make_unique<TaskRunner>();
    const auto untilStopped = [](std::stop_token stop) {
        std::mutex mutex;
        std::condition_variable_any wakeUp;
        std::unique_lock lock(mutex);
        wakeUp.wait(lock, stop, [] { return false; });
    };
    std::promise<int> niceness;
    const TaskHandle first = runner->start([&](std::stop_token stop) {
        niceness.set_value(::getpriority(PRIO_PROCESS, id_t(::syscall(SYS_gettid))));
        untilStopped(stop);
    });
    EXPECT_EQ(niceness.get_future().get(), 10);
    EXPECT_EQ(::getpriority(PRIO_PROCESS, 0), 0) << "the caller's own priority is untouched";
    EXPECT_FALSE(runner->waitUntilIdle(0.01));
    first.cancel();
    first.wait();
    EXPECT_TRUE(first.isEnded());

    const TaskHandle second = runner->start(untilStopped);
    const TaskHandle third = runner->start(untilStopped);
    runner->cancelAll();
    EXPECT_TRUE(runner->waitUntilIdle(10.0));
    EXPECT_TRUE(second.isEnded() && third.isEnded());

    // A task that takes a while, and ignores its stop: the runner's end waits for it.
    std::atomic<bool> ended = false;
    runner->start([&](std::stop_token) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        ended = true;
    });
    runner.reset();
    EXPECT_TRUE(ended);
}

TEST(ContinuousTimerTest, RunsDueWorkOnItsOwnThreadAndNeverCancelledWork) {
    ContinuousTimer timer;
    std::promise<std::thread::id> ranOn;
    std::atomic<bool> cancelledRan = false;
    // The timer's thread waits inside the first work until the others are in place, so the
    // cancel comes before the cancelled work could fall due.
    std::promise<void> release;
    timer.postDelayed(0, [ready = release.get_future().share()] { ready.wait(); });
    timer.postDelayed(0, [&] { cancelledRan = true; }).cancel();
    timer.postDelayed(0, [&] { ranOn.set_value(std::this_thread::get_id()); });
    release.set_value();
    EXPECT_NE(ranOn.get_future().get(), std::this_thread::get_id());
    EXPECT_FALSE(cancelledRan) << "work runs in order of due time, so the cancelled one came first";
}

TEST(NotificationCenterTest, TellsTheObserversOfANameInOrderWhileTheyObserve) {
    NotificationCenter center;
    std::vector<std::string> told;
    const auto observer = [&](std::string who) {
        return [&, who](const NotificationInfo& info) {
            told.push_back(who + " " + std::to_string(std::get<std::int64_t>(info.at("bytes"))));
        };
    };
    Subscription first = center.observe("suggested", observer("first"));
    const Subscription second = center.observe("suggested", observer("second"));
    const Subscription other = center.observe("other", observer("other"));
    center.post("suggested", {{"bytes", std::int64_t(42)}});
    first.cancel();
    center.post("suggested", {{"bytes", std::int64_t(7)}});
    center.post("nobody listens");
    EXPECT_THAT(told, ElementsAre("first 42", "second 42", "second 7"));
}

}  // namespace
}  // namespace quillstow
