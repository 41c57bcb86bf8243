#include "copy/FileCopier.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <unordered_set>

#include "copy/Checkpoint.hpp"
#include "copy/DeletionArchive.hpp"
#include "copy/FileTransfer.hpp"
#include "copy/PathRules.hpp"
#include "copy/ProfileRecommendation.hpp"
#include "copy/SwapBatch.hpp"
#include "copy/VolumeWatch.hpp"
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

// Every how many items the mount table is looked at, and at most how many items a copy follows
// the last full check of the two top folders.
constexpr std::size_t volumeCheckInterval = 10;

bool isAtOrBelowAny(std::string_view path, const std::vector<std::string>& folders) {
    return std::any_of(folders.begin(), folders.end(),
                       [&](const std::string& folder) { return isAtOrBelow(path, folder); });
}

// The volume an open folder lies on; 0, which no check matches, when it can't be read.
dev_t deviceOf(const SharedFolder& folder) {
    struct stat status {};
    return ::fstat(folder->get(), &status) == 0 ? status.st_dev : 0;
}

// What the listing read of an item, as its copy takes it: the pass's one reading of a listed
// item's details for a copy. A folder copied whole counts its size as its copy reads it.
transfer::ListedSource listedSource(const ListedItem& item) {
    return {item.isDirectory(), item.byteCount()};
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
              errors::quillstow(ErrorCode::destinationIsLink,
                                "Destination path is a symbolic link — refusing to write "
                                "to prevent data redirection."));
    }
    if (!files::isReadable(source)) {
        raise(source, "validateSource",
              errors::quillstow(ErrorCode::sourceNotReadable,
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
              errors::quillstow(ErrorCode::destinationNotWritable,
                                "Destination folder is not writable — check permissions "
                                "or disk space."));
    }
    try {
        return transfer::MirrorRoot::at(destination);
    } catch (const Failure& failure) {
        raise(destination, "validateDestination", failure.error());
    }
}

// How the copy of the items ended: through the list (or stopped), or by a volume that left, after
// which nothing is archived.
enum class CopyOutcome { finished, volumeLost };

// One pass over its plan, in the steps of its data: what the listing tells the result, the copy
// of each item the plan names, the archive of what left the source, and the folders' dates last.
class Pass {
  public:
    struct Services {
        FileSystem& fileSystem;
        const RunningEditors& editors;
        const ActivityGate& gate;
    };

    Pass(Services services, const PassPlan& plan, transfer::MirrorRoot root, const Path& trashRoot,
         Date start, const FileCopier::ProgressCallback& onProgress, std::stop_token stop)
        : services_(services),
          plan_(plan),
          root_(std::move(root)),
          sourceFolders_(openSourceRoot(plan.source)),
          mirrorFolders_(root_.folder, root_.device),
          volumes_(plan.source, deviceOf(sourceFolders_.root()), root_.path, root_.device),
          onProgress_(onProgress),
          stop_(stop),
          mover_(services.fileSystem, root_, trashRoot, start),
          batch_(services.fileSystem, root_, sourceFolders_.root(),
                 StreamContext{onProgress, 0, &services.gate, stop}) {}

    BackupResult run() {
        readListing();
        if (copyItems() == CopyOutcome::finished) {
            batch_.flush(result_);
            archive();
        }
        restoreFolderDates();
        return std::move(result_);
    }

  private:
    // The source as its listing walked it: resolved, so that relative paths name the same items.
    static SharedFolder openSourceRoot(const Path& source) {
        try {
            return std::make_shared<const FileHandle>(
                handles::openFolder(paths::resolved(source).native()));
        } catch (const Failure& failure) {
            raise(source, "validateSource", failure.error());
        }
    }

    void readListing() {
        const SourceListing& listing = plan_.listing;
        editors_ = services_.editors.snapshot();
        result_.recommendedProfile = recommendProfile(listing.items, plan_.source);
        for (const auto& item : listing.items)
            result_.approximateSourceBytes += item.byteCount();
        for (const auto& folder : listing.unreadableFolders) {
            result_.errors.push_back({paths::appending(plan_.source, folder.relativePath), "copy",
                                      errors::posix(folder.error)});
        }
        refusal_ = archiveRefusal(plan_.source, listing.items.size(), plan_.mirrorItemCount,
                                  plan_.orphans.size());
    }

    // Every item is reported, copied or not. At every tenth item the mount table is looked at,
    // and a change there checks both folders at once; a copy checks them first once ten more
    // items have gone by since the last check, so a copy never follows a check by more.
    CopyOutcome copyItems() {
        const auto& items = plan_.listing.items;
        const std::size_t total = items.size();
        auto next = plan_.copies.begin();
        std::size_t checkedAt = 0;
        for (std::size_t i = 0; i < total; ++i) {
            if (stop_.stop_requested()) break;
            const bool copies = next != plan_.copies.end() && next->item == i;
            const bool isTenth = i > 0 && i % volumeCheckInterval == 0;
            if ((isTenth && volumes_.mountsChanged()) ||
                (copies && i >= checkedAt + volumeCheckInterval)) {
                checkedAt = i - i % volumeCheckInterval;
                if (auto lost = volumes_.check()) return endByVolumeLoss(std::move(*lost));
            }
            const double fraction = double(i) / double(total);
            if (onProgress_)
                onProgress_(fraction, std::string(lastComponent(items[i].relativePath())));
            if (!copies) continue;
            if (copyItem(items[i], *next++, fraction) == CopyOutcome::volumeLost) {
                return endByVolumeLoss(std::nullopt);
            }
            batch_.flushWhenFull(result_);
        }
        return CopyOutcome::finished;
    }

    // Copies made before the loss still go in where the mirror is there to take them.
    CopyOutcome endByVolumeLoss(std::optional<FileOperationError> lost) {
        if (root_.isPresent()) {
            batch_.flush(result_);
        } else {
            batch_.abandon(result_);
        }
        if (lost) result_.errors.push_back(std::move(*lost));
        result_.abortedDueToVolumeLoss = true;
        return CopyOutcome::volumeLost;
    }

    // An item open in an editor waits for the next pass: it counts once against every editor.
    // The listing keeps no device and inode, so they are read here, only while editors run.
    bool deferredByEditor(const Path& sourceItem) {
        if (!editors_.hasEditors()) return false;
        const auto info = files::readInfo(sourceItem);
        if (!isOpenInEditor(editors_, sourceItem, info ? &*info : nullptr)) return false;
        for (const auto& name : editors_.names)
            result_.filesDeferredByEditor[name] += 1;
        return true;
    }

    CopyOutcome copyItem(const ListedItem& item, const PlannedCopy& copy, double fraction) {
        const std::string relative(item.relativePath());
        const Path sourceItem = paths::appending(plan_.source, relative);
        const Path destinationItem = paths::appending(root_.path, relative);
        if (deferredByEditor(sourceItem)) return CopyOutcome::finished;

        services_.gate.pauseBetweenFiles(stop_);
        transfer::Item from(sourceItem);
        from.listed = listedSource(item);
        try {
            from.folder = sourceFolders_.folderOf(relative);
        } catch (const Failure& failure) {
            batch_.addError({sourceItem, "copy", failure.error()});
            return CopyOutcome::finished;
        }
        if (::faccessat(from.folder->get(), std::string(lastComponent(relative)).c_str(), R_OK,
                        AT_EACCESS) != 0) {
            batch_.addError({sourceItem, "copy",
                             errors::quillstow(ErrorCode::sourceBecameUnreadable,
                                               "Source file became unreadable mid-backup.")});
            return CopyOutcome::finished;
        }
        if (copy.obstacle) {
            if (refusal_) {
                // The old item stays, so the new one can't go in: the rail says why.
                batch_.addError({destinationItem, "copy", refusal_->underlying});
                return CopyOutcome::finished;
            }
            if (!moveAside(*copy.obstacle)) {
                return root_.isPresent() ? CopyOutcome::finished : CopyOutcome::volumeLost;
            }
        }
        attemptCopy(from, destinationItem, relative, fraction);
        return CopyOutcome::finished;
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
                plan_.mirror.entries().begin(), plan_.mirror.entries().end(),
                [&](const MirrorEntry& entry) {
                    return entry.isItem && isAtOrBelow(entry.relativePath(), obstacle);
                }));
        }
        return true;
    }

    // The open folder of the mirror that takes the item: reached from the mirror's open root,
    // folders made on its volume, no link followed, so a link made in place of a folder since
    // the listing stops here.
    transfer::Item destinationOf(const Path& destinationItem, const std::string& relative) {
        transfer::Item to(destinationItem);
        try {
            to.folder = mirrorFolders_.folderOf(relative);
        } catch (const Failure& failure) {
            throw FileOperationFailure(
                {destinationItem.parent_path(), "createDirectory", failure.error()});
        }
        return to;
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
                    const transfer::Item to = destinationOf(destinationItem, relative);
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
        for (const auto& orphan : plan_.orphans) {
            if (!isAtOrBelowAny(orphan, movedAside_)) orphans.push_back(orphan);
        }
        result_.archivedFiles +=
            archiveOrphans(mover_, plan_.source, root_, orphans, refusal_, result_, stop_);
    }

    // Folders keep their source's modification dates, as `cp -a` and `rsync -a` keep them: set
    // last, since every swap and move in a folder changed its date.
    void restoreFolderDates() {
        if (!root_.isPresent()) return;
        const auto touched = touchedFolders();
        FolderCursor dates(root_.folder);
        for (const auto& folder : plan_.listing.folders) {
            if (!folder.modificationDate) continue;
            const MirrorEntry* inMirror = plan_.mirror.find(folder.relativePath);
            const bool unchanged = inMirror && inMirror->isDirectory() &&
                                   inMirror->info().modificationDate == folder.modificationDate &&
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
            for (const auto& path : plan_.orphans)
                addFoldersOf(path);
        }
        return folders;
    }

    const Services services_;
    const PassPlan& plan_;
    const transfer::MirrorRoot root_;
    FolderCursor sourceFolders_;
    FolderCursor mirrorFolders_;
    VolumeWatch volumes_;
    const FileCopier::ProgressCallback& onProgress_;
    const std::stop_token stop_;
    ArchiveMover mover_;
    SwapBatch batch_;

    BackupResult result_;
    EditorSnapshot editors_;
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
    return scanAndCopy(planPass(source, destination, filter), trashRoot, onProgress, stop);
}

BackupResult FileCopier::scanAndCopy(const PassPlan& plan, const Path& trashRoot,
                                     const ProgressCallback& onProgress,
                                     std::stop_token stop) const {
    const Date startDate = wallClock_.now();
    const double startTime = clock_.now();
    transfer::MirrorRoot root = checkBeforeTouching(fileManager_, plan.source, plan.destination);
    const CheckpointGuard checkpoint(plan.destination, startDate);
    BackupResult result = Pass({fileManager_, editors_, gate_}, plan, std::move(root), trashRoot,
                               startDate, onProgress, stop)
                              .run();
    result.duration = plan.walkSeconds + (clock_.now() - startTime);
    return result;
}

PassPlan FileCopier::planPass(const Path& source, const Path& destination,
                              const ExclusionFilter& filter) const {
    const double startTime = clock_.now();
    PassPlan plan = quillstow::planPass(fileManager_, source, destination, filter);
    plan.walkSeconds = clock_.now() - startTime;
    return plan;
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

void FileCopier::removeStaleTemporaries(const PassPlan& plan) const {
    if (plan.staleTemporaries.empty()) return;
    // Only inside a mirror that the path rules accept: never in a source, nor in a system folder.
    try {
        validatePaths(plan.source, plan.destination);
    } catch (const FileOperationFailure&) {
        return;
    }
    const auto info = files::readInfo(plan.destination);
    if (!info || !info->isDirectory()) return;
    std::optional<FolderCursor> folders;
    try {
        folders.emplace(std::make_shared<const FileHandle>(
            handles::openFolder(paths::resolved(plan.destination).native())));
    } catch (const Failure&) {
        return;
    }
    // Each one is reached as the walk found it, no link followed on the way.
    for (const auto& relative : plan.staleTemporaries) {
        try {
            const SharedFolder& folder = folders->folderOf(relative);
            fileManager_.removeItem({folder->get(), std::string(lastComponent(relative))});
        } catch (const Failure&) {
            // Left for the next pass.
        }
    }
}

std::int64_t FileCopier::copyFile(const Path& source, const Path& destination,
                                  const ProgressCallback& onProgress, double fraction,
                                  std::stop_token stop) const {
    return transfer::copyFile(fileManager_, source, destination,
                              StreamContext{onProgress, fraction, &gate_, stop});
}

}  // namespace quillstow
