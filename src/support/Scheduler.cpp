#include "support/Scheduler.hpp"

namespace quillstow {

DelayedWork DelayedWorkList::add(double due, Scheduler::Work work) {
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    entries_.emplace(std::pair{due, sequence_++}, Entry{std::move(work), cancelled});
    return DelayedWork(std::move(cancelled));
}

std::optional<double> DelayedWorkList::nextDue() {
    while (!entries_.empty() && entries_.begin()->second.cancelled->load()) {
        entries_.erase(entries_.begin());
    }
    if (entries_.empty()) return std::nullopt;
    return entries_.begin()->first.first;
}

std::optional<DelayedWorkList::Due> DelayedWorkList::takeDue(double time) {
    const auto due = nextDue();
    if (!due || *due > time) return std::nullopt;
    Entry entry = std::move(entries_.begin()->second);
    entries_.erase(entries_.begin());
    return Due(std::move(entry.work), std::move(entry.cancelled));
}

std::size_t DelayedWorkList::pendingCount() const {
    std::size_t count = 0;
    for (const auto& [key, entry] : entries_)
        count += !entry.cancelled->load();
    return count;
}

}  // namespace quillstow
