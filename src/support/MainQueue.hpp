#pragma once

// The main thread's run loop as the core sees it. In the app it is a RunLoop or the shell's
// event loop; in tests it is VirtualMainQueue, whose time moves only when the test says so.
//
// post and postDelayed may be called from any thread; the work always runs on the main thread.

#include "support/Scheduler.hpp"

namespace quillstow {

class MainQueue : public Scheduler {
  public:
    virtual void post(Work work) = 0;

    // Whether the caller runs on the main thread.
    virtual bool isCurrent() const = 0;
};

}  // namespace quillstow
