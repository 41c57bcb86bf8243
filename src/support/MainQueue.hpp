#pragma once

// The main thread's run loop as the core sees it. In the app it is Qt's event loop; in tests it
// is VirtualMainQueue, whose time moves only when the test says so.
//
// post and postDelayed may be called from any thread; the work always runs on the main thread.

#include <atomic>
#include <functional>
#include <memory>

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
    friend class MainQueue;
    explicit DelayedWork(std::shared_ptr<std::atomic<bool>> flag) : cancelled_(std::move(flag)) {}

    std::shared_ptr<std::atomic<bool>> cancelled_;
};

class MainQueue {
  public:
    using Work = std::function<void()>;

    virtual ~MainQueue() = default;

    virtual void post(Work work) = 0;
    virtual DelayedWork postDelayed(double seconds, Work work) = 0;

    // Whether the caller runs on the main thread.
    virtual bool isCurrent() const = 0;

  protected:
    // Implementations make handles here and test the flag before running the work.
    static std::pair<DelayedWork, std::shared_ptr<std::atomic<bool>>> makeHandle() {
        auto flag = std::make_shared<std::atomic<bool>>(false);
        return {DelayedWork(flag), flag};
    }
};

}  // namespace quillstow
