#pragma once

// Moving one item so that a reader of the destination sees the old copy or the whole new one,
// never a part: the data goes to a temporary name beside the target, is flushed, and is renamed
// into place. Also the check after a copy and the sweep of what an interrupted attempt left.
//
// All functions run on the task of a pass.

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "copy/FileSystem.hpp"
#include "copy/StreamedCopy.hpp"
#include "support/AtomicFile.hpp"
#include "support/Error.hpp"
#include "support/FileHandle.hpp"

namespace quillstow::transfer {

using Path = std::filesystem::path;

inline constexpr std::string_view temporaryPrefix = atomicfile::temporaryPrefix;
inline constexpr std::string_view resumePrefix = ".quillstowresume-";

// ".quillstowtmp-{first 8 characters of a fresh UUID}-{name}", fitted to a folder entry.
std::string temporaryName(const std::string& name);

// ".quillstowresume-{digits}-{name}", the shape partialName gives.
bool isPartialName(std::string_view name);

// Names that belong to a copy under way, in the exact shapes this program makes them: never
// archived, swept before a pass. A user's file that merely begins with a reserved prefix is none
// of them, and is backed up like any other.
bool isReservedName(std::string_view name);

// The folder a pass mirrors into, and the volume that held it when the pass began. A pass makes
// folders only on that volume: when the drive is pulled, the bare mount point left behind lies
// on another disk, and nothing may be written there.
//
// Everything a pass writes goes through the root's open folder, never through a link below it:
// a link made where a folder was, even during the pass, leads nowhere.
struct MirrorRoot {
    Path path;
    dev_t device = 0;
    SharedFolder folder = nullptr;

    // The root as it stands now, opened; raises Failure when it can't be.
    static MirrorRoot at(const Path& path);
    // Whether the root's path is still a folder on its volume.
    bool isPresent() const;
};

// The folder at `path`, made with its parents once the nearest folder that exists above it is
// found on the root's volume; otherwise raises Failure with EXDEV and makes nothing. Below that
// folder no link is followed.
FileHandle openFoldersOnVolume(const Path& path, const MirrorRoot& root);

// What a listing read of a source item, without following a link: spares a copy a look of its
// own before it opens the item. A listed folder counts 0: its copy reads what it holds.
struct ListedSource {
    bool isFolder = false;
    std::int64_t size = 0;
};

// An item as a copy names it: its whole path, which errors and progress show, and, where the
// pass reached its folder already, that open folder, through which the item is then reached;
// for a source, what the pass's listing read of it, where it did. A whole path alone converts
// to one.
struct Item {
    Path path;
    SharedFolder folder;
    std::optional<ListedSource> listed;

    Item(Path path, SharedFolder folder = nullptr)
        : path(std::move(path)), folder(std::move(folder)) {}

    ItemRef ref() const;
    // Another item in the same folder.
    ItemRef sibling(const std::string& name) const;
};

// A file changed while it was copied: the copy is discarded, and the next pass copies it again.
Error sourceChangedError();

// Raises sourceChangedError when the open file's size, modification or change time is no longer
// what `before` read: its content may have moved under the copy.
void throwIfChangedSince(int fd, const struct stat& before);

// A copy whose data sits at `temporary`, waiting to be flushed and swapped in.
struct PreparedCopy {
    Path temporary;
    Path destination;
    // The source's size as the copy read it (for a folder, its entry's own).
    std::int64_t size = 0;
    // What the source was when the copy began: a folder copied whole, or a file of `size`.
    bool isFolder = false;
    // The open folder that holds both, where the copy was made through one; else the paths.
    SharedFolder folder = nullptr;
    // What the copy wrote, as read on its open files.
    CopiedItem made{};
};

// Makes the destination's folder (a failure raises FileOperationFailure "createDirectory"),
// reads the source's kind and size unless its listing did, and copies the item to a fresh
// temporary name. A failed copy removes its temporary file and raises the copy's Failure.
//
// With a `root`, folders are made only on its volume, and only while it is there: a mirror whose
// drive was pulled is never recreated by a copy into the mount point left behind.
//
// A file of 64 MiB or more is streamed into its partial file, which a failed attempt leaves for
// the next one to continue; anything smaller, folders included, is copied whole under a fresh
// temporary name, removed again when the copy fails.
PreparedCopy prepareCopy(FileSystem& fileSystem, const Item& source, const Item& destination,
                         const MirrorRoot* root = nullptr, const StreamContext& context = {});

// A copy whose size differs from its source's right after it was made.
struct SizeMismatch {
    Path destination;
};

// prepareCopy, then the check of the copy's size against the source's, both as the copy read
// them on its open files, before anything is swapped in: a copy that fails it is removed, the
// mirror keeps what it had, and SizeMismatch is thrown.
PreparedCopy prepareVerifiedCopy(FileSystem& fileSystem, const Item& source,
                                 const Item& destination, const MirrorRoot* root,
                                 const StreamContext& context = {});

// Renames the temporary copy into place; on failure it stays where it is and Failure is raised.
void swapIntoPlace(FileSystem& fileSystem, const PreparedCopy& copy);

// One attempt at one item: prepare, flush, swap. Returns the source's size as read at the start.
std::int64_t copyOnce(FileSystem& fileSystem, const Path& source, const Path& destination,
                      const StreamContext& context = {});

// Whether a copy is whole: the sizes the copy read on both open files at its end agree, after it
// found the source as it was at its open, so nothing is looked at again. A folder copied whole
// only needs to be a folder.
bool sameSize(const CopiedItem& made, bool isFolder);

// copyOnce under the retry policy: after a transient error the whole attempt once more at once,
// under a new name.
std::int64_t copyFile(FileSystem& fileSystem, const Path& source, const Path& destination,
                      const StreamContext& context = {});

}  // namespace quillstow::transfer
