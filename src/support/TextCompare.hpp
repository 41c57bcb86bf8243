#pragma once

// Names sorted the way a file manager shows them: digits by their value ("Disk 2" before
// "Disk 10"), case ignored, accents counted. ICU collation with numeric ordering at secondary
// strength. Any thread.

#include <string_view>

namespace quillstow::text {

// Negative, zero or positive, as `a` sorts before, with or after `b`. UTF-8 in both.
int compareInFinderOrder(std::string_view a, std::string_view b);

inline bool isBeforeInFinderOrder(std::string_view a, std::string_view b) {
    return compareInFinderOrder(a, b) < 0;
}

}  // namespace quillstow::text
