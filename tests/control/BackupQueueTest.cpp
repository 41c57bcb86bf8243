// The one queue, as stories of held jobs: one job at a time in the order of arrival, a newer
// request of a pair replacing its waiting one, cancellation, and the hour's limit in virtual
// time.

#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <map>
#include <sstream>

#include "control/BackupQueue.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

// Plays a story of steps such as "submit A1" or "advance 3600", on jobs that note their start
// and end when released, or when stopped unless they are stubborn. A job's pair is the first
// letter of its name. The story is also the queue's watchdogs: it can cancel a pair the moment
// its job is taken up, before the job's task starts.
class Story final : public Scheduler {
  public:
    ~Story() override {
        release("");
        queue_.reset();
        tasks_.waitUntilIdle();
    }
    DelayedWork postDelayed(double seconds, Work work) override {
        if (cancelOnTakingUp_) queue_->cancel(*cancelOnTakingUp_);
        return timers_.postDelayed(seconds, std::move(work));
    }

    // Returns false, having failed the test, when a step can't be taken.
    bool play(const std::string& step) {
        std::istringstream words(step);
        std::string verb, name, stubborn;
        words >> verb >> name >> stubborn;
        const auto holds = [&](const std::function<bool()>& condition) {
            std::unique_lock lock(mutex_);
            return changed_.wait_for(lock, std::chrono::seconds(20), condition);
        };
        if (verb == "submit") {
            outcomes_[name] = std::async(
                std::launch::async, [this, name, id = pair(name), isStubborn = !stubborn.empty()] {
                    return queue_->enqueue(id, [=, this](std::stop_token stop) {
                        std::unique_lock lock(mutex_);
                        started_ += name + " ";
                        stops_[name] = stop;
                        changed_.notify_all();
                        changed_.wait(lock, stop, [&] { return released_.contains(name); });
                        if (isStubborn)
                            changed_.wait(lock, [&] { return released_.contains(name); });
                    });
                });
        } else if (verb == "started") {
            return holds([&] { return stops_.contains(name); });
        } else if (verb == "waiting") {
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
            while (queue_->waitingJobs() != std::stoul(name)) {
                if (std::chrono::steady_clock::now() > deadline) return false;
                std::this_thread::yield();
            }
        } else if (verb == "ended") {
            return outcomes_.at(name).wait_for(std::chrono::seconds(20)) ==
                   std::future_status::ready;
        } else if (verb == "running" || verb == "stopped") {
            return holds([&] { return stops_.at(name).stop_requested() == (verb == "stopped"); });
        } else if (verb == "release") {
            release(name);
        } else if (verb == "cancel") {
            queue_->cancel(pair(name));
        } else if (verb == "cancelOnTakingUp") {
            cancelOnTakingUp_ = pair(name);
        } else if (verb == "advance") {
            timers_.advance(std::stod(name));
        } else {
            queue_.reset();
        }
        return true;
    }

    // Each job and how it ended, once every job was let go.
    std::string outcomes() {
        release("");
        std::string found;
        for (auto& [name, outcome] : outcomes_) {
            static constexpr const char* names[] = {"completed", "timedOut", "cancelled"};
            found += name + ":" + names[int(outcome.get())] + " ";
        }
        return found;
    }
    std::string started() {
        std::lock_guard lock(mutex_);
        return started_;
    }

  private:
    // One job, or every job ("").
    void release(const std::string& name) {
        std::lock_guard lock(mutex_);
        for (const auto& [each, outcome] : outcomes_) {
            if (name.empty() || each == name) released_.insert(each);
        }
        changed_.notify_all();
    }
    Uuid pair(const std::string& name) {
        return pairs_.try_emplace(name.substr(0, 1), Uuid::random()).first->second;
    }

    ManualClock clock_;
    VirtualMainQueue timers_{clock_};
    TaskRunner tasks_;
    std::unique_ptr<BackupQueue> queue_ = std::make_unique<BackupQueue>(*this, tasks_);
    std::optional<Uuid> cancelOnTakingUp_;
    std::map<std::string, Uuid> pairs_;
    std::map<std::string, std::future<BackupQueue::JobOutcome>> outcomes_;
    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::string started_;
    std::map<std::string, std::stop_token> stops_;
    std::set<std::string> released_;
};

TEST(BackupQueue, PlaysEachStoryToItsOutcomes) {
    const struct {
        const char* name;
        std::string steps;
        std::string started;
        std::string outcomes;
    } stories[] = {
        {"jobs run one at a time in the order of their arrival",
         "submit A, started A, submit C, waiting 1, submit B, waiting 2, release A, started C, "
         "release C, started B",
         "A C B ", "A:completed B:completed C:completed "},
        {"a newer request of a pair replaces its waiting one, whose caller is let go at once",
         "submit A, started A, submit B1, waiting 1, submit B2, ended B1, waiting 1, release A, "
         "started B2",
         "A B2 ", "A:completed B1:cancelled B2:completed "},
        {"a request of the running pair waits and runs after it, which is not touched",
         "submit A1, started A1, submit A2, waiting 1, running A1, release A1, started A2",
         "A1 A2 ", "A1:completed A2:completed "},
        {"a cancel drops the waiting job and stops the running one of its pair only",
         "submit A1, started A1, submit A2, waiting 1, cancel B, waiting 1, running A1, cancel A, "
         "stopped A1, ended A2",
         "A1 ", "A1:cancelled A2:cancelled "},
        {"a cancel as the job is taken up is not lost: the job never starts",
         "cancelOnTakingUp A, submit A, ended A", "", "A:cancelled "},
        {"a job is stopped at the hour and times out",
         "submit A, started A, advance 3599.9, running A, advance 0.1, stopped A", "A ",
         "A:timedOut "},
        {"a job that ignores its stop holds the queue as long as it runs",
         "submit A stubborn, started A, submit B, waiting 1, advance 10800, stopped A, waiting 1, "
         "release A, started B",
         "A B ", "A:timedOut B:completed "},
        {"the limit of a finished job never strikes the next",
         "submit A, started A, advance 3000, release A, ended A, submit B, started B, advance "
         "3000, running B",
         "A B ", "A:completed B:completed "},
        {"a cancel after the limit has the last word",
         "submit A stubborn, started A, advance 3600, cancel A", "A ", "A:cancelled "},
        {"a queue that goes lets every caller go",
         "submit A, started A, submit B, waiting 1, destroy", "A ", "A:cancelled B:cancelled "},
    };
    for (const auto& story : stories) {
        SCOPED_TRACE(story.name);
        Story played;
        std::istringstream steps(story.steps);
        for (std::string step; std::getline(steps >> std::ws, step, ',');)
            ASSERT_TRUE(played.play(step)) << step;
        EXPECT_EQ(played.outcomes(), story.outcomes);
        EXPECT_EQ(played.started(), story.started);
    }
}

}  // namespace
}  // namespace quillstow
