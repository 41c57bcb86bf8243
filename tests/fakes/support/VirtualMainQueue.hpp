#pragma once

// A main queue in virtual time. The thread that makes it is the main thread; work posted from
// any thread waits until that thread calls runPending() or advance(). advance(seconds) runs,
// in order of their due time and then of posting, everything that falls due, moving the clock
// to each due time as it goes.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "support/MainQueue.hpp"
#include "support/ManualClocks.hpp"

namespace quillstow {

class VirtualMainQueue final : public MainQueue {
  public:
    explicit VirtualMainQueue(ManualClock& clock);
    VirtualMainQueue(const VirtualMainQueue&) = delete;
    VirtualMainQueue& operator=(const VirtualMainQueue&) = delete;

    void post(Work work) override;
    DelayedWork postDelayed(double seconds, Work work) override;
    bool isCurrent() const override { return std::this_thread::get_id() == mainThread_; }

    // Runs posted work, and work it posts in turn, without moving time.
    void runPending();

    // Moves time forward by `seconds`, running what falls due on the way.
    void advance(double seconds);

    // Blocks until some thread posts work (or it is already there), at most `timeout` real
    // seconds; for tests that wait on a background task's hop to the main thread.
    bool waitForPosted(double timeout);

    // Runs posted work until `condition` holds, waiting for background threads to post more,
    // without moving time. Gives up after `timeout` real seconds without anything new and
    // answers whether the condition holds.
    bool runUntil(const std::function<bool()>& condition, double timeout = 20.0);

    // Delayed work not yet run nor cancelled.
    std::size_t scheduledCount() const;

  private:
    ManualClock& clock_;
    const std::thread::id mainThread_;
    mutable std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<Work> immediate_;
    DelayedWorkList scheduled_;
    // Grows with every post, immediate or delayed.
    std::uint64_t generation_ = 0;
};

}  // namespace quillstow
