#include "archive/RestoreListing.hpp"

#include <algorithm>

#include "control/BackupEngine.hpp"
#include "copy/ExclusionFilter.hpp"
#include "support/Paths.hpp"
#include "support/TextCompare.hpp"

namespace quillstow {

namespace fs = std::filesystem;

std::optional<std::string> safeRelativePath(std::string_view filePath, std::string_view rootPath) {
    std::string root(rootPath);
    if (root.empty() || root.back() != '/') root += '/';
    if (!filePath.starts_with(root)) return std::nullopt;
    const std::string_view remainder = filePath.substr(root.size());
    if (remainder.empty() || remainder.starts_with('/') ||
        remainder.find("../") != std::string_view::npos || remainder.starts_with("..") ||
        remainder.ends_with("/..")) {
        return std::nullopt;
    }
    return std::string(remainder);
}

fs::path backupRootOf(const BackupPair& pair) {
    return pairFolderAt(pair.destinationURL, pair.name);
}

void forEachListableFile(
    const fs::path& root, const std::stop_token& stop,
    const std::function<void(std::string relativePath, const WalkEntry& entry)>& visit) {
    // The walk never follows a link, so below the resolved root a path is its own resolved form.
    walkTree(root, WalkDetail::metadata, [&](const WalkEntry& entry) {
        if (stop.stop_requested() || entry.name.starts_with('.')) return false;
        if (entry.info.isDirectory()) return true;
        if (!entry.info.isRegularFile()) return false;
        const fs::path filePath = paths::appending(root, entry.relativePath);
        if (auto relative = safeRelativePath(filePath.native(), root.native())) {
            visit(std::move(*relative), entry);
        }
        return false;
    });
}

std::vector<RestoreFileItem> scanBackup(const fs::path& backupRoot, std::stop_token stop) {
    std::vector<RestoreFileItem> items;
    if (!files::exists(backupRoot)) return items;
    forEachListableFile(
        paths::resolved(backupRoot), stop, [&](std::string relativePath, const WalkEntry& entry) {
            items.push_back({Uuid::random(), std::move(relativePath), std::string(entry.name),
                             entry.info.fileSize.value_or(0), false, false});
        });
    if (stop.stop_requested()) return {};
    sortInFinderOrder(items);
    return items;
}

void sortInFinderOrder(std::vector<RestoreFileItem>& items) {
    std::sort(items.begin(), items.end(), [](const RestoreFileItem& a, const RestoreFileItem& b) {
        const int order = text::compareInFinderOrder(a.relativePath, b.relativePath);
        // Names that differ only in case still come in one order, whatever the walk's.
        return order != 0 ? order < 0 : a.relativePath < b.relativePath;
    });
}

bool matchesFilter(const RestoreFileItem& item, std::string_view searchText) {
    if (searchText.empty()) return true;
    // The name ends the relative path: a match in the name is a match in the path.
    return text::lowercasedForSearch(item.relativePath)
               .find(text::lowercasedForSearch(searchText)) != std::string::npos;
}

std::vector<std::size_t> filteredIndices(const std::vector<RestoreFileItem>& files,
                                         std::string_view searchText) {
    std::vector<std::size_t> shown;
    for (std::size_t index = 0; index < files.size(); ++index) {
        if (matchesFilter(files[index], searchText)) shown.push_back(index);
    }
    return shown;
}

RestoreWindowState restoreWindowState(bool isLoading, std::size_t fileCount) {
    if (isLoading) return RestoreWindowState::loading;
    return fileCount == 0 ? RestoreWindowState::empty : RestoreWindowState::list;
}

bool canStartRestore(std::int64_t selectedCount, bool restoreInProgress) {
    return selectedCount > 0 && !restoreInProgress;
}

}  // namespace quillstow
