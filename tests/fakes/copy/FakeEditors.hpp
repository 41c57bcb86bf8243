#pragma once

// The running editors and their open files as the test sets them; read on any thread.

#include <mutex>

#include "copy/RunningEditors.hpp"

namespace quillstow::testing {

class FakeEditors final : public RunningEditors {
  public:
    EditorSnapshot snapshot() const override {
        std::lock_guard lock(mutex_);
        return snapshot_;
    }
    void set(EditorSnapshot snapshot) {
        std::lock_guard lock(mutex_);
        snapshot_ = std::move(snapshot);
    }

  private:
    mutable std::mutex mutex_;
    EditorSnapshot snapshot_;
};

}  // namespace quillstow::testing
