#pragma once

// Reaching a chosen folder again after a restart. Linux has no security-scoped bookmarks, so a
// bookmark is our own small record of the folder: its path, the identity of its file system
// (the file system UUID, or the mount source of a network share), its path below the mount,
// its inode and its birth time. Resolving checks that the folder at the path is still the one
// that was chosen:
//
//   - the path still holds the recorded folder: the path, no new bytes;
//   - the path holds another folder (a drive that was formatted, a folder made anew): stale,
//     and refreshed in place with new bytes, since the user chose this path;
//   - nothing is at the path (renamed or moved while the program was closed): stale; the user
//     re-selects, so that a folder in a new place is never backed up silently;
//   - the folder is there but can't be read, or for a read-write bookmark written: access denied.
//
// A namespace of pure functions apart from the reads of the disk; any thread may call.

#include <filesystem>
#include <optional>
#include <string>

#include "model/BackupError.hpp"
#include "model/BackupPair.hpp"
#include "support/Base64.hpp"

namespace quillstow {

struct BookmarkError {
    std::filesystem::path url;
    // "Access denied for security-scoped resource at {path}."
    std::string errorDescription() const;
};

namespace BookmarkManager {

struct Resolved {
    std::filesystem::path url;
    // Present when the record was stale and has been remade for the same path.
    std::optional<base64::Bytes> newBytes;
};

// The record of a folder as it is now. Throws Failure when the folder can't be read.
base64::Bytes bookmarkData(const std::filesystem::path& folder, bool readOnly);

// The folder of a bookmark, checked as above. Throws BackupFailure with bookmarkStale or
// bookmarkAccessDenied, always naming `fallbackURL`, the folder the user knows.
Resolved resolveBookmark(const base64::Bytes& data, const std::filesystem::path& fallbackURL,
                         bool readOnly);

// The bookmarks of a new pair: the source read-only, the destination and the offsite folder
// read-write. One that can't be made is logged and left out. `withPath` names the folder in the
// log line, as the add-backup flow does.
void makeBookmarksForNewPair(BackupPair& pair, bool withPath);

}  // namespace BookmarkManager
}  // namespace quillstow
