#pragma once

// Destinations reachable as the test says, or, once the test hands in removable-media roots of
// its own, as the real mount table says. Set up before any engine runs; `reachable` may change
// on any thread.

#include <atomic>
#include <string>
#include <vector>

#include "environment/Volumes.hpp"

namespace quillstow::testing {

class FakeVolumes final : public Volumes {
  public:
    bool isDestinationReachable(const std::filesystem::path& url) const override {
        return byMounts_ ? Volumes::isDestinationReachable(url) : reachable.load();
    }
    void judgeByMounts(std::vector<std::string> roots) {
        roots_ = std::move(roots);
        byMounts_ = true;
    }
    std::atomic<bool> reachable{true};

  private:
    bool byMounts_ = false;
};

}  // namespace quillstow::testing
