#pragma once

// The free space of the volume that holds a path, and which volume that is. Any thread.

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>

namespace quillstow::volumes {

// What an ordinary user may still write there (f_bavail, not the blocks kept for root);
// nothing when the path can't be reached.
std::optional<std::int64_t> availableCapacity(const std::filesystem::path& path);

// The device of the file system that holds the path, links followed; equal for two paths on one
// volume within one session of the machine. Nothing when it can't be read.
std::optional<dev_t> volumeIdentifier(const std::filesystem::path& path);

}  // namespace quillstow::volumes
