// Timers, tasks and run loops: a repeating timer in virtual time, background tasks at utility
// priority that a runner waits for, the plain run loop of the headless program, and the
// in-process notifications.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "support/ContinuousTimer.hpp"
#include "support/NotificationCenter.hpp"
#include "support/RepeatingTimer.hpp"
#include "support/RunLoop.hpp"
#include "support/Tasks.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using ::testing::ElementsAre;

TEST(RepeatingTimerTest, TicksEveryIntervalUntilInvalidatedOrEndedByItsOwnTick) {
    ManualClock clock{0};
    VirtualMainQueue queue{clock};
    std::vector<double> ticks;
    RepeatingTimer timer(queue, 30, [&] { ticks.push_back(clock.now()); });
    queue.advance(29.9);
    EXPECT_TRUE(ticks.empty());
    queue.advance(60.1);
    EXPECT_THAT(ticks, ElementsAre(30, 60, 90));
    timer.invalidate();
    queue.advance(300);
    EXPECT_EQ(ticks.size(), 3u);

    std::unique_ptr<RepeatingTimer> ending;
    ending = std::make_unique<RepeatingTimer>(queue, 10, [&] {
        ticks.push_back(clock.now());
        ending.reset();
    });
    queue.advance(100);
    EXPECT_EQ(ticks.size(), 4u);
    EXPECT_EQ(queue.scheduledCount(), 0u);
}

TEST(TaskRunnerTest, TasksRunAtUtilityPriorityAndTheRunnerWaitsForThem) {
    auto runner = std::make_unique<TaskRunner>();
    std::promise<int> niceness;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> ended = false;
    const TaskHandle task = runner->start([&, released](std::stop_token) {
        errno = 0;
        niceness.set_value(::getpriority(PRIO_PROCESS, id_t(::syscall(SYS_gettid))));
        released.wait();
        ended = true;
    });
    EXPECT_EQ(niceness.get_future().get(), 10);
    EXPECT_FALSE(runner->waitUntilIdle(0.01));
    EXPECT_FALSE(task.isEnded());
    release.set_value();
    runner.reset();  // waits
    EXPECT_TRUE(ended);
    EXPECT_TRUE(task.isEnded());
    EXPECT_EQ(::getpriority(PRIO_PROCESS, 0), 0) << "the caller's own priority is untouched";
}

TEST(TaskRunnerTest, ACancelReachesTheTasksStopToken) {
    TaskRunner runner;
    const auto waitForStop = [](std::stop_token stop) {
        std::mutex mutex;
        std::condition_variable_any wakeUp;
        std::unique_lock lock(mutex);
        wakeUp.wait(lock, stop, [] { return false; });
    };
    const TaskHandle task = runner.start(waitForStop);
    task.cancel();
    task.wait();
    EXPECT_TRUE(task.isEnded());
    TaskHandle empty;
    empty.wait();  // at once
    EXPECT_TRUE(empty.isEnded());

    // Cancelling all reaches every task still running, and none that is over.
    const TaskHandle first = runner.start(waitForStop);
    const TaskHandle second = runner.start(waitForStop);
    EXPECT_FALSE(runner.waitUntilIdle(0.01));
    runner.cancelAll();
    EXPECT_TRUE(runner.waitUntilIdle(10.0));
    EXPECT_TRUE(first.isEnded() && second.isEnded());
}

TEST(RunLoopTest, RunsWorkFromAnyThreadOnItsOwnUntilQuit) {
    RunLoop loop;
    std::vector<std::string> ran;
    std::thread::id mainThread;
    loop.post([&] {
        mainThread = std::this_thread::get_id();
        EXPECT_TRUE(loop.isCurrent());
        ran.push_back("first");
        // Delayed work, even when due at once, comes after the work that is posted.
        loop.postDelayed(0, [&] { ran.push_back("delayed"); });
        loop.post([&] { ran.push_back("second"); });
        const DelayedWork dropped = loop.postDelayed(0, [&] { ran.push_back("cancelled"); });
        dropped.cancel();
        std::thread([&] {
            loop.post([&] {
                EXPECT_EQ(std::this_thread::get_id(), mainThread);
                ran.push_back("from another thread");
                loop.postDelayed(0, [&] { loop.quit(); });
            });
        }).join();
    });
    std::thread([&] { EXPECT_FALSE(loop.isCurrent()); }).join();
    loop.run();
    EXPECT_THAT(ran, ElementsAre("first", "second", "from another thread", "delayed"));
    EXPECT_TRUE(loop.isCurrent()) << "the thread that made it, also when it doesn't run";
}

TEST(RunLoopTest, QuitFromAnotherThreadEndsAnIdleLoop) {
    RunLoop loop;
    std::thread quitter([&] {
        std::promise<void> running;
        loop.post([&] { running.set_value(); });
        running.get_future().wait();
        loop.quit();
    });
    loop.run();
    quitter.join();
}

TEST(ContinuousTimerTest, RunsDueWorkOnItsOwnThreadAndNeverCancelledWork) {
    ContinuousTimer timer;
    std::promise<std::thread::id> ranOn;
    std::atomic<bool> cancelledRan = false;
    // The timer's thread waits inside the first work until the others are in place, so the
    // cancel comes before the cancelled work could fall due.
    std::promise<void> release;
    timer.postDelayed(0, [ready = release.get_future().share()] { ready.wait(); });
    const DelayedWork cancelled = timer.postDelayed(0, [&] { cancelledRan = true; });
    cancelled.cancel();
    timer.postDelayed(0, [&] { ranOn.set_value(std::this_thread::get_id()); });
    release.set_value();
    EXPECT_NE(ranOn.get_future().get(), std::this_thread::get_id());
    EXPECT_FALSE(cancelledRan) << "work runs in order of due time, so the cancelled one came first";
}

TEST(NotificationCenterTest, TellsTheObserversOfANameInOrderWhileTheyObserve) {
    NotificationCenter center;
    std::vector<std::string> told;
    Subscription first = center.observe("io.quillstow.profileSuggested", [&](const auto& info) {
        told.push_back("first " + std::get<std::string>(info.at("pairName")));
    });
    const Subscription second =
        center.observe("io.quillstow.profileSuggested", [&](const auto& info) {
            told.push_back("second " +
                           std::to_string(std::get<std::int64_t>(info.at("approximateBytes"))));
        });
    const Subscription other =
        center.observe("other", [&](const auto&) { told.push_back("other"); });

    center.post("io.quillstow.profileSuggested",
                {{"pairName", std::string("Work")}, {"approximateBytes", std::int64_t(42)}});
    first.cancel();
    center.post("io.quillstow.profileSuggested",
                {{"pairName", std::string("Work")}, {"approximateBytes", std::int64_t(7)}});
    center.post("nobody listens");
    EXPECT_THAT(told, ElementsAre("first Work", "second 42", "second 7"));
}

}  // namespace
}  // namespace quillstow
