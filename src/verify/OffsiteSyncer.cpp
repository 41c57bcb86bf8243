#include "verify/OffsiteSyncer.hpp"

#include "copy/FileTransfer.hpp"
#include "copy/SourceListing.hpp"
#include "environment/VolumeSpace.hpp"
#include "support/FileInfo.hpp"
#include "support/Paths.hpp"
#include "support/Retry.hpp"
#include "support/TreeWalk.hpp"
#include "support/Uuid.hpp"

namespace quillstow {

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t bytesPerMegabyte = 1048576;

FileOperationError folderLost(const fs::path& offsiteRoot) {
    return {
        offsiteRoot, "offsiteReachability",
        errors::quillstow(ErrorCode::offsiteFolderLost,
                          "Offsite folder became unavailable mid-sync — pausing offsite copy.")};
}

std::int64_t sizeOf(const fs::path& file) {
    const auto info = files::readInfo(file);
    return info ? info->fileSize.value_or(0) : 0;
}

}  // namespace

bool isUnchanged(const fs::path& source, const fs::path& target) {
    return !needsCopy(source, target);
}

OffsiteSyncer::OffsiteSyncer(FileSystem& fileSystem, const ActivityGate& gate,
                             const Sleeper& sleeper, const Clock& clock, FolderTest isFolder)
    : fileSystem_(fileSystem),
      gate_(gate),
      sleeper_(sleeper),
      clock_(clock),
      isFolder_(isFolder ? std::move(isFolder) : FolderTest(files::isFolder)) {}

std::vector<std::string> OffsiteSyncer::scan(const fs::path& backupRoot,
                                             const ExclusionFilter& filter) const {
    std::vector<std::string> found;
    walkTree(paths::resolved(backupRoot), WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        const FileInfo& info = entry.info;
        if (info.isSymbolicLink()) return false;
        if (isInternalFileName(entry.name) || transfer::isReservedName(entry.name)) return false;
        if (filter.isExcluded(entry.name, info.isDirectory())) return false;
        if (info.isRegularFile()) found.push_back(entry.relativePath);
        return info.isDirectory();
    });
    return found;
}

std::int64_t OffsiteSyncer::copyFile(const fs::path& source, const fs::path& target,
                                     std::stop_token stop) const {
    const fs::path folder = target.parent_path();
    if (!files::isFolder(folder)) fileSystem_.createDirectories(folder);
    const std::int64_t size = sizeOf(source);
    // Every failure is tried again after a longer pause. A stop cuts the pause short and the
    // attempt is still made: a file under way is finished.
    int retries = 0;
    const RetryPolicy policy{
        {}, [&] { sleeper_.sleep(retryDelay * ++retries, stop); }, copyAttempts, isAnyFailure};
    withRetry([&](bool) { copyOnce(source, target, size); }, policy);
    return size;
}

void OffsiteSyncer::copyOnce(const fs::path& source, const fs::path& target,
                             std::int64_t size) const {
    const fs::path temporary =
        target.parent_path() / (std::string(transfer::temporaryPrefix) + Uuid::random().text());
    try {
        const std::int64_t copied = fileSystem_.copyItem(source, temporary).size;
        if (copied != size) {
            throw Failure(
                errors::quillstow(ErrorCode::offsiteSizeMismatch,
                                  "Offsite copy size mismatch: source=" + std::to_string(size) +
                                      ", copied=" + std::to_string(copied) + "."));
        }
        // What the cloud client picks up at the final name is whole, also after a power cut.
        fileSystem_.flushFile(temporary);
        transfer::swapIntoPlace(fileSystem_, {temporary, target, size});
    } catch (const Failure&) {
        removeQuietly(temporary);
        throw;
    }
}

OffsiteSyncResult OffsiteSyncer::sync(const fs::path& backupRoot, const fs::path& offsiteRoot,
                                      const ExclusionFilter& filter,
                                      const ProgressCallback& progress, std::stop_token stop) {
    const double start = clock_.now();
    OffsiteSyncResult result;
    const auto finish = [&]() -> OffsiteSyncResult {
        result.duration = clock_.now() - start;
        return result;
    };
    if (!files::exists(backupRoot)) return finish();
    if (!files::isFolder(offsiteRoot)) {
        try {
            fileSystem_.createDirectories(offsiteRoot);
        } catch (const Failure& failure) {
            result.errors.push_back({offsiteRoot, "createOffsiteDirectory", failure.error()});
            result.abortedDueToFolderLoss = true;
            return finish();
        }
    }
    const std::vector<std::string> relativePaths = scan(backupRoot, filter);
    if (relativePaths.empty()) return finish();

    std::int64_t neededBytes = 0;
    for (const auto& relative : relativePaths) {
        const fs::path source = paths::appending(backupRoot, relative);
        if (!isUnchanged(source, paths::appending(offsiteRoot, relative))) {
            neededBytes += sizeOf(source);
        }
    }
    if (neededBytes >= 1) {
        const auto available = volumes::availableCapacity(offsiteRoot);
        if (available && *available < neededBytes + freeSpaceMargin) {
            result.errors.push_back(
                {offsiteRoot, "offsiteDiskSpaceCheck",
                 errors::quillstow(ErrorCode::offsiteRoomShort,
                                   "Not enough room in the offsite folder. Need ~" +
                                       std::to_string(neededBytes / bytesPerMegabyte) +
                                       " MB, only ~" +
                                       std::to_string(*available / bytesPerMegabyte) +
                                       " MB free. Free up space in your cloud folder and "
                                       "try again.")});
            return finish();
        }
    }

    const std::size_t total = relativePaths.size();
    for (std::size_t i = 0; i < total; ++i) {
        if (stop.stop_requested()) break;
        if (i > 0 && i % reachabilityInterval == 0 && !isFolder_(offsiteRoot)) {
            result.errors.push_back(folderLost(offsiteRoot));
            result.abortedDueToFolderLoss = true;
            break;
        }
        gate_.pauseBetweenFiles(stop);
        const std::string& relative = relativePaths[i];
        const fs::path source = paths::appending(backupRoot, relative);
        const fs::path target = paths::appending(offsiteRoot, relative);
        if (progress) progress(double(i) / double(total), paths::lastPathComponent(source));
        if (isUnchanged(source, target)) continue;
        try {
            result.bytesTransferred += copyFile(source, target, stop);
            ++result.copiedFiles;
        } catch (const Failure& failure) {
            result.errors.push_back({source, "offsiteCopy", failure.error()});
        }
    }
    return finish();
}

}  // namespace quillstow
