#include "copy/DeletionArchive.hpp"

#include <ctime>
#include <unordered_set>

#include "copy/FileInfo.hpp"
#include "copy/FileTransfer.hpp"
#include "copy/PathRules.hpp"
#include "copy/TreeWalk.hpp"
#include "support/Paths.hpp"
#include "support/Uuid.hpp"

namespace quillstow {

namespace fs = std::filesystem;

std::vector<std::string> listDestination(const fs::path& destination,
                                         const ExclusionFilter& filter) {
    std::vector<std::string> items;
    walkTree(paths::resolved(destination), WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        const FileInfo& info = entry.info;
        if (info.isSymbolicLink()) return false;
        if (isInternalFileName(entry.name) || transfer::isReservedName(entry.name)) return false;
        if (filter.isExcluded(entry.name, info.isDirectory())) return false;
        if (info.isDirectory()) {
            const std::string_view extension = pathExtension(entry.name);
            if (!extension.empty() && isPackageUnit(extension, filter.profile)) {
                items.push_back(entry.relativePath);
                return false;
            }
            return true;
        }
        if (info.isRegularFile()) items.push_back(entry.relativePath);
        return false;
    });
    return items;
}

std::string datedFolderName(Date date) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(
        std::chrono::time_point_cast<std::chrono::system_clock::duration>(date));
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char name[16];
    std::strftime(name, sizeof name, "%Y-%m-%d", &local);
    return name;
}

std::optional<std::int64_t> trashSize(const fs::path& trashRoot) {
    if (!files::exists(trashRoot)) return std::nullopt;
    std::int64_t total = 0;
    const bool walked = walkTree(trashRoot, WalkDetail::metadata, [&](const WalkEntry& entry) {
        if (entry.name.starts_with('.')) return false;
        total += entry.info.fileSize.value_or(0);
        return true;
    });
    if (!walked) return std::nullopt;
    return total;
}

int massRailThreshold(std::size_t mirrorCount) {
    const int threshold = int(double(mirrorCount) * massRailRatio);
    return threshold <= massRailFloor - 1 ? massRailFloor : threshold;
}

namespace {

// "{stem}-{8 characters}.{extension}", or without the extension where the name has none.
fs::path collisionFreeName(const fs::path& target) {
    const std::string name = target.filename().native();
    const std::string_view extension = pathExtension(name);
    std::string renamed =
        std::string(deletingPathExtension(name)) + "-" + Uuid::random().text().substr(0, 8);
    if (!extension.empty()) renamed += "." + std::string(extension);
    return target.parent_path() / renamed;
}

}  // namespace

int archiveOrphans(FileSystem& fileSystem, const fs::path& source, const fs::path& destination,
                   const fs::path& trashRoot, const ExclusionFilter& filter, Date start,
                   const std::vector<ListedItem>& sourceItems, BackupResult& result,
                   std::stop_token stop) {
    if (auto lost = checkSourceBeforeArchival(source)) {
        result.errors.push_back(std::move(*lost));
        result.abortedDueToVolumeLoss = true;
        return 0;
    }

    const std::vector<std::string> mirrorItems = listDestination(destination, filter);
    std::unordered_set<std::string> sourcePaths;
    sourcePaths.reserve(sourceItems.size());
    for (const auto& item : sourceItems)
        sourcePaths.insert(item.relativePath);
    std::vector<std::string> orphans;
    for (const auto& item : mirrorItems) {
        if (!sourcePaths.contains(item)) orphans.push_back(item);
    }

    if (sourceItems.empty() && !mirrorItems.empty()) {
        result.errors.push_back(
            {source, "archive",
             errors::quillstow(1001, "Source appears empty or unreadable — skipped archival of " +
                                         std::to_string(mirrorItems.size()) +
                                         " backup file(s) to protect existing backups.")});
        return 0;
    }
    if (!sourceItems.empty() && !mirrorItems.empty() &&
        int(orphans.size()) >= massRailThreshold(mirrorItems.size())) {
        result.errors.push_back(
            {source, "archive",
             errors::quillstow(1002, "Unusually large number of files (" +
                                         std::to_string(orphans.size()) +
                                         ") would be archived — skipping archival as a safety "
                                         "measure.")});
        return 0;
    }

    // The day folder comes into being with the first item's folders, so a pass without orphans
    // leaves no trace.
    const fs::path dayFolder = trashRoot / datedFolderName(start);
    int archived = 0;
    for (const auto& relative : orphans) {
        if (stop.stop_requested()) break;
        const fs::path item = paths::appending(destination, relative);
        fs::path target = paths::appending(dayFolder, relative);
        const fs::path folder = target.parent_path();
        if (!files::isFolder(folder)) {
            try {
                fileSystem.createDirectories(folder);
            } catch (const Failure& failure) {
                result.errors.push_back(
                    {item, "archive", asError({folder, "createDirectory", failure.error()})});
                continue;
            }
        }
        if (files::exists(target)) target = collisionFreeName(target);
        try {
            // A rename that refuses to replace: a second collision fails here, never overwrites.
            fileSystem.moveItem(item, target);
            ++archived;
        } catch (const Failure& failure) {
            result.errors.push_back({item, "archive", failure.error()});
        }
    }
    return archived;
}

}  // namespace quillstow
