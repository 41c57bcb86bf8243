#include "archive/StagingFolder.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>

#include "support/AtomicFile.hpp"
#include "support/Error.hpp"
#include "support/FileInfo.hpp"
#include "support/TreeWalk.hpp"

namespace quillstow {

namespace {

using Path = std::filesystem::path;

// Freeing a file's blocks takes time in proportion to them: most of a second for a few
// gigabytes on some drives. A big file is cut down from its end a step at a time before it goes,
// so that its removal reports and stops as a copy does.
constexpr std::int64_t removalStep = std::int64_t(64) << 20;

std::int64_t allocatedBytes(int folder, const std::string& name) {
    struct stat status {};
    if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return 0;
    return S_ISREG(status.st_mode) ? std::int64_t(status.st_blocks) * 512 : 0;
}

// Answers false when stopped before the file is cut down to nothing. A file with another link
// is left whole: its blocks are shared with a name that isn't ours (a deduplicating tool may have
// linked a copy to the original), and the unlink after drops only our name.
bool cutDown(int folder, const std::string& name, const std::stop_token& stop,
             const OnRemoved& onRemoved) {
    const FileHandle file(
        ::openat(folder, name.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) return true;
    if (!S_ISREG(status.st_mode) || status.st_nlink > 1) return true;
    for (off_t size = status.st_size; size > 0;) {
        if (stop.stop_requested()) return false;
        size = std::max<off_t>(0, size - off_t(removalStep));
        if (::ftruncate(file.get(), size) != 0) return true;
        if (onRemoved) onRemoved(name);
    }
    return true;
}

}  // namespace

bool removeWithinGrace(const Path& item, std::stop_token stop, const Clock& clock,
                       double graceSeconds, const OnRemoved& onRemoved) {
    std::optional<double> stoppedAt;
    const auto timeIsUp = [&] {
        if (!stop.stop_requested()) return false;
        const double now = clock.now();
        if (!stoppedAt) stoppedAt = now;
        return now - *stoppedAt >= graceSeconds;
    };
    struct stat status {};
    if (::lstat(item.c_str(), &status) != 0) return errno == ENOENT;
    if (!S_ISDIR(status.st_mode)) return ::unlink(item.c_str()) == 0 || errno == ENOENT;
    // The folder itself, never a link put in its place since the look above: the walk goes
    // through the open folder.
    const FileHandle folder(::open(item.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat opened {};
    if (!folder.isOpen() || ::fstat(folder.get(), &opened) != 0 || opened.st_dev != status.st_dev ||
        opened.st_ino != status.st_ino) {
        return false;
    }
    const Path throughHandle = "/proc/self/fd/" + std::to_string(folder.get());

    // Files as the walk meets them; the folders afterwards, the deepest first.
    std::vector<std::string> folders;
    bool inTime = true;
    walkTree(throughHandle, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        if (!inTime || timeIsUp()) {
            inTime = false;
            return false;
        }
        if (entry.info.isDirectory()) {
            folders.push_back(entry.relativePath);
            return true;
        }
        const std::string name(entry.name);
        if (allocatedBytes(entry.folder, name) >= removalStep) {
            // Once stopped, a big file stays for the sweep.
            if (stop.stop_requested() || !cutDown(entry.folder, name, stop, onRemoved))
                return false;
        }
        if (::unlinkat(entry.folder, name.c_str(), 0) == 0 && onRemoved) onRemoved(name);
        return false;
    });
    for (auto below = folders.rbegin(); below != folders.rend(); ++below)
        ::unlinkat(folder.get(), below->c_str(), AT_REMOVEDIR);
    return ::rmdir(item.c_str()) == 0 || errno == ENOENT;
}

StagingFolder::StagingFolder(FileSystem& fileSystem, const Path& destination,
                             const std::string& name, std::stop_token stop, const Clock& clock)
    : fileSystem_(fileSystem), stop_(std::move(stop)), clock_(clock) {
    const Path yearFolder = destination.parent_path();
    firstMadeFolder_ = yearFolder;
    while (!files::exists(firstMadeFolder_.parent_path()) &&
           firstMadeFolder_.parent_path() != firstMadeFolder_) {
        firstMadeFolder_ = firstMadeFolder_.parent_path();
    }
    if (files::exists(firstMadeFolder_)) firstMadeFolder_.clear();
    fileSystem_.createDirectories(yearFolder);
    try {
        lockYear(yearFolder);
    } catch (const Failure&) {
        removeFoldersMadeHere(yearFolder);
        throw;
    }
    path_ = yearFolder / atomicfile::temporaryName(name);
    if (::mkdir(path_.c_str(), 0777) != 0) {
        const int error = errno;
        removeFoldersMadeHere(yearFolder);
        throwPosix(error);
    }
}

StagingFolder::~StagingFolder() {
    // What stays is hidden, for the next filing into this year to sweep.
    if (!published_) removeWithinGrace(path_, stop_, clock_, graceAfterStop);
    removeFoldersMadeHere(path_.parent_path());
}

// Alone in the year's folder, every hidden copy in it is a stopped filing's: those are listed
// for the sweep. Then shared, for as long as this filing lives. A file system without locks
// gets no sweep.
void StagingFolder::lockYear(const Path& yearFolder) {
    yearLock_ = FileHandle(::open(yearFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A filing without its shared lock could be swept by another one as a leftover.
    if (!yearLock_.isOpen()) throwPosix(errno);
    if (::flock(yearLock_.get(), LOCK_EX | LOCK_NB) == 0) {
        walkTree(yearFolder, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
            if (entry.info.isDirectory() && atomicfile::isTemporaryName(entry.name))
                leftovers_.push_back(yearFolder / std::string(entry.name));
            return false;
        });
    }
    if (::flock(yearLock_.get(), LOCK_SH) != 0) leftovers_.clear();
}

void StagingFolder::sweepLeftovers(const OnRemoved& onRemoved) {
    for (const auto& leftover : leftovers_) {
        // One that can't go holds back no other; a stop ends the sweep.
        if (!removeWithinGrace(leftover, stop_, clock_, graceAfterStop, onRemoved) &&
            stop_.stop_requested())
            break;
    }
    leftovers_.clear();
}

void StagingFolder::publish(const Path& destination) {
    if (!files::exists(destination)) {
        fileSystem_.moveItem(path_, destination);
    } else {
        moveEntriesInto(destination);
        ::rmdir(path_.c_str());
    }
    published_ = true;
    firstMadeFolder_.clear();
}

// Only empty folders go, from the year's up to the first one made here.
void StagingFolder::removeFoldersMadeHere(const Path& yearFolder) const {
    if (firstMadeFolder_.empty()) return;
    for (Path folder = yearFolder; ::rmdir(folder.c_str()) == 0 && folder != firstMadeFolder_;
         folder = folder.parent_path()) {
    }
}

void StagingFolder::moveEntriesInto(const Path& destination) {
    std::vector<std::string> names;
    walkTree(path_, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        names.emplace_back(entry.name);
        return false;
    });
    std::vector<std::string> moved;
    try {
        for (const auto& name : names) {
            fileSystem_.moveItem(path_ / name, destination / name);
            moved.push_back(name);
        }
    } catch (const Failure&) {
        for (const auto& name : moved)
            ::rename((destination / name).c_str(), (path_ / name).c_str());
        throw;
    }
}

}  // namespace quillstow
