#pragma once

// The listing of a source and the change test, the two reads a pass makes of every item.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "copy/ExclusionFilter.hpp"
#include "copy/FileSystem.hpp"
#include "copy/WalkedEntries.hpp"
#include "support/FileInfo.hpp"

namespace quillstow {

// One item of a pass: a regular file or a folder copied whole, with what the listing read of
// it. The change test uses these values, so an unchanged item costs one more read only, of
// its copy in the mirror.
using ListedItem = WalkedEntry;

// What an entry met by a walk of a source or a mirror is to a pass: an item (a regular file, or a
// folder copied whole), a folder to go into, or nothing (a link, an internal file, an excluded
// name, a socket; with `skipsReservedNames`, a temporary of an interrupted copy too).
enum class EntryRole { item, folder, none };
EntryRole roleOf(std::string_view name, const FileInfo& info, const ExclusionFilter& filter,
                 bool skipsReservedNames);

// A folder of the source, entered by the walk, with its modification date.
struct ListedFolder {
    std::string relativePath;
    std::optional<Date> modificationDate;
};

// A folder of the source that couldn't be read whole ("" for the source itself).
struct UnreadableFolder {
    std::string relativePath;
    int error = 0;
};

// What a pass reads of its source: the items in walk order, which is the order of copying; the
// folders it went into; and the folders it couldn't read, whose mirror must stay as it is.
struct SourceListing {
    WalkedEntries items;
    std::vector<ListedFolder> folders;
    std::vector<UnreadableFolder> unreadableFolders;
};

// Links are neither listed nor followed; internal files, excluded names and the contents of
// package units are left out; empty folders add no item.
SourceListing readSource(FileSystem& fileSystem, const std::filesystem::path& source,
                         const ExclusionFilter& filter);

// The items of readSource alone. A source that can't be opened lists nothing; once `stop` is
// asked for, no further folder is gone into.
WalkedEntries listSource(const std::filesystem::path& source, const ExclusionFilter& filter,
                         std::stop_token stop = {});

// Differences of up to this much, either way, still count as the same date: FAT keeps even
// seconds.
inline constexpr std::chrono::nanoseconds modificationDateTolerance{2'000'000'000};

// Whether the destination copy is stale: missing, unreadable, of another kind (a folder where a
// file is, a link), another size, or a date more than the tolerance away from the source's.
// Contents are never compared.
bool needsCopy(const std::optional<FileInfo>& source, const std::optional<FileInfo>& destination);
bool needsCopy(const std::filesystem::path& source, const std::filesystem::path& destination);

}  // namespace quillstow
