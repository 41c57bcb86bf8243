#include "copy/DeletionArchive.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <unordered_set>

#include "copy/FileTransfer.hpp"
#include "copy/PathRules.hpp"
#include "support/FileInfo.hpp"
#include "support/Paths.hpp"
#include "support/TreeWalk.hpp"
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

bool isDatedFolderName(std::string_view name) {
    const auto digit = [&](std::size_t at) { return name[at] >= '0' && name[at] <= '9'; };
    if (name.size() != 10 || name[4] != '-' || name[7] != '-') return false;
    for (std::size_t at : {0, 1, 2, 3, 5, 6, 8, 9}) {
        if (!digit(at)) return false;
    }
    const int month = (name[5] - '0') * 10 + (name[6] - '0');
    const int day = (name[8] - '0') * 10 + (name[9] - '0');
    return month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

namespace {

constexpr std::size_t collisionMarkLength = 9;  // "-" and 8 characters of a UUID

// Whether the text ends in "-" and eight characters of Uuid::text(), after at least one more.
bool endsInCollisionMark(std::string_view text) {
    if (text.size() <= collisionMarkLength) return false;
    const std::string_view mark = text.substr(text.size() - collisionMarkLength);
    if (mark[0] != '-') return false;
    for (const char c : mark.substr(1)) {
        if (!((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'))) return false;
    }
    return true;
}

}  // namespace

std::optional<std::string> nameBeforeCollision(std::string_view name) {
    const std::string_view extension = pathExtension(name);
    const std::string_view stem = deletingPathExtension(name);
    if (!extension.empty() && endsInCollisionMark(stem)) {
        return std::string(stem.substr(0, stem.size() - collisionMarkLength)) + "." +
               std::string(extension);
    }
    // A name whose last dot was its last character had no extension to keep apart.
    if (endsInCollisionMark(name)) {
        return std::string(name.substr(0, name.size() - collisionMarkLength));
    }
    return std::nullopt;
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

std::optional<FileOperationError> archiveRefusal(const fs::path& source, std::size_t sourceCount,
                                                 std::size_t mirrorCount, std::size_t orphanCount) {
    if (mirrorCount == 0) return std::nullopt;
    if (sourceCount == 0) {
        return FileOperationError{
            source, "archive",
            errors::quillstow(1001, "Source appears empty or unreadable — skipped archival of " +
                                        std::to_string(mirrorCount) +
                                        " backup file(s) to protect existing backups.")};
    }
    if (int(orphanCount) >= massRailThreshold(mirrorCount)) {
        return FileOperationError{
            source, "archive",
            errors::quillstow(1002, "Unusually large number of files (" +
                                        std::to_string(orphanCount) +
                                        ") would be archived — skipping archival as a safety "
                                        "measure.")};
    }
    return std::nullopt;
}

std::vector<std::string> orphansOf(const std::vector<std::string>& mirrorItems,
                                   const std::vector<ListedItem>& sourceItems) {
    std::unordered_set<std::string_view> sourcePaths;
    sourcePaths.reserve(sourceItems.size());
    for (const auto& item : sourceItems)
        sourcePaths.insert(item.relativePath);
    std::vector<std::string> orphans;
    for (const auto& item : mirrorItems) {
        if (!sourcePaths.contains(item)) orphans.push_back(item);
    }
    return orphans;
}

namespace {

// "{stem}-{8 characters}.{extension}", or without the extension where the name has none.
std::string collisionFreeName(std::string_view name) {
    const std::string_view extension = pathExtension(name);
    std::string renamed =
        std::string(deletingPathExtension(name)) + "-" + Uuid::random().text().substr(0, 8);
    if (!extension.empty()) renamed += "." + std::string(extension);
    return renamed;
}

bool existsAt(int folder, const std::string& name) {
    struct stat status {};
    return ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

}  // namespace

ArchiveMover::ArchiveMover(FileSystem& fileSystem, transfer::MirrorRoot root, fs::path trashRoot,
                           Date start)
    : fileSystem_(fileSystem),
      root_(std::move(root)),
      dayFolder_(std::move(trashRoot) / datedFolderName(start)) {
    if (root_.folder) mirrorFolders_.emplace(root_.folder);
}

const SharedFolder& ArchiveMover::archiveFolderOf(const std::string& relativePath) {
    // The day folder comes into being with the first item's folders, so a pass without
    // orphans leaves no trace.
    if (!archiveFolders_) {
        archiveFolders_.emplace(
            std::make_shared<const FileHandle>(transfer::openFoldersOnVolume(dayFolder_, root_)),
            root_.device);
    }
    return archiveFolders_->folderOf(relativePath);
}

ArchiveMover::Outcome ArchiveMover::move(const std::string& relativePath, BackupResult& result) {
    const fs::path item = paths::appending(root_.path, relativePath);
    const std::string name(lastComponent(relativePath));
    const auto volumeLost = [&] {
        result.errors.push_back(destinationVolumeLost(root_.path));
        result.abortedDueToVolumeLoss = true;
        return Outcome::volumeLost;
    };
    if (!mirrorFolders_) return volumeLost();
    int from = -1;
    try {
        from = mirrorFolders_->folderOf(relativePath)->get();
    } catch (const Failure& failure) {
        // A link that took the place of a folder is not followed: the item is reported.
        if (!errors::isPosix(failure.error(), ENOENT)) {
            result.errors.push_back({item, "archive", failure.error()});
            return Outcome::failed;
        }
    }
    if (from < 0 || !existsAt(from, name)) {
        return root_.isPresent() ? Outcome::gone : volumeLost();
    }
    const fs::path target = paths::appending(dayFolder_, relativePath);
    int to = -1;
    try {
        to = archiveFolderOf(relativePath)->get();
    } catch (const Failure& failure) {
        result.errors.push_back(
            {item, "archive", asError({target.parent_path(), "createDirectory", failure.error()})});
        return Outcome::failed;
    }
    const std::string targetName = existsAt(to, name) ? collisionFreeName(name) : name;
    try {
        // A rename that refuses to replace: a second collision fails here, never overwrites.
        fileSystem_.moveItem({from, name}, {to, targetName});
        return Outcome::moved;
    } catch (const Failure& failure) {
        result.errors.push_back({item, "archive", failure.error()});
        return Outcome::failed;
    }
}

int archiveOrphans(ArchiveMover& mover, const fs::path& source, const transfer::MirrorRoot& root,
                   const std::vector<std::string>& orphans,
                   const std::optional<FileOperationError>& refusal, BackupResult& result,
                   std::stop_token stop) {
    if (auto lost = checkSourceBeforeArchival(source)) {
        result.errors.push_back(std::move(*lost));
        result.abortedDueToVolumeLoss = true;
        return 0;
    }
    if (!root.isPresent()) {
        result.errors.push_back(destinationVolumeLost(root.path));
        result.abortedDueToVolumeLoss = true;
        return 0;
    }
    if (refusal) {
        result.errors.push_back(*refusal);
        return 0;
    }
    int archived = 0;
    for (const auto& relative : orphans) {
        if (stop.stop_requested()) break;
        const auto outcome = mover.move(relative, result);
        if (outcome == ArchiveMover::Outcome::moved) ++archived;
        if (outcome == ArchiveMover::Outcome::volumeLost) break;
    }
    return archived;
}

int archiveOrphans(FileSystem& fileSystem, const fs::path& source, const fs::path& destination,
                   const fs::path& trashRoot, const ExclusionFilter& filter, Date start,
                   const std::vector<ListedItem>& sourceItems, BackupResult& result,
                   std::stop_token stop) {
    transfer::MirrorRoot root{destination, 0};
    try {
        root = transfer::MirrorRoot::at(destination);
    } catch (const Failure&) {
        // Judged as gone by the phase itself.
    }
    const std::vector<std::string> mirrorItems = listDestination(destination, filter);
    const std::vector<std::string> orphans = orphansOf(mirrorItems, sourceItems);
    ArchiveMover mover(fileSystem, root, trashRoot, start);
    return archiveOrphans(
        mover, source, root, orphans,
        archiveRefusal(source, sourceItems.size(), mirrorItems.size(), orphans.size()), result,
        stop);
}

}  // namespace quillstow
