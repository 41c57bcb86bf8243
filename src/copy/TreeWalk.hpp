#pragma once

// A depth-first walk of a folder that never follows a symbolic link and visits hidden entries
// like any other. Entries come in the order the file system lists them; a folder is visited
// before what it holds. A folder that can't be opened is passed over in silence.

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "copy/FileInfo.hpp"

namespace quillstow {

struct WalkEntry {
    // Below the root, components joined by "/".
    const std::string& relativePath;
    std::string_view name;
    const FileInfo& info;
};

enum class WalkDetail {
    metadata,  // every field of FileInfo, one stat per entry
    typeOnly,  // only FileInfo::type, from the listing itself where the file system gives it
};

// Calls `visit` for every entry below `root`; for a folder, its answer says whether to go in.
// Returns false when the root itself can't be opened.
bool walkTree(const std::filesystem::path& root, WalkDetail detail,
              const std::function<bool(const WalkEntry&)>& visit);

}  // namespace quillstow
