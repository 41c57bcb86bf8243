#pragma once

// A depth-first walk of a folder that never follows a symbolic link and visits hidden entries
// like any other, at any depth: paths longer than PATH_MAX too. Entries come in the order the file
// system lists them; a folder is visited before what it holds. A folder below the root that can't
// be read whole is passed over, and told to `onUnreadable` where the caller gives one: a listing
// that lacks a folder's items must not be taken for one in which they are gone.

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "support/FileInfo.hpp"

namespace quillstow {

struct WalkEntry {
    // Below the root, components joined by "/".
    const std::string& relativePath;
    std::string_view name;
    const FileInfo& info;
    // The open folder that holds the entry, for calls relative to it during the visit.
    int folder;
};

enum class WalkDetail {
    metadata,  // every field of FileInfo, one stat per entry
    typeOnly,  // only FileInfo::type, from the listing itself where the file system gives it
};

// Calls `visit` for every entry below `root`; for a folder, its answer says whether to go in.
// Returns false when the root itself can't be opened.
bool walkTree(const std::filesystem::path& root, WalkDetail detail,
              const std::function<bool(const WalkEntry&)>& visit);

// The same, telling every folder that couldn't be read whole, with the error; the root is "".
using OnUnreadableFolder = std::function<void(const std::string& relativePath, int error)>;
bool walkTree(const std::filesystem::path& root, WalkDetail detail,
              const std::function<bool(const WalkEntry&)>& visit,
              const OnUnreadableFolder& onUnreadable);

}  // namespace quillstow
