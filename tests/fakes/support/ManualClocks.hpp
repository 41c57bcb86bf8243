#pragma once

// Clocks that move only when a test says so: virtual time for the main queue, the throttles and
// the dates. Any thread may read them.

#include <atomic>
#include <mutex>

#include "support/Clock.hpp"

namespace quillstow {

// A clock that moves only when told to, for tests and virtual time.
class ManualClock final : public Clock {
  public:
    explicit ManualClock(double start = 1000.0) : seconds_(start) {}
    double now() const override { return seconds_.load(); }
    void advance(double seconds) { seconds_.store(seconds_.load() + seconds); }
    void set(double seconds) { seconds_.store(seconds); }

  private:
    std::atomic<double> seconds_;
};

class ManualWallClock final : public WallClock {
  public:
    explicit ManualWallClock(Date start) : now_(start) {}
    Date now() const override {
        std::lock_guard lock(mutex_);
        return now_;
    }
    void set(Date date) {
        std::lock_guard lock(mutex_);
        now_ = date;
    }

  private:
    mutable std::mutex mutex_;
    Date now_;
};

}  // namespace quillstow
