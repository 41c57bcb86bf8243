#include "control/BackupQueue.hpp"

#include <condition_variable>
#include <future>

namespace quillstow {

struct BackupQueue::Entry {
    Uuid pairId;
    Work work;
    std::promise<JobOutcome> continuation;
};

struct BackupQueue::State {
    State(Scheduler& watchdogs, TaskRunner& tasks) : watchdogs(watchdogs), tasks(tasks) {}

    Scheduler& watchdogs;
    TaskRunner& tasks;
    const Logger log{"BackupEngine"};

    std::mutex mutex;
    std::deque<Entry> pending;
    bool isRunning = false;
    bool isClosing = false;
    std::optional<Uuid> currentPairId;
    TaskHandle runningTask;
    JobOutcome currentOutcome = JobOutcome::completed;
    TaskHandle drainTask;

    // Takes the first waiting entry of the pair out and resumes its caller with `cancelled`.
    void dropWaiting(const Uuid& pairId) {
        const auto found = std::find_if(pending.begin(), pending.end(),
                                        [&](const Entry& entry) { return entry.pairId == pairId; });
        if (found == pending.end()) return;
        found->continuation.set_value(JobOutcome::cancelled);
        pending.erase(found);
    }
};

BackupQueue::BackupQueue(Scheduler& watchdogs, TaskRunner& tasks)
    : state_(std::make_shared<State>(watchdogs, tasks)) {}

BackupQueue::~BackupQueue() {
    TaskHandle drainTask;
    {
        std::lock_guard lock(state_->mutex);
        state_->isClosing = true;
        while (!state_->pending.empty()) {
            state_->pending.front().continuation.set_value(JobOutcome::cancelled);
            state_->pending.pop_front();
        }
        if (state_->currentPairId) {
            state_->currentOutcome = JobOutcome::cancelled;
            state_->runningTask.cancel();
        }
        drainTask = state_->drainTask;
    }
    drainTask.wait();
}

BackupQueue::JobOutcome BackupQueue::enqueue(const Uuid& pairId, Work work) {
    std::future<JobOutcome> outcome;
    {
        std::lock_guard lock(state_->mutex);
        if (state_->isClosing) return JobOutcome::cancelled;
        // A newer request replaces an older one that hasn't started; a running job of the pair
        // is left alone.
        state_->dropWaiting(pairId);
        Entry entry{pairId, std::move(work), {}};
        outcome = entry.continuation.get_future();
        state_->pending.push_back(std::move(entry));
        if (!state_->isRunning) {
            state_->isRunning = true;
            state_->drainTask =
                state_->tasks.start([state = state_](std::stop_token) { drain(state); });
        }
    }
    return outcome.get();
}

void BackupQueue::cancel(const Uuid& pairId) {
    std::lock_guard lock(state_->mutex);
    state_->dropWaiting(pairId);
    if (state_->currentPairId == pairId) {
        state_->currentOutcome = JobOutcome::cancelled;
        state_->runningTask.cancel();
    }
}

std::size_t BackupQueue::waitingJobs() const {
    std::lock_guard lock(state_->mutex);
    return state_->pending.size();
}

void BackupQueue::drain(const std::shared_ptr<State>& state) {
    for (;;) {
        Entry entry;
        {
            std::lock_guard lock(state->mutex);
            if (state->pending.empty()) {
                state->isRunning = false;
                return;
            }
            entry = std::move(state->pending.front());
            state->pending.pop_front();
            // From here a cancel of the pair is kept in the outcome, even before the task starts.
            state->currentPairId = entry.pairId;
            state->currentOutcome = JobOutcome::completed;
        }
        const JobOutcome outcome = run(state, entry);
        {
            std::lock_guard lock(state->mutex);
            state->currentPairId.reset();
        }
        entry.continuation.set_value(outcome);
    }
}

BackupQueue::JobOutcome BackupQueue::run(const std::shared_ptr<State>& state, Entry& entry) {
    // The watchdog is set before the work starts, so the limit covers all of it.
    std::weak_ptr<State> weak = state;
    const DelayedWork watchdog =
        state->watchdogs.postDelayed(timeLimit, [weak, pairId = entry.pairId] {
            if (const auto held = weak.lock()) timeLimitReached(held, pairId);
        });
    TaskHandle job;
    {
        std::lock_guard lock(state->mutex);
        // Cancelled while it was being taken up: it never starts.
        if (state->currentOutcome == JobOutcome::completed) {
            job = state->tasks.start(std::move(entry.work));
            state->runningTask = job;
        }
    }
    job.wait();
    watchdog.cancel();
    std::lock_guard lock(state->mutex);
    state->runningTask = {};
    return state->currentOutcome;
}

void BackupQueue::timeLimitReached(const std::shared_ptr<State>& state, const Uuid& pairId) {
    std::lock_guard lock(state->mutex);
    // The job may have ended in the meantime.
    if (state->currentPairId != pairId) return;
    state->log.error(
        "Backup job for pair %{private,mask.hash}s exceeded the %s limit — cancelling.",
        pairId.text(), "3600.0 seconds");
    state->currentOutcome = JobOutcome::timedOut;
    state->runningTask.cancel();
}

}  // namespace quillstow
