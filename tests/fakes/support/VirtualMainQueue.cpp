#include "support/VirtualMainQueue.hpp"

#include <chrono>

namespace quillstow {

VirtualMainQueue::VirtualMainQueue(ManualClock& clock)
    : clock_(clock), mainThread_(std::this_thread::get_id()) {}

void VirtualMainQueue::post(Work work) {
    std::lock_guard lock(mutex_);
    immediate_.push_back(std::move(work));
    ++generation_;
    posted_.notify_all();
}

DelayedWork VirtualMainQueue::postDelayed(double seconds, Work work) {
    std::lock_guard lock(mutex_);
    ++generation_;
    posted_.notify_all();
    return scheduled_.add(clock_.now() + (seconds > 0 ? seconds : 0), std::move(work));
}

void VirtualMainQueue::runPending() {
    for (;;) {
        Work work;
        {
            std::lock_guard lock(mutex_);
            if (immediate_.empty()) return;
            work = std::move(immediate_.front());
            immediate_.pop_front();
        }
        work();
    }
}

void VirtualMainQueue::advance(double seconds) {
    const double target = clock_.now() + seconds;
    for (;;) {
        runPending();
        std::optional<DelayedWorkList::Due> next;
        {
            std::lock_guard lock(mutex_);
            const auto due = scheduled_.nextDue();
            if (!due || *due > target) break;
            if (*due > clock_.now()) clock_.set(*due);
            next = scheduled_.takeDue(*due);
        }
        next->run();
    }
    clock_.set(target);
    runPending();
}

bool VirtualMainQueue::waitForPosted(double timeout) {
    std::unique_lock lock(mutex_);
    return posted_.wait_for(lock, std::chrono::duration<double>(timeout),
                            [this] { return !immediate_.empty(); });
}

bool VirtualMainQueue::runUntil(const std::function<bool()>& condition, double timeout) {
    for (;;) {
        std::uint64_t seen;
        {
            std::lock_guard lock(mutex_);
            seen = generation_;
        }
        runPending();
        if (condition()) return true;
        std::unique_lock lock(mutex_);
        if (!posted_.wait_for(lock, std::chrono::duration<double>(timeout),
                              [&] { return generation_ != seen; })) {
            lock.unlock();
            runPending();
            return condition();
        }
    }
}

std::size_t VirtualMainQueue::scheduledCount() const {
    std::lock_guard lock(mutex_);
    return scheduled_.pendingCount();
}

}  // namespace quillstow
