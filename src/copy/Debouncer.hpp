#pragma once

// Turns a stream of change signals into one action at a quiet moment: the action runs 2.0
// seconds after the last signal, or 10.0 seconds when more than 500 signals came within the
// last 5.0 seconds (an application writing many files at once). Each signal restarts the wait,
// and there is no upper bound on it.
//
// Main thread only: schedule and cancel stop the process when called elsewhere. A debouncer
// that goes away while an action waits never runs it.

#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include "support/Clock.hpp"
#include "support/MainQueue.hpp"

namespace quillstow {

class Debouncer {
  public:
    static constexpr double defaultDelay = 2.0;
    static constexpr double burstDelay = 10.0;
    static constexpr std::size_t burstThreshold = 500;
    static constexpr double burstWindow = 5.0;

    // `clock` is the one that times `queue`'s delayed work.
    Debouncer(MainQueue& queue, const Clock& clock);
    Debouncer(const Debouncer&) = delete;
    Debouncer& operator=(const Debouncer&) = delete;
    ~Debouncer();

    void schedule(std::function<void()> action);
    // Drops the pending action; the signals of the window are kept.
    void cancel();

  private:
    void requireMainThread() const;

    MainQueue& queue_;
    const Clock& clock_;
    std::optional<DelayedWork> workItem_;
    std::deque<double> eventTimestamps_;
    // What the work item reaches the debouncer through; gone with it.
    std::shared_ptr<Debouncer*> self_;
};

}  // namespace quillstow
