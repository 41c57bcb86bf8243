#pragma once

// Names sorted the way a file manager shows them: digits by their value ("Disk 2" before
// "Disk 10"), case ignored, accents counted. ICU collation with numeric ordering at secondary
// strength. And text made ready for a search that ignores case. Any thread.

#include <string>
#include <string_view>

namespace quillstow::text {

// Negative, zero or positive, as `a` sorts before, with or after `b`. UTF-8 in both.
int compareInFinderOrder(std::string_view a, std::string_view b);

inline bool isBeforeInFinderOrder(std::string_view a, std::string_view b) {
    return compareInFinderOrder(a, b) < 0;
}

// `utf8` lower-cased in every script ("Été" gives "été"), and composed, since names on disk may
// hold an accent as a letter of its own while typed text holds it joined.
std::string lowercasedForSearch(std::string_view utf8);

}  // namespace quillstow::text
