#pragma once

// The words after a finished pass: the completion message and the rotating tip.

#include <cstdint>
#include <optional>
#include <string>

#include "support/UserDefaults.hpp"

namespace quillstow {

inline constexpr const char* tipCounterKey = "Quillstow.tipCounter";

// "Everything's up to date." or "{n} file(s) backed up.", then the tip after one blank.
std::string completionMessage(int fileCount, const std::optional<std::string>& tip);

// The tip of the rotation at `counter`: one on every third value, beginning with 0. The list
// depends on what the pass did, so its length changes from pass to pass: the rotation follows
// the counter, not the list.
std::optional<std::string> tipAt(std::int64_t counter, int filesCopied, bool movedLargeFiles,
                                 bool sampleChecked, bool wasThrottled);

// tipAt the counter in the user defaults, which it advances on every call.
std::optional<std::string> nextTip(UserDefaults& defaults, int filesCopied, bool movedLargeFiles,
                                   bool sampleChecked, bool wasThrottled);

}  // namespace quillstow
