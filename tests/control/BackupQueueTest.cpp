// The one queue, as stories of held jobs: one job at a time in the order of arrival, a newer
// request of a pair replacing its waiting one, cancellation, and the hour's limit in virtual
// time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <map>
#include <sstream>

#include "control/BackupQueue.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using Outcome = BackupQueue::JobOutcome;

// Work that notes its start and ends when the test lets it, or at its cancellation unless it
// is stubborn.
class HeldWork {
  public:
    HeldWork(std::string name, bool isStubborn, std::function<void(const std::string&)> onStart)
        : name_(std::move(name)), isStubborn_(isStubborn), onStart_(std::move(onStart)) {}

    BackupQueue::Work work() {
        return [this](std::stop_token stop) {
            onStart_(name_);
            std::unique_lock lock(mutex_);
            stop_ = stop;
            hasStarted_ = true;
            changed_.notify_all();
            changed_.wait(lock, stop, [&] { return isReleased_; });
            if (isStubborn_) changed_.wait(lock, [&] { return isReleased_; });
        };
    }
    bool waitUntilStarted() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return hasStarted_; });
    }
    // Whether the queue has asked the running job to stop.
    bool isStopped() {
        std::lock_guard lock(mutex_);
        return stop_.stop_requested();
    }
    void release() {
        std::lock_guard lock(mutex_);
        isReleased_ = true;
        changed_.notify_all();
    }

  private:
    std::string name_;
    bool isStubborn_;
    std::function<void(const std::string&)> onStart_;
    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::stop_token stop_;
    bool hasStarted_ = false;
    bool isReleased_ = false;
};

// Times the limit on the virtual clock, and can cancel a pair the moment its job's watchdog is
// set: after the queue has taken the job up and before its task starts.
class Watchdogs final : public Scheduler {
  public:
    explicit Watchdogs(Scheduler& inner) : inner_(inner) {}
    DelayedWork postDelayed(double seconds, Work work) override {
        if (onWatchdog) onWatchdog();
        return inner_.postDelayed(seconds, std::move(work));
    }
    std::function<void()> onWatchdog;

  private:
    Scheduler& inner_;
};

// Plays a story of steps, each "verb job-or-pair [argument]". A job's pair is the first letter
// of its name.
class Story {
  public:
    ~Story() {
        for (auto& [name, work] : works_)
            work->release();
        queue_.reset();
        tasks_.waitUntilIdle();
    }

    void play(const std::string& step) {
        SCOPED_TRACE(step);
        std::istringstream words(step);
        std::string verb, name, argument;
        words >> verb >> name >> argument;
        if (verb == "submit") {
            works_[name] =
                std::make_unique<HeldWork>(name, argument == "stubborn", [this](auto& n) {
                    std::lock_guard lock(mutex_);
                    started_ += n + " ";
                });
            outcomes_[name] = std::async(std::launch::async,
                                         [this, id = pair(name), work = works_[name]->work()] {
                                             return queue_->enqueue(id, work);
                                         });
        } else if (verb == "started") {
            ASSERT_TRUE(works_.at(name)->waitUntilStarted());
        } else if (verb == "waiting") {
            ASSERT_TRUE(eventually([&] { return queue_->waitingJobs() == std::stoul(name); }));
        } else if (verb == "ended") {
            ASSERT_TRUE(eventually([&] { return isReady(outcomes_.at(name)); }));
        } else if (verb == "running" || verb == "stopped") {
            EXPECT_EQ(works_.at(name)->isStopped(), verb == "stopped");
        } else if (verb == "release") {
            works_.at(name)->release();
        } else if (verb == "cancel") {
            queue_->cancel(pair(name));
        } else if (verb == "cancelOnTakingUp") {
            watchdogs_.onWatchdog = [this, id = pair(name)] { queue_->cancel(id); };
        } else if (verb == "advance") {
            timers_.advance(std::stod(name));
        } else {
            ASSERT_EQ(verb, "destroy");
            queue_.reset();
        }
    }

    // Each job and how it ended, once every job was let go.
    std::string outcomes() {
        std::string found;
        for (auto& [name, work] : works_) {
            work->release();
            static constexpr const char* names[] = {"completed", "timedOut", "cancelled"};
            found += name + ":" + names[int(outcomes_.at(name).get())] + " ";
        }
        return found;
    }
    std::string started() {
        std::lock_guard lock(mutex_);
        return started_;
    }

  private:
    // On the test's thread only.
    Uuid pair(const std::string& name) {
        return pairs_.try_emplace(name.substr(0, 1), Uuid::random()).first->second;
    }
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

    ManualClock clock_;
    VirtualMainQueue timers_{clock_};
    Watchdogs watchdogs_{timers_};
    TaskRunner tasks_;
    std::unique_ptr<BackupQueue> queue_ = std::make_unique<BackupQueue>(watchdogs_, tasks_);
    std::map<std::string, Uuid> pairs_;
    std::map<std::string, std::unique_ptr<HeldWork>> works_;
    std::map<std::string, std::future<Outcome>> outcomes_;
    std::mutex mutex_;
    std::string started_;
};

TEST(BackupQueue, PlaysEachStoryToItsOutcomes) {
    const struct {
        const char* name;
        std::vector<std::string> steps;
        std::string started;
        std::string outcomes;
    } stories[] = {
        {"jobs run one at a time in the order of their arrival",
         {"submit A", "started A", "submit C", "waiting 1", "submit B", "waiting 2", "release A",
          "started C", "release C", "started B", "release B"},
         "A C B ",
         "A:completed B:completed C:completed "},
        {"a newer request of a pair replaces its waiting one, whose caller is let go at once",
         {"submit A", "started A", "submit B1", "waiting 1", "submit B2", "ended B1", "waiting 1",
          "release A", "started B2"},
         "A B2 ",
         "A:completed B1:cancelled B2:completed "},
        {"a request of the running pair waits and runs after it, which is not touched",
         {"submit A1", "started A1", "submit A2", "waiting 1", "running A1", "release A1",
          "started A2"},
         "A1 A2 ",
         "A1:completed A2:completed "},
        {"a cancel drops the waiting job and cancels the running one of its pair only",
         {"submit A1", "started A1", "submit A2", "waiting 1", "cancel B", "waiting 1",
          "running A1", "cancel A", "stopped A1", "ended A2"},
         "A1 ",
         "A1:cancelled A2:cancelled "},
        {"a cancel as the job is taken up is not lost: the job never starts",
         {"cancelOnTakingUp A", "submit A", "ended A"},
         "",
         "A:cancelled "},
        {"a job is stopped at the hour and times out",
         {"submit A", "started A", "advance 3599.9", "running A", "advance 0.1", "stopped A"},
         "A ",
         "A:timedOut "},
        {"a job that ignores its stop holds the queue as long as it runs",
         {"submit A stubborn", "started A", "submit B", "waiting 1", "advance 10800", "stopped A",
          "waiting 1", "release A", "started B"},
         "A B ",
         "A:timedOut B:completed "},
        {"the limit of a finished job never strikes the next",
         {"submit A", "started A", "advance 3000", "release A", "ended A", "submit B", "started B",
          "advance 3000", "running B"},
         "A B ",
         "A:completed B:completed "},
        {"a cancel after the limit has the last word",
         {"submit A stubborn", "started A", "advance 3600", "cancel A"},
         "A ",
         "A:cancelled "},
        {"a queue that goes lets every caller go",
         {"submit A", "started A", "submit B", "waiting 1", "destroy"},
         "A ",
         "A:cancelled B:cancelled "},
    };
    for (const auto& story : stories) {
        SCOPED_TRACE(story.name);
        Story played;
        for (const auto& step : story.steps) {
            played.play(step);
            if (::testing::Test::HasFatalFailure()) break;
        }
        EXPECT_EQ(played.outcomes(), story.outcomes);
        EXPECT_EQ(played.started(), story.started);
    }
}

}  // namespace
}  // namespace quillstow
