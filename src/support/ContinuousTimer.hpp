#pragma once

// Delayed work timed by the clock that counts through suspend (CLOCK_BOOTTIME), run on a thread
// of the timer's own: an hour's limit on a job is an hour of the user's time, also when the
// machine slept in between. The work should be short; it runs one at a time.
//
// postDelayed may be called from any thread. The destructor drops what has not run yet.

#include <mutex>
#include <thread>

#include "support/Scheduler.hpp"

namespace quillstow {

class ContinuousTimer final : public Scheduler {
  public:
    ContinuousTimer();
    ContinuousTimer(const ContinuousTimer&) = delete;
    ContinuousTimer& operator=(const ContinuousTimer&) = delete;
    ~ContinuousTimer() override;

    DelayedWork postDelayed(double seconds, Work work) override;

  private:
    void runTimers();
    void armLocked();

    int timer_ = -1;   // timerfd on CLOCK_BOOTTIME
    int wakeUp_ = -1;  // eventfd that ends the thread
    std::mutex mutex_;
    DelayedWorkList scheduled_;
    std::thread thread_;
};

}  // namespace quillstow
