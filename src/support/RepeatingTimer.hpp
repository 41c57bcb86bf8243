#pragma once

// A timer that ticks every `interval` seconds on a scheduler's thread until it is invalidated
// or goes away. The first tick comes one interval after the start.
//
// Start and invalidate on the scheduler's thread.

#include <functional>
#include <memory>

#include "support/Scheduler.hpp"

namespace quillstow {

class RepeatingTimer {
  public:
    RepeatingTimer(Scheduler& scheduler, double interval, std::function<void()> tick);
    RepeatingTimer(const RepeatingTimer&) = delete;
    RepeatingTimer& operator=(const RepeatingTimer&) = delete;
    ~RepeatingTimer();

    void invalidate();
    double interval() const { return interval_; }

  private:
    struct State {
        Scheduler& scheduler;
        double interval;
        std::function<void()> tick;
        DelayedWork next;
        bool isValid = true;
    };
    static void scheduleNext(const std::shared_ptr<State>& state);

    double interval_;
    std::shared_ptr<State> state_;
};

}  // namespace quillstow
