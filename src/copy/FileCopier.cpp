#include "copy/FileCopier.hpp"

#include <thread>
#include <unordered_set>

#include "copy/Checkpoint.hpp"
#include "copy/DeletionArchive.hpp"
#include "copy/FileInfo.hpp"
#include "copy/FileTransfer.hpp"
#include "copy/PathRules.hpp"
#include "copy/ProfileRecommendation.hpp"
#include "copy/SourceListing.hpp"
#include "copy/SwapBatch.hpp"
#include "support/Paths.hpp"

namespace quillstow {

namespace {

using Path = std::filesystem::path;

const RunningEditors noEditors;
const SystemWallClock systemWallClock;
const MonotonicClock monotonicClock;

// Every how many items the two top folders are checked for presence.
constexpr std::size_t volumeCheckInterval = 10;

// The name of an item, from its relative path.
std::string lastComponentOf(const std::string& relativePath) {
    const auto slash = relativePath.rfind('/');
    return slash == std::string::npos ? relativePath : relativePath.substr(slash + 1);
}

// The mirror's items once the pass has copied: what the walk found, and what the pass added.
std::vector<std::string> itemsAfterCopying(std::vector<std::string> found,
                                           const BackupResult& result) {
    const std::unordered_set<std::string_view> known(found.begin(), found.end());
    std::vector<std::string> added;
    for (const auto& copied : result.copiedRelativePaths) {
        if (!known.contains(copied)) added.push_back(copied);
    }
    found.insert(found.end(), added.begin(), added.end());
    return found;
}

[[noreturn]] void raise(const Path& url, const char* operation, Error error) {
    throw FileOperationFailure({url, operation, std::move(error)});
}

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
        try {
            fileManager_.createDirectories(destination);
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

    const CheckpointGuard checkpoint(destination, startDate);

    // The mirror is walked on a second thread while the source is listed, as the two halves of
    // rsync do: an unchanged tree then costs little more than the longer of the two walks.
    MirrorListing mirror;
    std::jthread mirrorWalk([&] { mirror = listMirror(destination, filter); });
    BackupResult result;
    const std::vector<ListedItem> items = listSource(source, filter);
    const EditorSnapshot editors = editors_.snapshot();

    result.recommendedProfile = recommendProfile(items, source);
    for (const auto& item : items)
        result.approximateSourceBytes += item.info.fileSize.value_or(0);
    mirrorWalk.join();

    SwapBatch batch(fileManager_, destination);
    const std::size_t total = items.size();
    bool volumeLost = false;
    for (std::size_t i = 0; i < total; ++i) {
        if (stop.stop_requested()) break;
        if (i > 0 && i % volumeCheckInterval == 0) {
            if (auto lost = checkVolumes(source, destination)) {
                // Copies made before the loss still go in where the mirror is there to take them.
                if (files::isFolder(destination)) {
                    batch.flush(result);
                } else {
                    batch.abandon(result);
                }
                result.errors.push_back(std::move(*lost));
                result.abortedDueToVolumeLoss = true;
                volumeLost = true;
                break;
            }
        }

        const std::string& relative = items[i].relativePath;
        const double fraction = double(i) / double(total);
        if (onProgress) onProgress(fraction, lastComponentOf(relative));

        const FileInfo& sourceInfo = items[i].info;
        // What the mirror held before the pass is what it holds at this item: a copy writes
        // only at its own item's path.
        const auto inMirror = mirror.entries.find(relative);
        if (!needsCopy(sourceInfo, inMirror == mirror.entries.end()
                                       ? std::nullopt
                                       : std::optional<FileInfo>(inMirror->second))) {
            continue;
        }
        const Path sourceItem = paths::appending(source, relative);
        const Path destinationItem = paths::appending(destination, relative);

        if (editors.hasEditors() && isOpenInEditor(editors, sourceItem, &sourceInfo)) {
            for (const auto& name : editors.names)
                result.filesDeferredByEditor[name] += 1;
            continue;
        }

        gate_.pauseBetweenFiles(stop);

        if (!files::isReadable(sourceItem)) {
            batch.addError({sourceItem, "copy",
                            errors::quillstow(1008, "Source file became unreadable mid-backup.")});
            continue;
        }

        // The first attempt, and at once a second one after a transient error; the swap of
        // either waits for the batch.
        for (bool isRetry : {false, true}) {
            try {
                const StreamContext context{onProgress, fraction, &gate_, stop};
                batch.addCopy(transfer::prepareVerifiedCopy(fileManager_, sourceItem,
                                                            destinationItem, destination, context),
                              sourceItem, relative, isRetry);
                break;
            } catch (const transfer::SizeMismatch& mismatch) {
                batch.addError(sizeMismatchError(mismatch.destination));
                break;
            } catch (const Failure& failure) {
                if (isRetry || !transfer::isTransient(failure.error())) {
                    batch.addError({sourceItem, "copy", failure.error()});
                    break;
                }
            } catch (const FileOperationFailure& failure) {
                batch.addError({sourceItem, "copy", asError(failure.error())});
                break;
            }
        }
        if (batch.isFull()) batch.flush(result);
    }
    if (!volumeLost) {
        batch.flush(result);
        result.archivedFiles =
            archiveOrphans(fileManager_, source, destination, trashRoot, startDate, items,
                           itemsAfterCopying(std::move(mirror.items), result), result, stop);
    }
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
    for (const auto& relative : relativePaths) {
        const auto sourceInfo = files::readInfo(paths::appending(source, relative));
        const auto destinationInfo = files::readInfo(paths::appending(destination, relative));
        const bool same = sourceInfo && destinationInfo && sourceInfo->fileSize &&
                          destinationInfo->fileSize &&
                          *sourceInfo->fileSize == *destinationInfo->fileSize;
        if (!same) differing.push_back(relative);
    }
    return differing;
}

void FileCopier::removeStaleTemporaries(const Path& destination) const {
    transfer::removeStaleTemporaries(fileManager_, destination);
}

std::int64_t FileCopier::copyFile(const Path& source, const Path& destination,
                                  const ProgressCallback& onProgress, double fraction,
                                  std::stop_token stop) const {
    return transfer::copyFile(fileManager_, source, destination,
                              StreamContext{onProgress, fraction, &gate_, stop});
}

}  // namespace quillstow
