#pragma once

// Moving one item so that a reader of the destination sees the old copy or the whole new one,
// never a part: the data goes to a temporary name beside the target, is flushed, and is renamed
// into place. Also the check after a copy and the sweep of what an interrupted attempt left.
//
// All functions run on the task of a pass.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "copy/FileSystem.hpp"
#include "copy/StreamedCopy.hpp"
#include "support/AtomicFile.hpp"
#include "support/Error.hpp"

namespace quillstow::transfer {

using Path = std::filesystem::path;

inline constexpr std::string_view temporaryPrefix = atomicfile::temporaryPrefix;
inline constexpr std::string_view resumePrefix = ".quillstowresume-";

// ".quillstowtmp-{first 8 characters of a fresh UUID}-{name}"
std::string temporaryName(const std::string& name);

// Names that belong to a copy under way: never archived, swept before a pass.
bool isReservedName(std::string_view name);

// EINTR, EIO, EBUSY and EAGAIN of the POSIX domain: worth one more attempt at once.
bool isTransient(const Error& error);

// A copy whose data sits at `temporary`, waiting to be flushed and swapped in.
struct PreparedCopy {
    Path temporary;
    Path destination;
    std::int64_t size = 0;
};

// Makes the destination's folder (a failure raises FileOperationFailure "createDirectory"),
// reads the source's size, and copies the item to a fresh temporary name. A failed copy removes
// its temporary file and raises the copy's Failure.
//
// With a `root`, only folders below it are made: a mirror whose root has gone (its drive was
// pulled, leaving the bare mount point) is never recreated by a copy into it.
//
// A file of 64 MiB or more is streamed into its partial file, which a failed attempt leaves for
// the next one to continue; anything smaller, folders included, is copied whole under a fresh
// temporary name, removed again when the copy fails.
PreparedCopy prepareCopy(FileSystem& fileSystem, const Path& source, const Path& destination,
                         const Path& root = {}, const StreamContext& context = {});

// A copy whose size differs from its source's right after it was made.
struct SizeMismatch {
    Path destination;
};

// prepareCopy, then the check of the copy's size against the source, before anything is
// swapped in: a copy that fails it is removed, the mirror keeps what it had, and SizeMismatch
// is thrown.
PreparedCopy prepareVerifiedCopy(FileSystem& fileSystem, const Path& source,
                                 const Path& destination, const Path& root,
                                 const StreamContext& context = {});

// Renames the temporary copy into place; on failure it stays where it is and Failure is raised.
void swapIntoPlace(FileSystem& fileSystem, const PreparedCopy& copy);

// One attempt at one item: prepare, flush, swap. Returns the source's size as read at the start.
std::int64_t copyOnce(FileSystem& fileSystem, const Path& source, const Path& destination,
                      const StreamContext& context = {});

// copyOnce, and after a transient error the whole attempt once more at once, under a new name.
std::int64_t copyFile(FileSystem& fileSystem, const Path& source, const Path& destination,
                      const StreamContext& context = {});

// Whether both sides have the same size; a folder only needs a folder. Never raises: what
// can't be read answers false.
bool sameSize(const Path& source, const Path& destination);

// Removes every entry under `destination` whose name begins with a reserved prefix. Never
// raises; each failure is dropped and the walk goes on.
void removeStaleTemporaries(FileSystem& fileSystem, const Path& destination);

}  // namespace quillstow::transfer
