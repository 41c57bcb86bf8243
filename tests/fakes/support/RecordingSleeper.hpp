#pragma once

// A sleeper that never sleeps and keeps every pause it was asked for, in order. One thread.

#include <stop_token>
#include <vector>

#include "support/Sleeper.hpp"

namespace quillstow::testing {

class RecordingSleeper final : public Sleeper {
  public:
    void sleep(double seconds, std::stop_token) const override { slept.push_back(seconds); }
    mutable std::vector<double> slept;
};

}  // namespace quillstow::testing
