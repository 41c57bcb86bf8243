#include "support/VirtualMainQueue.hpp"

#include <chrono>

namespace quillstow {

VirtualMainQueue::VirtualMainQueue(ManualClock& clock)
    : clock_(clock), mainThread_(std::this_thread::get_id()) {}

void VirtualMainQueue::post(Work work) {
    {
        std::lock_guard lock(mutex_);
        immediate_.push_back(std::move(work));
        ++generation_;
    }
    posted_.notify_all();
}

DelayedWork VirtualMainQueue::postDelayed(double seconds, Work work) {
    auto [handle, flag] = makeHandle();
    {
        std::lock_guard lock(mutex_);
        const double due = clock_.now() + (seconds > 0 ? seconds : 0);
        scheduled_.emplace(std::pair{due, sequence_++}, Scheduled{std::move(work), flag});
        ++generation_;
    }
    posted_.notify_all();
    return handle;
}

bool VirtualMainQueue::isCurrent() const {
    return std::this_thread::get_id() == mainThread_;
}

bool VirtualMainQueue::runOneImmediate() {
    Work work;
    {
        std::lock_guard lock(mutex_);
        if (immediate_.empty()) return false;
        work = std::move(immediate_.front());
        immediate_.pop_front();
    }
    work();
    return true;
}

void VirtualMainQueue::runPending() {
    while (runOneImmediate()) {
    }
}

void VirtualMainQueue::advance(double seconds) {
    const double target = clock_.now() + seconds;
    for (;;) {
        runPending();
        Scheduled next;
        {
            std::lock_guard lock(mutex_);
            auto first = scheduled_.begin();
            if (first == scheduled_.end() || first->first.first > target) break;
            if (first->first.first > clock_.now()) clock_.set(first->first.first);
            next = std::move(first->second);
            scheduled_.erase(first);
        }
        if (!next.cancelled->load()) next.work();
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
    std::size_t count = 0;
    for (const auto& [key, scheduled] : scheduled_)
        count += !scheduled.cancelled->load();
    return count;
}

}  // namespace quillstow
