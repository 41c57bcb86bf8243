#pragma once

// A plain main run loop, for the program without a desktop. The thread that makes it is the
// main thread, and only it may call run(): posted work and delayed work run there, posted work
// first and delayed work in order of due time and then of posting, until quit(). Delayed work is
// timed by the monotonic clock.
//
// post, postDelayed and quit may be called from any thread.

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "support/MainQueue.hpp"

namespace quillstow {

class RunLoop final : public MainQueue {
  public:
    RunLoop();
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    void post(Work work) override;
    DelayedWork postDelayed(double seconds, Work work) override;
    bool isCurrent() const override;

    // Runs work until quit() is called.
    void run();
    // Ends run() once the work that runs now has returned; later work stays unrun.
    void quit();
    // Runs the work posted so far, and what it posts in turn, without waiting for delayed work:
    // at the end, so that what background tasks handed over isn't lost.
    void runPending();

  private:
    mutable std::mutex mutex_;
    std::condition_variable wakeUp_;
    std::deque<Work> immediate_;
    DelayedWorkList scheduled_;
    bool quitting_ = false;
    const std::thread::id mainThread_;
};

}  // namespace quillstow
