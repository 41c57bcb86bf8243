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
#include <unordered_map>
#include <vector>

#include "copy/ExclusionFilter.hpp"
#include "copy/FileSystem.hpp"
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

// The bytes below the archive, hidden entries left out; nothing if it isn't there.
std::optional<std::int64_t> trashSize(const std::filesystem::path& trashRoot);

// Below this many orphans the mass rail lets a mirror of `mirrorCount` items be archived.
int massRailThreshold(std::size_t mirrorCount);

// The archive phase of a pass. Adds what fails to `result.errors`; a rail that fires adds its
// one error and moves nothing. Returns the number of items moved. Stops before the next item
// once `stop` is requested; what moved stays moved.
int archiveOrphans(FileSystem& fileSystem, const std::filesystem::path& source,
                   const std::filesystem::path& destination, const std::filesystem::path& trashRoot,
                   const ExclusionFilter& filter, Date start,
                   const std::vector<ListedItem>& sourceItems, BackupResult& result,
                   std::stop_token stop);

// The same with the mirror's items as the caller knows them, in listing order.
int archiveOrphans(FileSystem& fileSystem, const std::filesystem::path& source,
                   const std::filesystem::path& destination, const std::filesystem::path& trashRoot,
                   Date start, const std::vector<ListedItem>& sourceItems,
                   const std::vector<std::string>& mirrorItems, BackupResult& result,
                   std::stop_token stop);

}  // namespace quillstow
