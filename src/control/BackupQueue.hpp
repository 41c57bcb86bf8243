#pragma once

// At most one backup job runs at a time in the whole program, however many pairs want one, and
// each job has a time limit of an hour, measured on a clock that counts through suspend, so a
// pass that hangs on a dead share can't hold up every other pair.
//
// A newer request of a pair replaces its waiting one; jobs run in the order of their arrival.
// The work must test its stop token itself: the queue can't stop it by force, and a job that
// ignores its cancellation blocks the queue until it ends, then reports timedOut all the same.
//
// A monitor: enqueue and cancel may be called from any task; enqueue blocks its caller until the
// job has ended or was dropped. The jobs run on tasks of their own, one after the other.

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>

#include "support/Logger.hpp"
#include "support/Scheduler.hpp"
#include "support/Tasks.hpp"
#include "support/Uuid.hpp"

namespace quillstow {

class BackupQueue {
  public:
    enum class JobOutcome { completed, timedOut, cancelled };
    using Work = std::function<void(std::stop_token)>;

    static constexpr double timeLimit = 3600.0;

    // `watchdogs` times the limit (a ContinuousTimer in the app); `tasks` runs the jobs.
    BackupQueue(Scheduler& watchdogs, TaskRunner& tasks);
    BackupQueue(const BackupQueue&) = delete;
    BackupQueue& operator=(const BackupQueue&) = delete;
    // Drops what waits and cancels what runs; returns once the drain loop has ended.
    ~BackupQueue();

    JobOutcome enqueue(const Uuid& pairId, Work work);
    void cancel(const Uuid& pairId);

    // Jobs that wait for their turn, the running one not counted.
    std::size_t waitingJobs() const;

  private:
    struct Entry;
    struct State;

    static void drain(const std::shared_ptr<State>& state);
    static JobOutcome run(const std::shared_ptr<State>& state, Entry& entry);
    static void timeLimitReached(const std::shared_ptr<State>& state, const Uuid& pairId);

    std::shared_ptr<State> state_;
};

}  // namespace quillstow
