#pragma once

// The one discipline for every file this program reads back: the bytes go to a temporary file
// in the same folder, are flushed, and are renamed over the old file, so that a reader (or a
// restart after a power cut) sees the old file or the whole new one.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quillstow::atomicfile {

// Every temporary file of this program begins so; a walk of a mirror knows it for a leftover.
inline constexpr std::string_view temporaryPrefix = ".quillstowtmp-";

// Throws Failure with the POSIX error of the step that failed; the old file is then untouched
// and no temporary file is left.
void write(const std::filesystem::path& path, std::string_view bytes);

// The whole content; throws Failure when the file can't be read.
std::string read(const std::filesystem::path& path);

}  // namespace quillstow::atomicfile
