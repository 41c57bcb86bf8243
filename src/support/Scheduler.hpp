#pragma once

// Delayed work: the main queue runs it on the main thread, a ContinuousTimer on a thread of its
// own and by a clock that counts through suspend. Tests use VirtualMainQueue for both, so that
// an hour of waiting takes no time.
//
// postDelayed may be called from any thread.

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

namespace quillstow {

// A handle to delayed work. Cancelling it before it runs means it never runs; cancelling later
// does nothing. Any thread may cancel.
class DelayedWork {
  public:
    DelayedWork() = default;

    void cancel() const {
        if (cancelled_) cancelled_->store(true);
    }
    bool isCancelled() const { return cancelled_ && cancelled_->load(); }

  private:
    friend class Scheduler;
    explicit DelayedWork(std::shared_ptr<std::atomic<bool>> flag) : cancelled_(std::move(flag)) {}

    std::shared_ptr<std::atomic<bool>> cancelled_;
};

class Scheduler {
  public:
    using Work = std::function<void()>;

    virtual ~Scheduler() = default;

    virtual DelayedWork postDelayed(double seconds, Work work) = 0;

  protected:
    // Implementations make handles here and test the flag before running the work.
    static std::pair<DelayedWork, std::shared_ptr<std::atomic<bool>>> makeHandle() {
        auto flag = std::make_shared<std::atomic<bool>>(false);
        return {DelayedWork(flag), flag};
    }
};

}  // namespace quillstow
