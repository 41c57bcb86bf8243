#pragma once

// A reconnect trigger that the test fires by hand, on the thread it likes.

#include "environment/VolumeReconnector.hpp"

namespace quillstow::testing {

class FakeTrigger final : public ReconnectTrigger {
  public:
    void start(Fire fire) override { fire_ = std::move(fire); }
    void stop() override { fire_ = nullptr; }
    void fire() const {
        if (fire_) fire_();
    }

  private:
    Fire fire_;
};

}  // namespace quillstow::testing
