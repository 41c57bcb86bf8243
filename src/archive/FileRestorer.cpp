#include "archive/FileRestorer.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <set>
#include <utility>

#include "archive/RestoreTexts.hpp"
#include "copy/FileTransfer.hpp"
#include "copy/StreamedCopy.hpp"
#include "environment/MountTable.hpp"
#include "support/AtomicFile.hpp"
#include "support/Error.hpp"
#include "support/FileHandle.hpp"
#include "support/Paths.hpp"
#include "support/Uuid.hpp"

namespace quillstow {

namespace fs = std::filesystem;

std::vector<RestoreJob> restoreJobs(const std::vector<RestoreFileItem>& files,
                                    const fs::path& backupRoot) {
    std::vector<RestoreJob> jobs;
    for (const auto& file : files) {
        if (file.isSelected) {
            jobs.push_back({paths::appending(backupRoot, file.relativePath), file.relativePath,
                            file.fileSize});
        }
    }
    return jobs;
}

std::vector<RestoreJob> recoveryJobs(const std::vector<DeletedFileItem>& items,
                                     const fs::path& archiveRoot) {
    std::vector<RestoreJob> jobs;
    std::set<std::string> targets;
    for (const auto& item : items) {
        if (!item.file.isSelected || !targets.insert(item.file.relativePath).second) continue;
        jobs.push_back({paths::appending(archiveRoot, item.archivedPath), item.file.relativePath,
                        item.file.fileSize});
    }
    return jobs;
}

std::string RestoreOutcome::message() const {
    return restoretext::summary(restored, failed, cancelled);
}

std::string restoreTemporaryName(const std::string& name) {
    const std::string suffix = ".restore-" + Uuid::random().text().substr(0, 8);
    return "." + atomicfile::fittedName("." + suffix, name) + suffix;
}

namespace {

// Closes a descriptor on every path out.
constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Opens each folder of `relativeFolder` below `root`, making those that are missing. A link
// anywhere on the way fails (ELOOP or ENOTDIR), wherever it points: nothing is followed.
FileHandle openFolderBelow(int root, const std::string& relativeFolder) {
    FileHandle current(::fcntl(root, F_DUPFD_CLOEXEC, 0));
    if (current.get() < 0) throwPosix(errno);
    for (std::size_t start = 0; start < relativeFolder.size();) {
        std::size_t end = relativeFolder.find('/', start);
        if (end == std::string::npos) end = relativeFolder.size();
        const std::string component = relativeFolder.substr(start, end - start);
        start = end + 1;
        if (component.empty() || component == "." || component == "..") throwPosix(EINVAL);
        int next = ::openat(current.get(), component.c_str(), folderFlags);
        if (next < 0 && errno == ENOENT) {
            if (::mkdirat(current.get(), component.c_str(), 0777) != 0 && errno != EEXIST) {
                throwPosix(errno);
            }
            next = ::openat(current.get(), component.c_str(), folderFlags);
        }
        if (next < 0) throwPosix(errno);
        current = FileHandle(next);
    }
    return current;
}

// The chosen folder, made with the folders above it when it is missing: restoring to the
// original after the source folder was lost puts it back. Nothing is made for a drive that is
// not there, as it would land on the disk below its empty mount point. Closed on failure.
FileHandle openOrMakeRoot(const fs::path& resolvedRoot) {
    FileHandle root(::open(resolvedRoot.c_str(), folderFlags));
    if (root.isOpen() || errno != ENOENT) return root;
    const auto mount = MountTable::mount(resolvedRoot.native(), MountTable::snapshot());
    if (mount && isMissingDrive(resolvedRoot.native(), *mount)) return root;
    std::error_code error;
    fs::create_directories(resolvedRoot, error);
    return FileHandle(::open(resolvedRoot.c_str(), folderFlags));
}

// Only a file is replaced: a link or a folder at the target's name fails the restore of it.
void throwUnlessFileOrNothingAt(int folder, const std::string& name) {
    struct stat status {};
    if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) return;
        throwPosix(errno);
    }
    if (S_ISLNK(status.st_mode)) throwPosix(ELOOP);
    if (!S_ISREG(status.st_mode)) throwPosix(EISDIR);
}

FileHandle openSource(const fs::path& source, struct stat& status) {
    // O_NOATIME leaves the backup as it was, access times included; it needs ownership.
    int fd = ::open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NOATIME);
    if (fd < 0 && errno == EPERM) fd = ::open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    FileHandle handle(fd);
    if (fd < 0 || ::fstat(fd, &status) != 0) throwPosix(errno);
    if (!S_ISREG(status.st_mode)) throwPosix(EINVAL);
    return handle;
}

// Counts files and bytes and tells them on.
class ProgressCount {
  public:
    ProgressCount(const std::vector<RestoreJob>& jobs, const RestoreProgressCallback& onProgress)
        : onProgress_(onProgress) {
        progress_.filesTotal = std::int64_t(jobs.size());
        for (const auto& job : jobs)
            progress_.bytesTotal += job.size;
    }

    void copied(std::int64_t bytesOfFile) { tell(bytesOfFile); }
    void fileDone(const RestoreJob& job) {
        ++progress_.filesDone;
        bytesBefore_ += job.size;
        tell(0);
    }

  private:
    void tell(std::int64_t bytesOfFile) {
        progress_.bytesDone = bytesBefore_ + bytesOfFile;
        if (onProgress_) onProgress_(progress_);
    }

    const RestoreProgressCallback& onProgress_;
    RestoreProgress progress_;
    std::int64_t bytesBefore_ = 0;
};

// The data in chunks through the pass's own operations, then the length (a hole at the end
// has no chunk), then the metadata, times last. A source that changed under the copy fails it.
void copyContent(FileSystem& fileSystem, int from, int to, const struct stat& status,
                 ProgressCount& progress, const std::stop_token& stop) {
    for (std::int64_t done = 0;;) {
        if (stop.stop_requested()) throw Failure(errors::cancellation());
        const std::size_t copied = fileSystem.copyChunk(from, to, done, chunkSize);
        if (copied == 0) break;
        done += std::int64_t(copied);
        if (status.st_size > std::int64_t(chunkSize)) progress.copied(done);
    }
    if (::ftruncate(to, status.st_size) != 0) throwPosix(errno);
    transfer::throwIfChangedSince(from, status);
    fileSystem.copyMetadata(from, to);
}

bool haveSameSize(int a, int b) {
    struct stat first {};
    struct stat second {};
    return ::fstat(a, &first) == 0 && ::fstat(b, &second) == 0 && first.st_size == second.st_size;
}

// A checked copy under its temporary name beside the target, waiting for its flush and rename.
struct PreparedRestore {
    FileHandle folder;
    std::string temporary;
    std::string name;
};

// Copies to the temporary name and checks the copy's size against the source's. On any failure
// the temporary goes; what stands at the target is untouched either way.
std::string copyToTemporary(FileSystem& fileSystem, int source, const struct stat& status,
                            int folder, const std::string& name, ProgressCount& progress,
                            const std::stop_token& stop) {
    const std::string temporary = restoreTemporaryName(name);
    (void)::unlinkat(folder, temporary.c_str(), 0);
    FileHandle copy(::openat(folder, temporary.c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (copy.get() < 0) throwPosix(errno);
    try {
        copyContent(fileSystem, source, copy.get(), status, progress, stop);
        // A copy that came up short reads as an I/O error: nothing more is told per file.
        if (!haveSameSize(source, copy.get())) throwPosix(EIO);
        copy.closeChecked();
    } catch (const Failure&) {
        (void)::unlinkat(folder, temporary.c_str(), 0);
        throw;
    }
    return temporary;
}

// Raises Failure, the cancellation error when `stop` came during the copy.
PreparedRestore prepareRestore(FileSystem& fileSystem, int root, const fs::path& resolvedRoot,
                               const RestoreJob& job, ProgressCount& progress,
                               const std::stop_token& stop) {
    const fs::path target = paths::appending(resolvedRoot, job.targetRelativePath);
    const auto relative = safeRelativePath(target.native(), resolvedRoot.native());
    if (!relative) throwPosix(EINVAL);
    const auto slash = relative->rfind('/');
    const std::string folderPath = slash == std::string::npos ? "" : relative->substr(0, slash);
    std::string name = slash == std::string::npos ? *relative : relative->substr(slash + 1);
    FileHandle folder = openFolderBelow(root, folderPath);
    throwUnlessFileOrNothingAt(folder.get(), name);
    struct stat status {};
    const FileHandle source = openSource(job.source, status);
    std::string temporary =
        copyToTemporary(fileSystem, source.get(), status, folder.get(), name, progress, stop);
    return {std::move(folder), std::move(temporary), std::move(name)};
}

// Checked copies wait here for one flush of their volume instead of one each, which on a busy
// disk cost several times the copy of a small file; then each is renamed over its target. So
// after a power cut a target holds its old file or the whole new one.
class PendingSwaps {
  public:
    static constexpr std::size_t maximumCopies = 256;
    static constexpr std::int64_t maximumBytes = std::int64_t(64) << 20;

    PendingSwaps() = default;
    PendingSwaps(const PendingSwaps&) = delete;
    PendingSwaps& operator=(const PendingSwaps&) = delete;
    ~PendingSwaps() {
        for (const auto& copy : copies_)
            (void)::unlinkat(copy.folder.get(), copy.temporary.c_str(), 0);
    }

    void add(PreparedRestore copy, std::int64_t size) {
        copies_.push_back(std::move(copy));
        bytes_ += size;
    }
    bool isFull() const { return copies_.size() >= maximumCopies || bytes_ >= maximumBytes; }

    // A copy whose volume can't be flushed, or that can't be renamed, fails and is removed.
    void swapAll(RestoreOutcome& outcome) {
        std::map<dev_t, bool> flushed;
        for (const auto& copy : copies_) {
            struct stat status {};
            const bool known = ::fstat(copy.folder.get(), &status) == 0;
            auto [volume, isNew] = flushed.try_emplace(status.st_dev, known);
            if (isNew && known) volume->second = ::syncfs(copy.folder.get()) == 0;
            const int folder = copy.folder.get();
            if (known && volume->second &&
                ::renameat(folder, copy.temporary.c_str(), folder, copy.name.c_str()) == 0) {
                ++outcome.restored;
            } else {
                (void)::unlinkat(folder, copy.temporary.c_str(), 0);
                ++outcome.failed;
            }
        }
        copies_.clear();
        bytes_ = 0;
    }

  private:
    std::vector<PreparedRestore> copies_;
    std::int64_t bytes_ = 0;
};

}  // namespace

RestoreOutcome restoreFiles(FileSystem& fileSystem, const std::vector<RestoreJob>& jobs,
                            const fs::path& destination, const RestoreProgressCallback& onProgress,
                            std::stop_token stop) {
    RestoreOutcome outcome;
    ProgressCount progress(jobs, onProgress);
    const fs::path resolvedRoot = paths::resolved(destination);
    const FileHandle root = openOrMakeRoot(resolvedRoot);
    PendingSwaps pending;
    for (const auto& job : jobs) {
        if (stop.stop_requested()) {
            outcome.cancelled = true;
            break;
        }
        try {
            if (!root.isOpen()) throwPosix(ENOENT);
            pending.add(prepareRestore(fileSystem, root.get(), resolvedRoot, job, progress, stop),
                        job.size);
        } catch (const Failure& failure) {
            if (errors::isCancellation(failure.error())) {
                outcome.cancelled = true;
                break;
            }
            ++outcome.failed;
        }
        progress.fileDone(job);
        if (pending.isFull()) pending.swapAll(outcome);
    }
    // Copies made before a cancel are whole and checked: they go into place too.
    pending.swapAll(outcome);
    return outcome;
}

}  // namespace quillstow
