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
    DelayedWork handle;
    {
        std::lock_guard lock(mutex_);
        handle =
            scheduled_.add(monotonicClock.now() + (seconds > 0 ? seconds : 0), std::move(work));
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
        if (!immediate_.empty()) {
            Work next = std::move(immediate_.front());
            immediate_.pop_front();
            lock.unlock();
            next();
            lock.lock();
            continue;
        }
        const auto due = scheduled_.nextDue();
        if (!due) {
            wakeUp_.wait(lock);
            continue;
        }
        const double wait = *due - monotonicClock.now();
        if (wait > 0) {
            wakeUp_.wait_for(lock, std::chrono::duration<double>(wait));
            continue;
        }
        const auto next = scheduled_.takeDue(*due);
        lock.unlock();
        next->run();
        lock.lock();
    }
    quitting_ = false;
}

}  // namespace quillstow
