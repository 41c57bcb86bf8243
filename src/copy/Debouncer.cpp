#include "copy/Debouncer.hpp"

#include <cstdio>
#include <cstdlib>

namespace quillstow {

Debouncer::Debouncer(MainQueue& queue, const Clock& clock)
    : queue_(queue), clock_(clock), self_(std::make_shared<Debouncer*>(this)) {}

Debouncer::~Debouncer() {
    if (workItem_) workItem_->cancel();
}

void Debouncer::requireMainThread() const {
    if (!queue_.isCurrent()) {
        std::fputs("Debouncer used off the main thread\n", stderr);
        std::abort();
    }
}

void Debouncer::schedule(std::function<void()> action) {
    requireMainThread();
    const double now = clock_.now();
    eventTimestamps_.push_back(now);
    while (!eventTimestamps_.empty() && eventTimestamps_.front() < now - burstWindow) {
        eventTimestamps_.pop_front();
    }
    if (workItem_) workItem_->cancel();
    const double delay = eventTimestamps_.size() > burstThreshold ? burstDelay : defaultDelay;

    std::weak_ptr<Debouncer*> weak = self_;
    workItem_ = queue_.postDelayed(delay, [weak, action = std::move(action)] {
        const auto self = weak.lock();
        if (!self) return;
        const auto& pending = (*self)->workItem_;
        if (!pending || pending->isCancelled()) return;
        action();
    });
}

void Debouncer::cancel() {
    requireMainThread();
    if (workItem_) workItem_->cancel();
    workItem_.reset();
}

}  // namespace quillstow
