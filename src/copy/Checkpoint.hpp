#pragma once

// The marker of a pass under way: ".quillstow-checkpoint.json" in the mirror, written once the
// checks have passed and removed on every way out. If it is still there afterwards, a pass
// stopped without finishing. Nothing reads it back; the change test is what makes the next
// pass cheap.

#include <filesystem>

#include "support/Dates.hpp"

namespace quillstow {

inline constexpr const char* checkpointFileName = ".quillstow-checkpoint.json";

// {"phase":"copying","startTime":"2026-03-01T09:30:00Z"}, written atomically over any
// leftover. Never raises: a pass goes on without its marker.
void writeCheckpoint(const std::filesystem::path& file, Date start);

// Removes the marker when it goes, on every way out of a pass.
class CheckpointGuard {
  public:
    CheckpointGuard(std::filesystem::path destination, Date start);
    CheckpointGuard(const CheckpointGuard&) = delete;
    CheckpointGuard& operator=(const CheckpointGuard&) = delete;
    ~CheckpointGuard();

  private:
    std::filesystem::path file_;
};

}  // namespace quillstow
