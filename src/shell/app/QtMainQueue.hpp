#pragma once

// The core's main queue on Qt's event loop: posted work runs through a queued call on the
// application object, delayed work on a single-shot timer of the main thread.
//
// post and postDelayed may be called from any thread; the work runs on the main thread.

#include "support/MainQueue.hpp"

namespace quillstow::shell {

class QtMainQueue final : public MainQueue {
  public:
    void post(Work work) override;
    DelayedWork postDelayed(double seconds, Work work) override;
    bool isCurrent() const override;
};

}  // namespace quillstow::shell
