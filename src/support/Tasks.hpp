#pragma once

// Background tasks: a run, a probe, a filing. Each is a thread of its own at utility priority
// (nice 10, best-effort I/O at its lowest level), so that a backup never competes with the
// user. A task's stop token is its cancellation, which it polls between items and chunks.
//
// A TaskRunner keeps count of its tasks and waits for all of them when it goes, so nothing a
// task refers to is destroyed under it. Declare it after what its tasks use.
//
// Any thread may start, cancel and wait.

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <vector>

namespace quillstow {

class TaskHandle {
  public:
    TaskHandle() = default;

    // Asks the task to stop; it ends at its next test.
    void cancel() const;
    // Blocks until the task has ended; at once for an empty handle.
    void wait() const;
    bool isEnded() const;
    explicit operator bool() const { return bool(state_); }

  private:
    friend class TaskRunner;
    struct State {
        std::stop_source stop;
        mutable std::mutex mutex;
        mutable std::condition_variable ended;
        bool hasEnded = false;
    };
    explicit TaskHandle(std::shared_ptr<State> state) : state_(std::move(state)) {}

    std::shared_ptr<State> state_;
};

class TaskRunner {
  public:
    using Body = std::function<void(std::stop_token)>;

    TaskRunner() = default;
    TaskRunner(const TaskRunner&) = delete;
    TaskRunner& operator=(const TaskRunner&) = delete;
    ~TaskRunner();

    TaskHandle start(Body body);
    // Asks every task started here that is still running to stop, as a program that quits does.
    void cancelAll();

    // Blocks until every task started here has ended.
    void waitUntilIdle();
    // The same, for at most `seconds`; answers whether every task has ended.
    bool waitUntilIdle(double seconds);

  private:
    std::mutex mutex_;
    std::condition_variable idle_;
    int running_ = 0;
    std::vector<std::weak_ptr<TaskHandle::State>> started_;  // pruned as tasks end
};

// Starts a task that no one waits for, not even the program's quit: for a look at a disk that
// may hang in the kernel for ever, such as a stat on a network share whose server is gone. The
// body must own, or hold shared, everything it uses; it may run on after its starter is gone.
void startAbandonableTask(std::function<void()> body);

// Lowers the calling thread to utility priority. Failures are ignored: a task then runs at the
// priority it has.
void lowerToUtilityPriority();

}  // namespace quillstow
