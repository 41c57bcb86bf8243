#pragma once

// Injected clocks. Wall time names dates; a monotonic clock measures throttles and durations; a
// continuous clock, which also counts while the machine sleeps, measures job time limits.
// Every clock may be read from any thread.

#include <atomic>
#include <mutex>

#include "support/Dates.hpp"

namespace quillstow {

// Seconds on a timeline that never goes back. Only differences mean anything.
class Clock {
  public:
    virtual ~Clock() = default;
    virtual double now() const = 0;
};

class WallClock {
  public:
    virtual ~WallClock() = default;
    virtual Date now() const = 0;
};

// CLOCK_MONOTONIC: stands still while the machine sleeps.
class MonotonicClock final : public Clock {
  public:
    double now() const override;
};

// CLOCK_BOOTTIME: goes on through suspend.
class ContinuousClock final : public Clock {
  public:
    double now() const override;
};

class SystemWallClock final : public WallClock {
  public:
    Date now() const override;
};

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
