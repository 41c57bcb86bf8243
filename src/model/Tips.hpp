#pragma once

// The words after a finished pass: the completion message and the rotating tip.

#include <optional>
#include <string>

#include "support/UserDefaults.hpp"

namespace quillstow {

inline constexpr const char* tipCounterKey = "Quillstow.tipCounter";

// "Everything's up to date." or "{n} file(s) backed up.", then the tip after one blank.
std::string completionMessage(int fileCount, const std::optional<std::string>& tip);

// Advances the counter in the user defaults on every call; gives a tip on every third call,
// beginning with the first. The list depends on what the pass did, so its length changes from
// call to call: the rotation follows the counter, not the list.
std::optional<std::string> nextTip(UserDefaults& defaults, int filesCopied, bool movedLargeFiles,
                                   bool sampleChecked, bool wasThrottled);

}  // namespace quillstow
