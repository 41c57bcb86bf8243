#include "support/RunLoop.hpp"

#include <chrono>

#include "support/Clock.hpp"

namespace quillstow {

namespace {

const MonotonicClock monotonicClock;

}  // namespace

RunLoop::RunLoop() : mainThread_(std::this_thread::get_id()) {}

void RunLoop::post(Work work) {
    {
        std::lock_guard lock(mutex_);
        immediate_.push_back(std::move(work));
    }
    wakeUp_.notify_one();
}

DelayedWork RunLoop::postDelayed(double seconds, Work work) {
    auto [handle, flag] = makeHandle();
    {
        std::lock_guard lock(mutex_);
        const double due = monotonicClock.now() + (seconds > 0 ? seconds : 0);
        scheduled_.emplace(std::pair{due, sequence_++}, Scheduled{std::move(work), flag});
    }
    wakeUp_.notify_one();
    return handle;
}

bool RunLoop::isCurrent() const {
    return mainThread_ == std::this_thread::get_id();
}

void RunLoop::quit() {
    {
        std::lock_guard lock(mutex_);
        quitting_ = true;
    }
    wakeUp_.notify_one();
}

void RunLoop::runPending() {
    for (;;) {
        Work next;
        {
            std::lock_guard lock(mutex_);
            if (immediate_.empty()) return;
            next = std::move(immediate_.front());
            immediate_.pop_front();
        }
        next();
    }
}

void RunLoop::run() {
    std::unique_lock lock(mutex_);
    while (!quitting_) {
        Work next;
        if (!immediate_.empty()) {
            next = std::move(immediate_.front());
            immediate_.pop_front();
        } else if (!scheduled_.empty()) {
            const auto first = scheduled_.begin();
            const double wait = first->first.first - monotonicClock.now();
            if (wait > 0) {
                wakeUp_.wait_for(lock, std::chrono::duration<double>(wait));
                continue;
            }
            Scheduled due = std::move(first->second);
            scheduled_.erase(first);
            if (due.cancelled->load()) continue;
            next = std::move(due.work);
        } else {
            wakeUp_.wait(lock);
            continue;
        }
        lock.unlock();
        next();
        lock.lock();
    }
    quitting_ = false;
}

}  // namespace quillstow
