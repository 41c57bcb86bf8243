#include "support/RepeatingTimer.hpp"

namespace quillstow {

RepeatingTimer::RepeatingTimer(Scheduler& scheduler, double interval, std::function<void()> tick)
    : interval_(interval),
      state_(std::make_shared<State>(State{scheduler, interval, std::move(tick), {}, true})) {
    scheduleNext(state_);
}

RepeatingTimer::~RepeatingTimer() {
    invalidate();
}

void RepeatingTimer::invalidate() {
    state_->isValid = false;
    state_->next.cancel();
}

void RepeatingTimer::scheduleNext(const std::shared_ptr<State>& state) {
    std::weak_ptr<State> weak = state;
    state->next = state->scheduler.postDelayed(state->interval, [weak] {
        const auto held = weak.lock();
        if (!held || !held->isValid) return;
        // The next tick is due before this one runs, so a slow tick doesn't stretch the period.
        scheduleNext(held);
        held->tick();
    });
}

}  // namespace quillstow
