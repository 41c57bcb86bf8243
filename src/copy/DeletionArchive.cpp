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
        const EntryRole role = roleOf(entry.name, entry.info, filter, true);
        if (role == EntryRole::item) items.push_back(entry.relativePath);
        return role == EntryRole::folder;
    });
    return items;
}

MirrorListing listMirror(const fs::path& destination, const ExclusionFilter& filter) {
    MirrorListing mirror;
    walkTree(paths::resolved(destination), WalkDetail::metadata, [&](const WalkEntry& entry) {
        mirror.entries.emplace(entry.relativePath, entry.info);
        const EntryRole role = roleOf(entry.name, entry.info, filter, true);
        if (role == EntryRole::item) mirror.items.push_back(entry.relativePath);
        return role == EntryRole::folder;
    });
    return mirror;
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

namespace {

// Rail one: a source that is no longer there stops the phase as a volume loss.
bool sourceHasGone(const fs::path& source, BackupResult& result) {
    auto lost = checkSourceBeforeArchival(source);
    if (!lost) return false;
    result.errors.push_back(std::move(*lost));
    result.abortedDueToVolumeLoss = true;
    return true;
}

int moveOrphans(FileSystem& fileSystem, const fs::path& source, const fs::path& destination,
                const fs::path& trashRoot, Date start, const std::vector<ListedItem>& sourceItems,
                const std::vector<std::string>& mirrorItems, BackupResult& result,
                std::stop_token stop);

}  // namespace

int archiveOrphans(FileSystem& fileSystem, const fs::path& source, const fs::path& destination,
                   const fs::path& trashRoot, const ExclusionFilter& filter, Date start,
                   const std::vector<ListedItem>& sourceItems, BackupResult& result,
                   std::stop_token stop) {
    if (sourceHasGone(source, result)) return 0;
    return moveOrphans(fileSystem, source, destination, trashRoot, start, sourceItems,
                       listDestination(destination, filter), result, stop);
}

int archiveOrphans(FileSystem& fileSystem, const fs::path& source, const fs::path& destination,
                   const fs::path& trashRoot, Date start,
                   const std::vector<ListedItem>& sourceItems,
                   const std::vector<std::string>& mirrorItems, BackupResult& result,
                   std::stop_token stop) {
    if (sourceHasGone(source, result)) return 0;
    return moveOrphans(fileSystem, source, destination, trashRoot, start, sourceItems, mirrorItems,
                       result, stop);
}

namespace {

int moveOrphans(FileSystem& fileSystem, const fs::path& source, const fs::path& destination,
                const fs::path& trashRoot, Date start, const std::vector<ListedItem>& sourceItems,
                const std::vector<std::string>& mirrorItems, BackupResult& result,
                std::stop_token stop) {
    std::unordered_set<std::string_view> sourcePaths;
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

}  // namespace

}  // namespace quillstow
