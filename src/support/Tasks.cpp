#include "support/Tasks.hpp"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace quillstow {

namespace {

// From linux/ioprio.h, which not every C library exposes.
constexpr int ioprioWhoProcess = 1;
constexpr int ioprioClassBestEffort = 2;
constexpr int ioprioClassShift = 13;
constexpr int lowestBestEffortLevel = 7;
constexpr int utilityNice = 10;

}  // namespace

void lowerToUtilityPriority() {
    // On Linux both act on the calling thread when given its thread id.
    const pid_t thread = pid_t(::syscall(SYS_gettid));
    (void)::setpriority(PRIO_PROCESS, id_t(thread), utilityNice);
    (void)::syscall(SYS_ioprio_set, ioprioWhoProcess, thread,
                    ioprioClassBestEffort << ioprioClassShift | lowestBestEffortLevel);
}

void TaskHandle::cancel() const {
    if (state_) state_->stop.request_stop();
}

void TaskHandle::wait() const {
    if (!state_) return;
    std::unique_lock lock(state_->mutex);
    state_->ended.wait(lock, [&] { return state_->hasEnded; });
}

bool TaskHandle::isEnded() const {
    if (!state_) return true;
    std::lock_guard lock(state_->mutex);
    return state_->hasEnded;
}

TaskRunner::~TaskRunner() {
    waitUntilIdle();
}

TaskHandle TaskRunner::start(Body body) {
    auto state = std::make_shared<TaskHandle::State>();
    {
        std::lock_guard lock(mutex_);
        ++running_;
        std::erase_if(started_, [](const auto& task) { return task.expired(); });
        started_.push_back(state);
    }
    std::thread([this, state, body = std::move(body)]() mutable {
        lowerToUtilityPriority();
        {
            // Whatever the body holds goes before the runner may.
            const Body task = std::move(body);
            task(state->stop.get_token());
        }
        {
            std::lock_guard lock(state->mutex);
            state->hasEnded = true;
        }
        state->ended.notify_all();
        // The last touch of the runner: once the count is down it may go.
        std::lock_guard lock(mutex_);
        if (--running_ == 0) idle_.notify_all();
    }).detach();
    return TaskHandle(std::move(state));
}

void TaskRunner::cancelAll() {
    std::lock_guard lock(mutex_);
    for (const auto& task : started_)
        if (const auto state = task.lock()) state->stop.request_stop();
}

void startAbandonableTask(std::function<void()> body) {
    std::thread([body = std::move(body)] {
        lowerToUtilityPriority();
        body();
    }).detach();
}

void TaskRunner::waitUntilIdle() {
    std::unique_lock lock(mutex_);
    idle_.wait(lock, [&] { return running_ == 0; });
}

bool TaskRunner::waitUntilIdle(double seconds) {
    std::unique_lock lock(mutex_);
    return idle_.wait_for(lock, std::chrono::duration<double>(seconds),
                          [&] { return running_ == 0; });
}

}  // namespace quillstow
