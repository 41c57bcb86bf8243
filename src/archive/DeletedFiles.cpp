#include "archive/DeletedFiles.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <unordered_set>

#include "control/BackupEngine.hpp"
#include "copy/DeletionArchive.hpp"
#include "support/Paths.hpp"
#include "support/TextCompare.hpp"
#include "support/TreeWalk.hpp"

namespace quillstow {

namespace fs = std::filesystem;

fs::path archiveRootOf(const BackupPair& pair) {
    return archiveRootAt(pair.destinationURL);
}

bool sharesArchive(const BackupPair& pair, const std::vector<BackupPair>& pairs) {
    const fs::path archive = paths::resolved(archiveRootOf(pair));
    return std::any_of(pairs.begin(), pairs.end(), [&](const BackupPair& other) {
        return other.id != pair.id && paths::resolved(archiveRootOf(other)) == archive;
    });
}

namespace {

std::optional<Date> changeTimeOf(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
    return Date(std::chrono::seconds(status.st_ctim.tv_sec) +
                std::chrono::nanoseconds(status.st_ctim.tv_nsec));
}

std::string replacingLastComponent(const std::string& relativePath, const std::string& name) {
    const auto slash = relativePath.rfind('/');
    return slash == std::string::npos ? name : relativePath.substr(0, slash + 1) + name;
}

// The files of one day folder as archived, before their original names are known.
std::vector<DeletedFileItem> scanDay(const fs::path& dayFolder, const std::string& day,
                                     const std::stop_token& stop) {
    std::vector<DeletedFileItem> items;
    forEachListableFile(dayFolder, stop, [&](std::string relativePath, const WalkEntry& entry) {
        DeletedFileItem item;
        item.day = day;
        item.archivedPath = day + "/" + relativePath;
        item.deletedAt = changeTimeOf(paths::appending(dayFolder, relativePath));
        item.file = {Uuid::random(),
                     std::move(relativePath),
                     std::string(entry.name),
                     entry.info.fileSize.value_or(0),
                     false,
                     false};
        items.push_back(std::move(item));
    });
    return items;
}

// A taken-name variant goes back under the name it stands beside; a user's own file of that
// shape, alone in its folder, keeps its name.
void restoreOriginalNames(std::vector<DeletedFileItem>& items) {
    std::unordered_set<std::string> archived;
    for (const auto& item : items)
        archived.insert(item.file.relativePath);
    for (auto& item : items) {
        const auto original = nameBeforeCollision(item.file.name);
        if (!original) continue;
        const std::string originalPath = replacingLastComponent(item.file.relativePath, *original);
        if (!archived.contains(originalPath)) continue;
        item.file.relativePath = originalPath;
        item.file.name = *original;
        item.wasRenamed = true;
    }
}

bool isListedBefore(const DeletedFileItem& a, const DeletedFileItem& b) {
    if (a.day != b.day) return a.day > b.day;
    const int order = text::compareInFinderOrder(a.file.relativePath, b.file.relativePath);
    if (order != 0) return order < 0;
    if (a.file.relativePath != b.file.relativePath)
        return a.file.relativePath < b.file.relativePath;
    if (a.deletedAt != b.deletedAt) return a.deletedAt > b.deletedAt;
    return a.archivedPath < b.archivedPath;
}

}  // namespace

std::vector<DeletedFileItem> scanArchive(const fs::path& archiveRoot, std::stop_token stop) {
    std::vector<DeletedFileItem> items;
    if (!files::exists(archiveRoot)) return items;
    const fs::path rootPath = paths::resolved(archiveRoot);
    walkTree(rootPath, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        if (stop.stop_requested()) return false;
        if (!entry.info.isDirectory() || !isDatedFolderName(entry.name)) return false;
        const std::string day(entry.name);
        auto dayItems = scanDay(paths::appending(rootPath, day), day, stop);
        restoreOriginalNames(dayItems);
        std::move(dayItems.begin(), dayItems.end(), std::back_inserter(items));
        return false;
    });
    if (stop.stop_requested()) return {};
    std::sort(items.begin(), items.end(), isListedBefore);
    return items;
}

bool DayRange::contains(std::string_view day) const {
    return (first.empty() || day >= first) && (last.empty() || day <= last);
}

std::vector<std::size_t> filteredIndices(const std::vector<DeletedFileItem>& items,
                                         std::string_view searchText, const DayRange& range) {
    std::vector<std::size_t> shown;
    for (std::size_t index = 0; index < items.size(); ++index) {
        if (range.contains(items[index].day) && matchesFilter(items[index].file, searchText)) {
            shown.push_back(index);
        }
    }
    return shown;
}

std::vector<std::string> daysOf(const std::vector<DeletedFileItem>& items) {
    std::vector<std::string> days;
    for (const auto& item : items) {
        if (days.empty() || days.back() != item.day) days.push_back(item.day);
    }
    std::sort(days.begin(), days.end(), std::greater<>());
    days.erase(std::unique(days.begin(), days.end()), days.end());
    return days;
}

std::vector<DayGroup> groupedByDay(const std::vector<DeletedFileItem>& items,
                                   const std::vector<std::size_t>& shown) {
    std::vector<DayGroup> groups;
    for (const std::size_t index : shown) {
        if (groups.empty() || groups.back().day != items[index].day) {
            groups.push_back({items[index].day, {}});
        }
        groups.back().indices.push_back(index);
    }
    return groups;
}

}  // namespace quillstow
