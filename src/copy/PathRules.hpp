#pragma once

// The guards of a pass: the rules on the two paths before anything is touched, and the checks
// during the copy loop that the two top folders are still there. A mirror that writes to the
// wrong place destroys more than it saves, and a vanished drive must not read as deletions.

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

#include "model/Results.hpp"

namespace quillstow {

// Folders a mirror may never be written into: the system's own, on every platform it serves.
const std::vector<std::string_view>& protectedPaths();

// Raises FileOperationFailure at the first rule that fails, in this order: the same folder
// (1100), the destination inside the source (1101), the source inside the destination (1102), a
// protected folder (1103), the home folder itself (1104), the root (1105). Paths are compared as
// text, with case, after removing "." and ".."; links are not resolved.
void validatePaths(const std::filesystem::path& source, const std::filesystem::path& destination);

// The folder a user chose for a pair's mirror: the root of the file system is refused (1105),
// since the mirror below it would fill the system disk.
void validateLocation(const std::filesystem::path& location);

// 1006: the source's volume has gone during the pass.
FileOperationError sourceVolumeLost(const std::filesystem::path& source);

// 1007: the mirror's volume has gone during the pass.
FileOperationError destinationVolumeLost(const std::filesystem::path& destination);

// The source check before the archive phase: 1006 with the operation "archive".
std::optional<FileOperationError> checkSourceBeforeArchival(const std::filesystem::path& source);

// The folders the home rule holds against: the user's home from the user database, and $HOME
// where it names another.
std::vector<std::filesystem::path> homeFolders();

}  // namespace quillstow
