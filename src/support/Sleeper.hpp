#pragma once

// Sleeps of background tasks that a stop request cuts short. Tests replace the sleeper, so that
// no test waits for a clock. Any thread may sleep.

#include <stop_token>

namespace quillstow {

class Sleeper {
  public:
    virtual ~Sleeper() = default;
    // Returns early when a stop is requested.
    virtual void sleep(double seconds, std::stop_token stop) const;
};

}  // namespace quillstow
