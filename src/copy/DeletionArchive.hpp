#pragma once

// Files that left the source are moved, never deleted: into {trashRoot}/{yyyy-MM-dd}/{relative
// path}, the day of the pass's start in the local time zone. It is the most dangerous step of a
// pass, since a source that looks empty looks like a mass deletion; three rails stand before it:
// the source must be there, an empty listing never empties a mirror, and nine tenths of a
// mirror (at least ten items) never go at once.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "copy/ExclusionFilter.hpp"
#include "copy/FileSystem.hpp"
#include "copy/FileTransfer.hpp"
#include "copy/SourceListing.hpp"
#include "model/Results.hpp"
#include "support/Dates.hpp"

namespace quillstow {

inline constexpr double massRailRatio = 0.9;
inline constexpr int massRailFloor = 10;

// The items of a mirror as relative paths, found as the source's are; temporaries, internal
// files, links and excluded names are no items, so they are never taken for orphans.
std::vector<std::string> listDestination(const std::filesystem::path& destination,
                                         const ExclusionFilter& filter);

// The mirror as a pass finds it before copying: its items as listDestination gives them, and
// what stands at every path the walk met (links and folders too), for the change test.
struct MirrorListing {
    std::vector<std::string> items;
    std::unordered_map<std::string, FileInfo, StringHash, std::equal_to<>> entries;
};
MirrorListing listMirror(const std::filesystem::path& destination, const ExclusionFilter& filter);

// "yyyy-MM-dd" of the date in the local time zone.
std::string datedFolderName(Date date);

// Whether a name has the shape datedFolderName gives, with a month and a day that can be.
bool isDatedFolderName(std::string_view name);

// The name that an item archived into a taken place had before: "{stem}-{8 characters}" with
// the extension, if any, back to "{stem}" with it. Nothing when the name has not that shape. A
// user's own file may have it too; only one whose original stands beside it was renamed here.
std::optional<std::string> nameBeforeCollision(std::string_view name);

// The bytes below the archive, hidden entries left out; nothing if it isn't there.
std::optional<std::int64_t> trashSize(const std::filesystem::path& trashRoot);

// Below this many orphans the mass rail lets a mirror of `mirrorCount` items be archived.
int massRailThreshold(std::size_t mirrorCount);

// The rails that judge a whole archive phase on the two listings: an empty source never empties
// a mirror (1001), and nine tenths of a mirror of ten items or more never go at once (1002).
// The error of the rail that refuses, or nothing.
std::optional<FileOperationError> archiveRefusal(const std::filesystem::path& source,
                                                 std::size_t sourceCount, std::size_t mirrorCount,
                                                 std::size_t orphanCount);

// The mirror's items, in listing order, that have no item of the same path in the source.
std::vector<std::string> orphansOf(const std::vector<std::string>& mirrorItems,
                                   const std::vector<ListedItem>& sourceItems);

// Moves items of one mirror into its archive's day folder, {trashRoot}/{yyyy-MM-dd}/{relative
// path}, keeping their paths; a name taken already gets "-{8 characters}" after its stem. It
// re-reads each item before it moves it, and makes the day folder's folders only on the
// mirror's volume: a drive pulled since the listing leaves nothing behind on another disk. Both
// sides are reached through open folders, no link followed on the way, at any depth.
class ArchiveMover {
  public:
    ArchiveMover(FileSystem& fileSystem, transfer::MirrorRoot root, std::filesystem::path trashRoot,
                 Date start);

    enum class Outcome { moved, gone, failed, volumeLost };

    // Adds an "archive" entry to `result.errors` for a failure, and the 1007 error with
    // `abortedDueToVolumeLoss` when the mirror's volume has gone.
    Outcome move(const std::string& relativePath, BackupResult& result);

  private:
    // The folder of the archive that takes the item at `relativePath`, made where missing.
    const SharedFolder& archiveFolderOf(const std::string& relativePath);

    FileSystem& fileSystem_;
    const transfer::MirrorRoot root_;
    const std::filesystem::path dayFolder_;
    std::optional<FolderCursor> mirrorFolders_;
    std::optional<FolderCursor> archiveFolders_;
};

// The archive phase: the source must still be there (1006, a volume loss), and so must the
// mirror's volume (1007); then the rails judge, and the orphans move one by one. Returns the
// number of items moved. Stops before the next item once `stop` is requested; what moved stays
// moved.
int archiveOrphans(ArchiveMover& mover, const std::filesystem::path& source,
                   const transfer::MirrorRoot& root, const std::vector<std::string>& orphans,
                   const std::optional<FileOperationError>& refusal, BackupResult& result,
                   std::stop_token stop);

// The same phase on a mirror as listDestination finds it.
int archiveOrphans(FileSystem& fileSystem, const std::filesystem::path& source,
                   const std::filesystem::path& destination, const std::filesystem::path& trashRoot,
                   const ExclusionFilter& filter, Date start,
                   const std::vector<ListedItem>& sourceItems, BackupResult& result,
                   std::stop_token stop);

}  // namespace quillstow
