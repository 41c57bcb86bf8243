#pragma once

// The files that left a pair's source and wait in its deletion archive, listed for recovery:
// {archive}/{yyyy-MM-dd}/{relative path}, grouped by the day they left, newest day first. A
// file archived twice on one day sits there under a taken-name variant ("{stem}-{8
// characters}.{extension}"); it is listed with the time it was archived and goes back under
// its original name. The archive is only read.
//
// scanArchive runs on a background task; the other functions are pure and belong to the
// thread that owns the list.

#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "archive/RestoreListing.hpp"
#include "model/BackupPair.hpp"
#include "support/Dates.hpp"

namespace quillstow {

struct DeletedFileItem {
    // `relativePath` and `name` are where the file was in the source, its original name.
    RestoreFileItem file;
    // The day folder, "yyyy-MM-dd": the day the file left the source.
    std::string day;
    // Below the archive root: the day folder, then the path as archived.
    std::string archivedPath;
    // When it was moved into the archive (the entry's change time); nothing if unreadable.
    std::optional<Date> deletedAt;
    // Archived under a taken-name variant, so that another copy of that day stands beside it.
    bool wasRenamed = false;
};

inline RestoreFileItem& fileOf(DeletedFileItem& item) {
    return item.file;
}
inline const RestoreFileItem& fileOf(const DeletedFileItem& item) {
    return item.file;
}

// The deletion archive of the pair's destination: {destination}/.Quillstow-Trash.
std::filesystem::path archiveRootOf(const BackupPair& pair);

// Whether another pair keeps its deleted files in `pair`'s archive. Pairs with one destination
// share it, and it doesn't say which source a file left, so putting its files back "to the
// original" could put another source's file over one of this source's.
bool sharesArchive(const BackupPair& pair, const std::vector<BackupPair>& pairs);

// Every regular file below the archive's day folders, hidden names and links left out: newest
// day first, then by original path in Finder order, then the latest deletion first. Empty
// when the archive isn't there, and when `stop` was requested before the walk ended.
std::vector<DeletedFileItem> scanArchive(const std::filesystem::path& archiveRoot,
                                         std::stop_token stop = {});

// Days from `first` to `last`, both included, as "yyyy-MM-dd"; an empty end is open.
struct DayRange {
    std::string first;
    std::string last;

    bool contains(std::string_view day) const;
};

// The rows shown by the filter text and the day range, in list order.
std::vector<std::size_t> filteredIndices(const std::vector<DeletedFileItem>& items,
                                         std::string_view searchText, const DayRange& range);

// The days that hold files, newest first, for choosing a range.
std::vector<std::string> daysOf(const std::vector<DeletedFileItem>& items);

// The shown rows by day, in the order of the list.
struct DayGroup {
    std::string day;
    std::vector<std::size_t> indices;
};
std::vector<DayGroup> groupedByDay(const std::vector<DeletedFileItem>& items,
                                   const std::vector<std::size_t>& shown);

}  // namespace quillstow
