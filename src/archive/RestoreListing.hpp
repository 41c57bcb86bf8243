#pragma once

// What a pair's backup holds, as the restore window lists it: the regular files below the
// pair's folder, hidden names, links and anything else left out, sorted as a file manager
// sorts names. Also the rules of the list: the filter, and a selection in which "Select All"
// acts on the shown rows alone.
//
// scanBackup runs on a background task and reads nothing but the backup; the other functions
// are pure and belong to the thread that owns the list (the window's main thread).

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "model/BackupPair.hpp"
#include "support/TreeWalk.hpp"
#include "support/Uuid.hpp"

namespace quillstow {

// One row of the list. Only `isSelected` changes after the scan.
struct RestoreFileItem {
    Uuid id;
    // Below the backup folder, components joined by "/".
    std::string relativePath;
    std::string name;
    // 0 when it couldn't be read.
    std::int64_t fileSize = 0;
    // Always false: only regular files are listed.
    bool isDirectory = false;
    bool isSelected = false;
};

// The part of `filePath` below `rootPath`, or nothing when it isn't strictly below it: empty,
// absolute, or with "../", a leading ".." or a trailing "/..". The leading ".." is refused
// broadly, so a name like "..data" at the top is never offered.
std::optional<std::string> safeRelativePath(std::string_view filePath, std::string_view rootPath);

// The pair's folder on its stored destination: {destination}/Quillstow/{sanitised name},
// without a second "Quillstow".
std::filesystem::path backupRootOf(const BackupPair& pair);

// Calls `visit` with the relative path of every file that a restore may offer below `root`
// (which has its links resolved): regular files whose path safeRelativePath keeps, none of them
// hidden or in a hidden folder. No link is followed. Ends early once `stop` is requested.
void forEachListableFile(
    const std::filesystem::path& root, const std::stop_token& stop,
    const std::function<void(std::string relativePath, const WalkEntry& entry)>& visit);

// The regular files below `backupRoot`, each with a new id and unselected, in Finder order of
// their relative paths. Empty when the folder isn't there or can't be read, and when `stop` was
// requested before the walk ended.
std::vector<RestoreFileItem> scanBackup(const std::filesystem::path& backupRoot,
                                        std::stop_token stop = {});

// Relative paths by file-manager order: digits by value, case ignored.
void sortInFinderOrder(std::vector<RestoreFileItem>& items);

// Whether the name or the relative path, lower-cased, holds the lower-cased `searchText`; an
// empty text matches everything.
bool matchesFilter(const RestoreFileItem& item, std::string_view searchText);

// The positions of the rows that the filter shows, in list order.
std::vector<std::size_t> filteredIndices(const std::vector<RestoreFileItem>& files,
                                         std::string_view searchText);

// The row's file, for lists whose rows carry one (DeletedFileItem) and for plain ones.
inline RestoreFileItem& fileOf(RestoreFileItem& item) {
    return item;
}
inline const RestoreFileItem& fileOf(const RestoreFileItem& item) {
    return item;
}

// How many rows are selected, shown by the filter or not.
template <class Item>
std::int64_t selectedCount(const std::vector<Item>& items) {
    std::int64_t count = 0;
    for (const auto& item : items)
        count += fileOf(item).isSelected ? 1 : 0;
    return count;
}

// "Select All" reads on when some rows are shown and all of them are selected.
template <class Item>
bool isAllSelected(const std::vector<Item>& items, const std::vector<std::size_t>& shown) {
    if (shown.empty()) return false;
    for (const std::size_t index : shown) {
        if (!fileOf(items[index]).isSelected) return false;
    }
    return true;
}

// Setting "Select All" writes to the shown rows; rows hidden by the filter keep what they had.
template <class Item>
void setAllSelected(std::vector<Item>& items, const std::vector<std::size_t>& shown,
                    bool selected) {
    for (const std::size_t index : shown)
        fileOf(items[index]).isSelected = selected;
}

// Toggles the row with this id; false when there is none.
template <class Item>
bool toggleSelection(std::vector<Item>& items, const Uuid& id) {
    for (auto& item : items) {
        if (fileOf(item).id == id) {
            fileOf(item).isSelected = !fileOf(item).isSelected;
            return true;
        }
    }
    return false;
}

// What the window shows: "Scanning backup files…" until the scan ends, then the empty state
// or the list.
enum class RestoreWindowState { loading, empty, list };
RestoreWindowState restoreWindowState(bool isLoading, std::size_t fileCount);

// Both restore buttons wait for a selection and for the restore under way to end.
bool canStartRestore(std::int64_t selectedCount, bool restoreInProgress);

}  // namespace quillstow
