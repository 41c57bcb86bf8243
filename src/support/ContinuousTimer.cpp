#include "support/ContinuousTimer.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cmath>
#include <stdexcept>

#include "support/Clock.hpp"

namespace quillstow {

namespace {

const ContinuousClock continuousClock;

timespec timespecOf(double seconds) {
    timespec time{};
    time.tv_sec = time_t(std::floor(seconds));
    time.tv_nsec = long((seconds - std::floor(seconds)) * 1e9);
    if (time.tv_sec == 0 && time.tv_nsec == 0) time.tv_nsec = 1;  // zero would disarm
    return time;
}

}  // namespace

ContinuousTimer::ContinuousTimer()
    : timer_(::timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK)),
      wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (timer_ < 0 || wakeUp_ < 0) throw std::runtime_error("no timer for the continuous clock");
    thread_ = std::thread([this] { runTimers(); });
}

ContinuousTimer::~ContinuousTimer() {
    const std::uint64_t one = 1;
    (void)::write(wakeUp_, &one, sizeof one);
    thread_.join();
    ::close(timer_);
    ::close(wakeUp_);
}

DelayedWork ContinuousTimer::postDelayed(double seconds, Work work) {
    std::lock_guard lock(mutex_);
    DelayedWork handle =
        scheduled_.add(continuousClock.now() + (seconds > 0 ? seconds : 0), std::move(work));
    armLocked();
    return handle;
}

void ContinuousTimer::armLocked() {
    itimerspec setting{};
    if (const auto due = scheduled_.nextDue()) setting.it_value = timespecOf(*due);
    (void)::timerfd_settime(timer_, TFD_TIMER_ABSTIME, &setting, nullptr);
}

void ContinuousTimer::runTimers() {
    pollfd watched[2] = {{timer_, POLLIN, 0}, {wakeUp_, POLLIN, 0}};
    for (;;) {
        if (::poll(watched, 2, -1) < 0) continue;
        if (watched[1].revents & POLLIN) return;
        std::uint64_t expirations = 0;
        (void)::read(timer_, &expirations, sizeof expirations);
        for (;;) {
            std::optional<DelayedWorkList::Due> due;
            {
                std::lock_guard lock(mutex_);
                due = scheduled_.takeDue(continuousClock.now());
                if (!due) {
                    armLocked();
                    break;
                }
            }
            due->run();
        }
    }
}

}  // namespace quillstow
