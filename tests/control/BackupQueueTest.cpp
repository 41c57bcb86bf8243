// One job at a time for all pairs, a newer request of a pair replacing its waiting one, the
// order of arrival, cancellation, and the hour's limit in virtual time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>

#include "LogCapture.hpp"
#include "control/BackupQueue.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using Outcome = BackupQueue::JobOutcome;
using ::testing::ElementsAre;

// Work that tells when it starts and ends when the test lets it, or at its cancellation
// unless it ignores that.
class HeldWork {
  public:
    explicit HeldWork(std::string name, std::vector<std::string>& started, std::mutex& mutex,
                      bool ignoresCancellation = false)
        : name_(std::move(name)),
          started_(started),
          startedMutex_(mutex),
          ignoresCancellation_(ignoresCancellation) {}

    BackupQueue::Work work() {
        return [this](std::stop_token stop) {
            {
                std::lock_guard lock(startedMutex_);
                started_.push_back(name_);
            }
            std::unique_lock lock(mutex_);
            hasStarted_ = true;
            changed_.notify_all();
            changed_.wait(lock, stop, [&] { return isReleased_; });
            sawCancellation_ = stop.stop_requested();
            if (ignoresCancellation_) changed_.wait(lock, [&] { return isReleased_; });
        };
    }
    bool waitUntilStarted() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return hasStarted_; });
    }
    void release() {
        std::lock_guard lock(mutex_);
        isReleased_ = true;
        changed_.notify_all();
    }
    bool sawCancellation() const { return sawCancellation_; }

  private:
    std::string name_;
    std::vector<std::string>& started_;
    std::mutex& startedMutex_;
    bool ignoresCancellation_;
    std::mutex mutex_;
    std::condition_variable_any changed_;
    bool hasStarted_ = false;
    bool isReleased_ = false;
    std::atomic<bool> sawCancellation_{false};
};

// Times the limit on the virtual clock, and lets a test act the moment a job's watchdog is set:
// after the queue has taken the job up and before the job's task starts.
class WatchdogsWithHook final : public Scheduler {
  public:
    explicit WatchdogsWithHook(Scheduler& inner) : inner_(inner) {}
    DelayedWork postDelayed(double seconds, Work work) override {
        if (onWatchdog) onWatchdog();
        return inner_.postDelayed(seconds, std::move(work));
    }
    std::function<void()> onWatchdog;

  private:
    Scheduler& inner_;
};

class BackupQueueTest : public ::testing::Test {
  protected:
    ManualClock clock;
    VirtualMainQueue watchdogs{clock};
    WatchdogsWithHook hookedWatchdogs{watchdogs};
    TaskRunner tasks;
    std::unique_ptr<BackupQueue> queue = std::make_unique<BackupQueue>(hookedWatchdogs, tasks);
    std::mutex startedMutex;
    std::vector<std::string> started;
    Uuid pairA = Uuid::random();
    Uuid pairB = Uuid::random();
    Uuid pairC = Uuid::random();

    // Kept by the fixture, so that a test that fails half-way still lets every job end.
    HeldWork& held(std::string name, bool ignoresCancellation = false) {
        works.push_back(std::make_unique<HeldWork>(std::move(name), started, startedMutex,
                                                   ignoresCancellation));
        return *works.back();
    }

    std::future<Outcome>& submit(const Uuid& pair, HeldWork& work) {
        outcomes.push_back(std::async(
            std::launch::async, [this, pair, &work] { return queue->enqueue(pair, work.work()); }));
        return outcomes.back();
    }

    // Waits, in real time and bounded, for another thread to get somewhere.
    static bool eventually(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::yield();
        }
        return true;
    }

    static bool isReady(const std::future<Outcome>& outcome) {
        return outcome.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }

    std::vector<std::string> startedSoFar() {
        std::lock_guard lock(startedMutex);
        return started;
    }

    void TearDown() override {
        for (auto& work : works)
            work->release();
        queue.reset();
        tasks.waitUntilIdle();
    }

    std::deque<std::unique_ptr<HeldWork>> works;
    std::deque<std::future<Outcome>> outcomes;
};

TEST_F(BackupQueueTest, ANewerRequestOfAPairReplacesItsWaitingOne) {
    auto& running = held("A");
    auto& first = held("B1");
    auto& second = held("B2");
    auto& a = submit(pairA, running);
    ASSERT_TRUE(running.waitUntilStarted());
    auto& b1 = submit(pairB, first);
    ASSERT_TRUE(eventually([&] { return queue->waitingJobs() == 1; }));
    auto& b2 = submit(pairB, second);

    ASSERT_TRUE(eventually([&] { return isReady(b1); })) << "the first caller is let go at once";
    EXPECT_EQ(b1.get(), Outcome::cancelled);
    EXPECT_EQ(queue->waitingJobs(), 1u);
    running.release();
    ASSERT_TRUE(second.waitUntilStarted());
    second.release();
    EXPECT_EQ(a.get(), Outcome::completed);
    EXPECT_EQ(b2.get(), Outcome::completed);
    EXPECT_THAT(startedSoFar(), ElementsAre("A", "B2"));
}

TEST_F(BackupQueueTest, ARequestOfTheRunningPairWaitsAndRunsAfterIt) {
    auto& first = held("A1");
    auto& second = held("A2");
    auto& a1 = submit(pairA, first);
    ASSERT_TRUE(first.waitUntilStarted());
    auto& a2 = submit(pairA, second);
    ASSERT_TRUE(eventually([&] { return queue->waitingJobs() == 1; }));
    EXPECT_FALSE(isReady(a1)) << "the running job is not touched";
    first.release();
    EXPECT_EQ(a1.get(), Outcome::completed);
    ASSERT_TRUE(second.waitUntilStarted());
    second.release();
    EXPECT_EQ(a2.get(), Outcome::completed);
    EXPECT_FALSE(first.sawCancellation());
}

TEST_F(BackupQueueTest, JobsRunOneAtATimeInTheOrderOfTheirArrival) {
    auto& a = held("A");
    auto& c = held("C");
    auto& b = held("B");
    auto& outcomeA = submit(pairA, a);
    ASSERT_TRUE(a.waitUntilStarted());
    auto& outcomeC = submit(pairC, c);
    ASSERT_TRUE(eventually([&] { return queue->waitingJobs() == 1; }));
    auto& outcomeB = submit(pairB, b);
    ASSERT_TRUE(eventually([&] { return queue->waitingJobs() == 2; }));

    EXPECT_THAT(startedSoFar(), ElementsAre("A"));
    a.release();
    ASSERT_TRUE(c.waitUntilStarted());
    EXPECT_THAT(startedSoFar(), ElementsAre("A", "C")) << "B waits while C runs";
    c.release();
    ASSERT_TRUE(b.waitUntilStarted());
    b.release();
    EXPECT_EQ(outcomeA.get(), Outcome::completed);
    EXPECT_EQ(outcomeC.get(), Outcome::completed);
    EXPECT_EQ(outcomeB.get(), Outcome::completed);
}

TEST_F(BackupQueueTest, CancelDropsTheWaitingJobAndCancelsTheRunningOneOfItsPairOnly) {
    auto& running = held("A");
    auto& waiting = held("A-next");
    auto& first = submit(pairA, running);
    ASSERT_TRUE(running.waitUntilStarted());
    auto& second = submit(pairA, waiting);
    ASSERT_TRUE(eventually([&] { return queue->waitingJobs() == 1; }));

    queue->cancel(pairB);
    EXPECT_EQ(queue->waitingJobs(), 1u) << "another pair's cancel touches nothing";
    EXPECT_FALSE(running.sawCancellation());
    EXPECT_FALSE(isReady(first));
    queue->cancel(pairA);
    EXPECT_EQ(second.get(), Outcome::cancelled);
    EXPECT_EQ(first.get(), Outcome::cancelled);
    EXPECT_TRUE(running.sawCancellation());
    EXPECT_THAT(startedSoFar(), ElementsAre("A"));
}

TEST_F(BackupQueueTest, ACancelAsTheJobIsTakenUpIsNotLost) {
    auto& job = held("A");
    hookedWatchdogs.onWatchdog = [&] { queue->cancel(pairA); };
    auto& outcome = submit(pairA, job);
    ASSERT_TRUE(eventually([&] { return isReady(outcome); }));
    EXPECT_EQ(outcome.get(), Outcome::cancelled);
    EXPECT_TRUE(startedSoFar().empty()) << "a job cancelled before its start never starts";
}

TEST_F(BackupQueueTest, AJobThatIgnoresItsCancellationRunsOnPastTheHourAndTimesOut) {
    testing::LogCapture log;
    auto& stubborn = held("A", true);
    auto& next = held("B");
    auto& outcome = submit(pairA, stubborn);
    ASSERT_TRUE(stubborn.waitUntilStarted());
    auto& nextOutcome = submit(pairB, next);
    ASSERT_TRUE(eventually([&] { return queue->waitingJobs() == 1; }));

    watchdogs.advance(3599.9);
    EXPECT_TRUE(log.messages("BackupEngine").empty());
    watchdogs.advance(0.1);
    ASSERT_EQ(log.messages("BackupEngine").size(), 1u);
    EXPECT_THAT(log.messages("BackupEngine")[0],
                ::testing::MatchesRegex("Backup job for pair <mask.hash: '.*'> exceeded the "
                                        "<private> limit — cancelling."));
    EXPECT_EQ(log.records()[0].level, LogLevel::error);

    watchdogs.advance(7200);
    EXPECT_THAT(startedSoFar(), ElementsAre("A")) << "it blocks the queue as long as it runs";
    stubborn.release();
    EXPECT_EQ(outcome.get(), Outcome::timedOut);
    EXPECT_TRUE(stubborn.sawCancellation());
    ASSERT_TRUE(next.waitUntilStarted());
    next.release();
    EXPECT_EQ(nextOutcome.get(), Outcome::completed);
}

TEST_F(BackupQueueTest, TheLimitOfAFinishedJobNeverStrikesTheNext) {
    auto& quick = held("A");
    auto& later = held("B");
    auto& first = submit(pairA, quick);
    ASSERT_TRUE(quick.waitUntilStarted());
    watchdogs.advance(3000);
    quick.release();
    EXPECT_EQ(first.get(), Outcome::completed);
    auto& second = submit(pairB, later);
    ASSERT_TRUE(later.waitUntilStarted());
    watchdogs.advance(3000);
    EXPECT_FALSE(later.sawCancellation()) << "B has run for 3000 seconds, not 6000";
    later.release();
    EXPECT_EQ(second.get(), Outcome::completed);
}

TEST_F(BackupQueueTest, ACancelAfterTheLimitHasTheLastWord) {
    auto& stubborn = held("A", true);
    auto& outcome = submit(pairA, stubborn);
    ASSERT_TRUE(stubborn.waitUntilStarted());
    watchdogs.advance(3600);
    queue->cancel(pairA);
    stubborn.release();
    EXPECT_EQ(outcome.get(), Outcome::cancelled);
}

TEST_F(BackupQueueTest, AQueueThatGoesLetsEveryCallerGo) {
    auto& running = held("A");
    auto& waiting = held("B");
    auto& first = submit(pairA, running);
    ASSERT_TRUE(running.waitUntilStarted());
    auto& second = submit(pairB, waiting);
    ASSERT_TRUE(eventually([&] { return queue->waitingJobs() == 1; }));
    queue.reset();
    EXPECT_EQ(first.get(), Outcome::cancelled);
    EXPECT_EQ(second.get(), Outcome::cancelled);
    EXPECT_THAT(startedSoFar(), ElementsAre("A"));
}

}  // namespace
}  // namespace quillstow
