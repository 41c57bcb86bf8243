#pragma once

// Byte counts for people, in the file style with decimal units: "Zero KB", "1 byte",
// "999 bytes", "12 KB", "1.3 MB", "1.23 GB". KB are whole, MB carry one decimal, larger units
// two, and trailing zeros are dropped.

#include <cstdint>
#include <string>

namespace quillstow {

std::string formatByteCount(std::int64_t bytes);

}  // namespace quillstow
