#include "copy/FileCopier.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <thread>
#include <unordered_set>

#include "copy/Checkpoint.hpp"
#include "copy/DeletionArchive.hpp"
#include "copy/FileTransfer.hpp"
#include "copy/PathRules.hpp"
#include "copy/ProfileRecommendation.hpp"
#include "copy/SourceListing.hpp"
#include "copy/SwapBatch.hpp"
#include "environment/MountTable.hpp"
#include "support/FileInfo.hpp"
#include "support/Paths.hpp"
#include "support/Retry.hpp"

namespace quillstow {

namespace {

using Path = std::filesystem::path;

const RunningEditors noEditors;
const SystemWallClock systemWallClock;
const MonotonicClock monotonicClock;

// Every how many items the two top folders are checked for presence.
constexpr std::size_t volumeCheckInterval = 10;

// Whether `path` is `folder` or lies below it; "" holds everything.
bool isAtOrBelow(std::string_view path, std::string_view folder) {
    if (folder.empty() || path == folder) return true;
    return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

bool isAtOrBelowAny(std::string_view path, const std::vector<std::string>& folders) {
    return std::any_of(folders.begin(), folders.end(),
                       [&](const std::string& folder) { return isAtOrBelow(path, folder); });
}

using MirrorEntries = decltype(MirrorListing::entries);

// The item of the mirror that stands where the copy of `relative` must go: a file or a link
// where one of its folders belongs, or an item of another kind at its own path (a folder where
// a file goes, a link). It holds backups of its own, so it goes to the archive, never away.
std::optional<std::string> obstacleFor(const std::string& relative, const FileInfo& sourceInfo,
                                       const MirrorEntries& entries) {
    for (auto slash = relative.find('/'); slash != std::string::npos;
         slash = relative.find('/', slash + 1)) {
        const auto folder = entries.find(std::string_view(relative).substr(0, slash));
        if (folder == entries.end()) return std::nullopt;
        if (!folder->second.isDirectory()) return relative.substr(0, slash);
    }
    const auto found = entries.find(relative);
    if (found == entries.end()) return std::nullopt;
    const FileInfo& inMirror = found->second;
    if (inMirror.isSymbolicLink() || inMirror.isDirectory() != sourceInfo.isDirectory()) {
        return relative;
    }
    return std::nullopt;
}

[[noreturn]] void raise(const Path& url, const char* operation, Error error) {
    throw FileOperationFailure({url, operation, std::move(error)});
}

// A mirror is never made on the disk that a pulled drive left its mount point on.
void refuseMissingDrive(const Path& destination) {
    if (destinationState(destination, MountTable::snapshot()) == DestinationState::notMounted) {
        throw FileOperationFailure(destinationVolumeLost(destination));
    }
}

// The checks before anything is touched: path rules, the link, read and write tests, and the
// mirror's folder made if missing. Raises at the first that fails.
transfer::MirrorRoot checkBeforeTouching(FileSystem& fileSystem, const Path& source,
                                         const Path& destination) {
    validatePaths(source, destination);
    const auto destinationInfo = files::readInfo(destination);
    if (destinationInfo && destinationInfo->isSymbolicLink()) {
        raise(destination, "validateDestination",
              errors::quillstow(1003,
                                "Destination path is a symbolic link — refusing to write "
                                "to prevent data redirection."));
    }
    if (!files::isReadable(source)) {
        raise(source, "validateSource",
              errors::quillstow(1004,
                                "Source folder is not readable — check permissions or "
                                "reconnect the drive."));
    }
    if (!destinationInfo) {
        refuseMissingDrive(destination);
        try {
            fileSystem.createDirectories(destination);
        } catch (const Failure& failure) {
            raise(destination, "createDirectory", failure.error());
        }
    }
    if (!files::isWritable(destination)) {
        raise(destination, "validateDestination",
              errors::quillstow(1005,
                                "Destination folder is not writable — check permissions "
                                "or disk space."));
    }
    try {
        return transfer::MirrorRoot::at(destination);
    } catch (const Failure& failure) {
        raise(destination, "validateDestination", failure.error());
    }
}

// One pass, in the steps of its data: the two listings side by side, the copy of each item that
// differs, the archive of what left the source, and the folders' dates last.
class Pass {
  public:
    struct Services {
        FileSystem& fileSystem;
        const RunningEditors& editors;
        const ActivityGate& gate;
    };

    Pass(Services services, const Path& source, transfer::MirrorRoot root, const Path& trashRoot,
         Date start, const ExclusionFilter& filter, const FileCopier::ProgressCallback& onProgress,
         std::stop_token stop)
        : services_(services),
          source_(source),
          root_(std::move(root)),
          sourceFolders_(openSourceRoot(source)),
          mirrorFolders_(root_.folder, root_.device),
          filter_(filter),
          onProgress_(onProgress),
          stop_(stop),
          mover_(services.fileSystem, root_, trashRoot, start),
          batch_(services.fileSystem, root_, StreamContext{onProgress, 0, &services.gate, stop}) {}

    BackupResult run() {
        list();
        if (copyItems()) {
            batch_.flush(result_);
            archive();
        }
        restoreFolderDates();
        return std::move(result_);
    }

  private:
    // The source as its listing walks it: resolved, so that relative paths name the same items.
    static SharedFolder openSourceRoot(const Path& source) {
        try {
            return std::make_shared<const FileHandle>(
                handles::openFolder(paths::resolved(source).native()));
        } catch (const Failure& failure) {
            raise(source, "validateSource", failure.error());
        }
    }

    // The mirror is walked on a second thread while the source is listed, as the two halves of
    // rsync do: an unchanged tree then costs little more than the longer of the two walks.
    void list() {
        std::jthread mirrorWalk([&] { mirror_ = listMirror(root_.path, filter_); });
        listing_ = readSource(source_, filter_);
        editors_ = services_.editors.snapshot();
        result_.recommendedProfile = recommendProfile(listing_.items, source_);
        for (const auto& item : listing_.items)
            result_.approximateSourceBytes += item.info.fileSize.value_or(0);
        for (const auto& folder : listing_.unreadableFolders) {
            unreadable_.push_back(folder.relativePath);
            result_.errors.push_back({paths::appending(source_, folder.relativePath), "copy",
                                      errors::posix(folder.error)});
        }
        mirrorWalk.join();

        // What lies below a folder that couldn't be read is unknown, not gone.
        for (auto& orphan : orphansOf(mirror_.items, listing_.items)) {
            if (!isAtOrBelowAny(orphan, unreadable_)) orphans_.push_back(std::move(orphan));
        }
        refusal_ =
            archiveRefusal(source_, listing_.items.size(), mirror_.items.size(), orphans_.size());
    }

    // False when a volume left: then nothing is archived.
    bool copyItems() {
        const std::size_t total = listing_.items.size();
        for (std::size_t i = 0; i < total; ++i) {
            if (stop_.stop_requested()) break;
            if (i > 0 && i % volumeCheckInterval == 0) {
                if (auto lost = checkVolumes(source_, root_.path)) {
                    endByVolumeLoss(std::move(*lost));
                    return false;
                }
            }
            const double fraction = double(i) / double(total);
            const ListedItem& item = listing_.items[i];
            if (onProgress_) onProgress_(fraction, std::string(lastComponent(item.relativePath)));
            if (!copyItem(item, fraction)) {
                endByVolumeLoss(std::nullopt);
                return false;
            }
            if (batch_.isFull()) batch_.flush(result_);
        }
        return true;
    }

    // Copies made before the loss still go in where the mirror is there to take them.
    void endByVolumeLoss(std::optional<FileOperationError> lost) {
        if (root_.isPresent()) {
            batch_.flush(result_);
        } else {
            batch_.abandon(result_);
        }
        if (lost) result_.errors.push_back(std::move(*lost));
        result_.abortedDueToVolumeLoss = true;
    }

    // False when the mirror's volume left while the way was cleared.
    bool copyItem(const ListedItem& item, double fraction) {
        const std::string& relative = item.relativePath;
        // What the mirror held before the pass is what it holds at this item: a copy writes
        // only at its own item's path.
        const auto inMirror = mirror_.entries.find(relative);
        if (!needsCopy(item.info, inMirror == mirror_.entries.end()
                                      ? std::nullopt
                                      : std::optional<FileInfo>(inMirror->second))) {
            return true;
        }
        const Path sourceItem = paths::appending(source_, relative);
        const Path destinationItem = paths::appending(root_.path, relative);
        if (editors_.hasEditors() && isOpenInEditor(editors_, sourceItem, &item.info)) {
            for (const auto& name : editors_.names)
                result_.filesDeferredByEditor[name] += 1;
            return true;
        }

        services_.gate.pauseBetweenFiles(stop_);
        transfer::Item from(sourceItem);
        try {
            from.folder = sourceFolders_.folderOf(relative);
        } catch (const Failure& failure) {
            batch_.addError({sourceItem, "copy", failure.error()});
            return true;
        }
        if (::faccessat(from.folder->get(), std::string(lastComponent(relative)).c_str(), R_OK,
                        AT_EACCESS) != 0) {
            batch_.addError({sourceItem, "copy",
                             errors::quillstow(1008, "Source file became unreadable mid-backup.")});
            return true;
        }
        if (const auto obstacle = obstacleFor(relative, item.info, mirror_.entries)) {
            if (refusal_) {
                // The old item stays, so the new one can't go in: the rail says why.
                batch_.addError({destinationItem, "copy", refusal_->underlying});
                return true;
            }
            if (!moveAside(*obstacle)) return root_.isPresent();
        }
        attemptCopy(from, destinationItem, relative, fraction);
        return true;
    }

    // Moves an item in the way of a copy into the archive, with everything below it.
    bool moveAside(const std::string& obstacle) {
        if (isAtOrBelowAny(obstacle, movedAside_)) return true;
        const auto outcome = mover_.move(obstacle, result_);
        if (outcome == ArchiveMover::Outcome::failed ||
            outcome == ArchiveMover::Outcome::volumeLost) {
            return false;
        }
        movedAside_.push_back(obstacle);
        mirrorFolders_.forget();
        if (outcome == ArchiveMover::Outcome::moved) {
            result_.archivedFiles += int(std::count_if(
                mirror_.items.begin(), mirror_.items.end(),
                [&](const std::string& item) { return isAtOrBelow(item, obstacle); }));
        }
        return true;
    }

    // The first attempt, and at once a second one after a transient error; on a full drive,
    // the copies waiting for their swap go in first, freeing their old versions, and the item is
    // tried once more. The swap of each waits for the batch.
    void attemptCopy(const transfer::Item& from, const Path& destinationItem,
                     const std::string& relative, double fraction) {
        bool madeRoom = false;
        const auto copy = [&](bool isRetry) {
            for (;;) {
                try {
                    // Reached from the mirror's open root, folders made on its volume, no link
                    // followed: a link made in place of a folder since the listing stops here.
                    transfer::Item to(destinationItem);
                    try {
                        to.folder = mirrorFolders_.folderOf(relative);
                    } catch (const Failure& failure) {
                        throw FileOperationFailure(
                            {destinationItem.parent_path(), "createDirectory", failure.error()});
                    }
                    const StreamContext context{onProgress_, fraction, &services_.gate, stop_};
                    batch_.addCopy(transfer::prepareVerifiedCopy(services_.fileSystem, from, to,
                                                                 &root_, context),
                                   from, relative, isRetry, fraction);
                    return;
                } catch (const Failure& failure) {
                    if (madeRoom || !errors::isPosix(failure.error(), ENOSPC) ||
                        !batch_.hasPendingCopies()) {
                        throw;
                    }
                    madeRoom = true;
                    batch_.flush(result_);
                }
            }
        };
        try {
            withRetry(copy, {stop_, nullptr});
        } catch (const transfer::SizeMismatch& mismatch) {
            batch_.addError(sizeMismatchError(mismatch.destination));
        } catch (const Failure& failure) {
            batch_.addError({from.path, "copy", failure.error()});
        } catch (const FileOperationFailure& failure) {
            batch_.addError({from.path, "copy", asError(failure.error())});
        }
    }

    void archive() {
        std::vector<std::string> orphans;
        for (const auto& orphan : orphans_) {
            if (!isAtOrBelowAny(orphan, movedAside_)) orphans.push_back(orphan);
        }
        result_.archivedFiles +=
            archiveOrphans(mover_, source_, root_, orphans, refusal_, result_, stop_);
    }

    // Folders keep their source's modification dates, as `cp -a` and `rsync -a` keep them: set
    // last, since every swap and move in a folder changed its date.
    void restoreFolderDates() {
        if (!root_.isPresent()) return;
        const auto touched = touchedFolders();
        FolderCursor dates(root_.folder);
        for (const auto& folder : listing_.folders) {
            if (!folder.modificationDate) continue;
            const auto inMirror = mirror_.entries.find(folder.relativePath);
            const bool unchanged = inMirror != mirror_.entries.end() &&
                                   inMirror->second.isDirectory() &&
                                   inMirror->second.modificationDate == folder.modificationDate &&
                                   !touched.contains(folder.relativePath);
            if (unchanged) continue;
            try {
                const SharedFolder& parent = dates.folderOf(folder.relativePath);
                files::setModificationDateAt(
                    parent->get(), std::string(lastComponent(folder.relativePath)).c_str(),
                    *folder.modificationDate);
            } catch (const Failure&) {
                // A folder the pass couldn't reach keeps the date it has.
            }
        }
    }

    // The folders of the mirror that the pass wrote into, and those above them.
    std::unordered_set<std::string> touchedFolders() const {
        std::unordered_set<std::string> folders;
        const auto addFoldersOf = [&](const std::string& path) {
            for (auto slash = path.rfind('/'); slash != std::string::npos && slash > 0;
                 slash = path.rfind('/', slash - 1)) {
                if (!folders.insert(path.substr(0, slash)).second) break;
            }
        };
        for (const auto& path : result_.copiedRelativePaths)
            addFoldersOf(path);
        for (const auto& path : movedAside_)
            addFoldersOf(path);
        if (result_.archivedFiles > 0) {
            for (const auto& path : orphans_)
                addFoldersOf(path);
        }
        return folders;
    }

    const Services services_;
    const Path& source_;
    const transfer::MirrorRoot root_;
    FolderCursor sourceFolders_;
    FolderCursor mirrorFolders_;
    const ExclusionFilter& filter_;
    const FileCopier::ProgressCallback& onProgress_;
    const std::stop_token stop_;
    ArchiveMover mover_;
    SwapBatch batch_;

    BackupResult result_;
    SourceListing listing_;
    MirrorListing mirror_;
    EditorSnapshot editors_;
    std::vector<std::string> unreadable_;
    std::vector<std::string> orphans_;
    std::optional<FileOperationError> refusal_;
    std::vector<std::string> movedAside_;
};

}  // namespace

FileCopier::FileCopier(FileSystem& fileManager, const RunningEditors& editors,
                       const WallClock& wallClock, const Clock& clock, const ActivityGate& gate)
    : fileManager_(fileManager),
      editors_(editors),
      wallClock_(wallClock),
      clock_(clock),
      gate_(gate) {}

const ActivityGate& FileCopier::defaultActivityGate() {
    static const ActivityGate gate;
    return gate;
}

FileCopier::FileCopier(FileSystem& fileManager)
    : FileCopier(fileManager, noEditors, systemWallClock, monotonicClock) {}

BackupResult FileCopier::scanAndCopy(const Path& source, const Path& destination,
                                     const Path& trashRoot, const ExclusionFilter& filter,
                                     const ProgressCallback& onProgress,
                                     std::stop_token stop) const {
    const Date startDate = wallClock_.now();
    const double startTime = clock_.now();
    transfer::MirrorRoot root = checkBeforeTouching(fileManager_, source, destination);
    const CheckpointGuard checkpoint(destination, startDate);

    Pass pass({fileManager_, editors_, gate_}, source, std::move(root), trashRoot, startDate,
              filter, onProgress, stop);
    BackupResult result = pass.run();
    result.duration = clock_.now() - startTime;
    return result;
}

std::int64_t FileCopier::estimateBytesToCopy(const Path& source, const Path& destination,
                                             const ExclusionFilter& filter) const {
    std::int64_t bytes = 0;
    files::TreeReader mirror(destination);
    for (const auto& item : listSource(source, filter)) {
        if (!item.info.fileSize) continue;
        if (needsCopy(item.info, mirror.readInfo(item.relativePath))) bytes += *item.info.fileSize;
    }
    return bytes;
}

std::vector<std::string> FileCopier::differingSizes(
    const Path& source, const Path& destination,
    const std::vector<std::string>& relativePaths) const {
    std::vector<std::string> differing;
    files::TreeReader sourceTree(source);
    files::TreeReader mirrorTree(destination);
    for (const auto& relative : relativePaths) {
        const auto sourceInfo = sourceTree.readInfo(relative);
        const auto destinationInfo = mirrorTree.readInfo(relative);
        const bool same = sourceInfo && destinationInfo && sourceInfo->fileSize &&
                          destinationInfo->fileSize &&
                          *sourceInfo->fileSize == *destinationInfo->fileSize;
        if (!same) differing.push_back(relative);
    }
    return differing;
}

void FileCopier::removeStaleTemporaries(const Path& source, const Path& destination) const {
    // Only inside a mirror that the path rules accept: never in a source, nor in a system folder.
    try {
        validatePaths(source, destination);
    } catch (const FileOperationFailure&) {
        return;
    }
    const auto info = files::readInfo(destination);
    if (!info || !info->isDirectory()) return;
    transfer::removeStaleTemporaries(fileManager_, destination);
}

std::int64_t FileCopier::copyFile(const Path& source, const Path& destination,
                                  const ProgressCallback& onProgress, double fraction,
                                  std::stop_token stop) const {
    return transfer::copyFile(fileManager_, source, destination,
                              StreamContext{onProgress, fraction, &gate_, stop});
}

}  // namespace quillstow
