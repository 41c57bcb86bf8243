#pragma once

// How long the user has left the machine alone, from the first source that answers: the GNOME
// idle monitor, the screensaver service of the session, the X11 screensaver extension. None
// answering means a very large idle time. A reading is kept for a second, since each one is a
// round trip to another process and the copy loops ask at every file and chunk.

#include <functional>
#include <mutex>
#include <optional>
#include <vector>

#include "environment/Readings.hpp"
#include "support/Clock.hpp"

namespace quillstow {

class LinuxUserActivity final : public UserActivity {
  public:
    // Seconds idle, or nothing when the source can't tell.
    using IdleSource = std::function<std::optional<double>()>;

    // The sources of this session.
    LinuxUserActivity();
    // For tests: sources in order, and the clock that ages a reading.
    LinuxUserActivity(std::vector<IdleSource> sources, const Clock& clock);

    double secondsSinceLastUserInput() const override;

    static constexpr double readingLifetime = 1.0;

  private:
    std::vector<IdleSource> sources_;
    const Clock& clock_;
    mutable std::mutex mutex_;
    mutable std::optional<double> readAt_;
    mutable double idleAtRead_ = 0;
};

}  // namespace quillstow
