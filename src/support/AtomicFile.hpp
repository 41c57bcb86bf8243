#pragma once

// The one discipline for every file this program reads back: the bytes go to a temporary file
// in the same folder, are flushed, and are renamed over the old file, so that a reader (or a
// restart after a power cut) sees the old file or the whole new one.

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quillstow::atomicfile {

// Every temporary file of this program begins so; a walk of a mirror knows it for a leftover.
inline constexpr std::string_view temporaryPrefix = ".quillstowtmp-";

// The longest name a folder entry can have on the file systems we write to, in bytes.
inline constexpr std::size_t maximumNameLength = 255;

// ".quillstowtmp-{8 random hexadecimal digits}-{name}": a name only this program makes, so a
// sweep that removes such names never removes a user's file. A name too long to fit keeps its
// head and gets a digest of the whole in place of its tail.
std::string temporaryName(std::string_view name);

// Whether `name` has the shape temporaryName gives: the prefix, eight upper-case hexadecimal
// digits, a hyphen and at least one more character.
bool isTemporaryName(std::string_view name);

// `name` itself when `prefix` + `name` fits in a folder entry; otherwise its head, cut at a
// character boundary, then "~" and sixteen hexadecimal digits of a digest of the whole name, so
// two long names that share their head still get two different names.
std::string fittedName(std::string_view prefix, std::string_view name);

// Throws Failure with the POSIX error of the step that failed; the old file is then untouched
// and no temporary file is left.
void write(const std::filesystem::path& path, std::string_view bytes);

// The whole content; throws Failure when the file can't be read.
std::string read(const std::filesystem::path& path);

}  // namespace quillstow::atomicfile
