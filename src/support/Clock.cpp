#include "support/Clock.hpp"

#include <time.h>

namespace quillstow {

namespace {

double readClock(clockid_t id) {
    timespec time{};
    clock_gettime(id, &time);
    return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
}

}  // namespace

double MonotonicClock::now() const {
    return readClock(CLOCK_MONOTONIC);
}

double ContinuousClock::now() const {
    return readClock(CLOCK_BOOTTIME);
}

Date SystemWallClock::now() const {
    return std::chrono::time_point_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now());
}

}  // namespace quillstow
