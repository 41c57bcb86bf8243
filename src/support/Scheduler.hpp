#pragma once

// Delayed work: the main queue runs it on the main thread, a ContinuousTimer on a thread of its
// own and by a clock that counts through suspend. Tests use VirtualMainQueue for both, so that
// an hour of waiting takes no time.
//
// postDelayed may be called from any thread.

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
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
    friend class DelayedWorkList;
    explicit DelayedWork(std::shared_ptr<std::atomic<bool>> flag) : cancelled_(std::move(flag)) {}

    std::shared_ptr<std::atomic<bool>> cancelled_;
};

class Scheduler {
  public:
    using Work = std::function<void()>;

    virtual ~Scheduler() = default;

    virtual DelayedWork postDelayed(double seconds, Work work) = 0;
};

// The delayed work a scheduler holds, in order of due time and then of posting. Not locked: its
// owner guards it.
class DelayedWorkList {
  public:
    // Work taken out of the list; run outside the owner's lock.
    class Due {
      public:
        // Runs the work unless it was cancelled in the meantime.
        void run() const {
            if (!cancelled_->load()) work_();
        }

      private:
        friend class DelayedWorkList;
        Due(Scheduler::Work work, std::shared_ptr<std::atomic<bool>> cancelled)
            : work_(std::move(work)), cancelled_(std::move(cancelled)) {}
        Scheduler::Work work_;
        std::shared_ptr<std::atomic<bool>> cancelled_;
    };

    DelayedWork add(double due, Scheduler::Work work);
    // The due time of the earliest work that isn't cancelled.
    std::optional<double> nextDue();
    // Takes the earliest work if it is due by `time`.
    std::optional<Due> takeDue(double time);
    // Work not yet run nor cancelled.
    std::size_t pendingCount() const;

  private:
    struct Entry {
        Scheduler::Work work;
        std::shared_ptr<std::atomic<bool>> cancelled;
    };
    std::map<std::pair<double, std::uint64_t>, Entry> entries_;
    std::uint64_t sequence_ = 0;
};

}  // namespace quillstow
