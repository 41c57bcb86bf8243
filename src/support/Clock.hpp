#pragma once

// Injected clocks. Wall time names dates; a monotonic clock measures throttles and durations; a
// continuous clock, which also counts while the machine sleeps, measures job time limits.
// Every clock may be read from any thread.

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

}  // namespace quillstow
