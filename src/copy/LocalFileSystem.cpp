#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "copy/FileSystem.hpp"
#include "copy/FileTransfer.hpp"
#include "support/Error.hpp"
#include "support/FileHandle.hpp"
#include "support/Retry.hpp"

namespace quillstow {

namespace {

// O_NOATIME keeps a backup from touching the source's access times; it needs ownership.
// O_NONBLOCK keeps an item that became a pipe since it was read from holding the copy up; a
// file or a folder ignores it. A link found where a file or a folder was read was put there
// since.
FileHandle openSource(const ItemRef& item) {
    const char* name = item.name.c_str();
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    int fd = ::openat(item.folder, name, flags | O_NOATIME);
    if (fd < 0 && errno == EPERM) fd = ::openat(item.folder, name, flags);
    if (fd < 0 && errno == ELOOP) throw Failure(transfer::sourceChangedError());
    if (fd < 0) throwPosix(errno);
    return FileHandle(fd);
}

bool meansUnsupported(int error) {
    return error == EXDEV || error == EOPNOTSUPP || error == EINVAL || error == ENOSYS ||
           error == ENOTTY || error == EBADF;
}

void copyByReadAndWrite(int from, int to) {
    constexpr std::size_t bufferSize = 1 << 20;
    thread_local std::unique_ptr<char[]> buffer(new char[bufferSize]);
    for (;;) {
        const ssize_t read = ::read(from, buffer.get(), bufferSize);
        if (read == 0) return;
        if (read < 0) {
            if (errno == EINTR) continue;
            throwPosix(errno);
        }
        for (ssize_t written = 0; written < read;) {
            const ssize_t count = ::write(to, buffer.get() + written, std::size_t(read - written));
            if (count < 0) {
                if (errno == EINTR) continue;
                throwPosix(errno);
            }
            written += count;
        }
    }
}

// Copies bytes [offset, end) at the same offsets, through user space, one buffer per thread.
// Returns the count, short of the range where the file ends first.
off_t copyRangeByReadAndWrite(int from, int to, off_t offset, off_t end) {
    const off_t start = offset;
    constexpr std::size_t bufferSize = 1 << 20;
    thread_local std::unique_ptr<char[]> buffer(new char[bufferSize]);
    while (offset < end) {
        const ssize_t read = ::pread(
            from, buffer.get(), std::size_t(std::min<off_t>(end - offset, bufferSize)), offset);
        if (read == 0) break;
        if (read < 0) {
            if (errno == EINTR) continue;
            throwPosix(errno);
        }
        for (ssize_t written = 0; written < read;) {
            const ssize_t count =
                ::pwrite(to, buffer.get() + written, std::size_t(read - written), offset + written);
            if (count < 0) {
                if (errno == EINTR) continue;
                throwPosix(errno);
            }
            written += count;
        }
        offset += read;
    }
    return offset - start;
}

// Copies bytes [offset, end) at the same offsets, in the kernel where it can.
void copyRange(int from, int to, off_t offset, off_t end) {
    while (offset < end) {
        loff_t readAt = offset;
        loff_t writeAt = offset;
        const ssize_t count =
            ::copy_file_range(from, &readAt, to, &writeAt, std::size_t(end - offset), 0);
        if (count > 0) {
            offset += count;
            continue;
        }
        // A 0 before the end may be a file system that can't copy in the kernel: a read tells.
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && !meansUnsupported(errno)) throwPosix(errno);
        copyRangeByReadAndWrite(from, to, offset, end);
        return;
    }
}

// Fewer blocks than bytes: the file has holes worth keeping.
bool hasHoles(const struct stat& status) {
    return status.st_blocks * 512 < status.st_size;
}

// Copies the data extents alone and sets the length, so the holes of `from` stay holes. False
// when the file system can't tell where the data is.
bool copyDataExtents(int from, int to, off_t size) {
    for (off_t at = 0; at < size;) {
        const off_t data = ::lseek(from, at, SEEK_DATA);
        if (data < 0) {
            if (errno == ENXIO) break;
            if (at == 0 && meansUnsupported(errno)) return false;
            throwPosix(errno);
        }
        off_t hole = ::lseek(from, data, SEEK_HOLE);
        if (hole < 0) throwPosix(errno);
        hole = std::min(hole, size);
        copyRange(from, to, data, hole);
        at = hole;
    }
    if (::ftruncate(to, size) != 0) throwPosix(errno);
    return true;
}

// A clone where the file system shares blocks, else the data extents where the file has holes,
// else an in-kernel copy, else plain reads and writes; each falls back when the one before can't
// serve these two files.
void copyData(int from, int to, const struct stat& status) {
    const off_t size = status.st_size;
    if (size == 0) return;
    if (::ioctl(to, FICLONE, from) == 0) return;
    if (!meansUnsupported(errno) && errno != EPERM) throwPosix(errno);
    if (hasHoles(status) && copyDataExtents(from, to, size)) return;

    off_t copied = 0;
    while (copied < size) {
        const ssize_t count =
            ::copy_file_range(from, nullptr, to, nullptr, std::size_t(size - copied), 0);
        if (count > 0) {
            copied += count;
            continue;
        }
        // Some file systems answer 0 instead of an error, at any point: reads and writes go
        // on from where the kernel stopped, and only a read tells the end of the file.
        if (count == 0) break;
        if (errno == EINTR) continue;
        if (copied == 0 && meansUnsupported(errno)) break;
        throwPosix(errno);
    }
    if (copied < size) copyByReadAndWrite(from, to);
}

// Extended attributes that this user may set; the others are dropped one by one.
void copyExtendedAttributes(int from, int to) {
    ssize_t listSize = ::flistxattr(from, nullptr, 0);
    if (listSize <= 0) return;
    std::vector<char> names(std::size_t(listSize) + 1);
    listSize = ::flistxattr(from, names.data(), names.size());
    if (listSize <= 0) return;
    std::vector<char> value;
    for (const char* name = names.data(); name < names.data() + listSize;
         name += std::strlen(name) + 1) {
        if (*name == '\0') continue;
        const ssize_t valueSize = ::fgetxattr(from, name, nullptr, 0);
        if (valueSize < 0) continue;
        value.resize(std::size_t(valueSize) + 1);
        const ssize_t read = ::fgetxattr(from, name, value.data(), value.size());
        if (read < 0) continue;
        (void)::fsetxattr(to, name, value.data(), std::size_t(read), 0);
    }
}

// Owner (where permitted), extended attributes, mode, then times, last so that nothing after
// them moves the modification time. `made` is the copy as last read, where the caller read it:
// an owner or a mode it has already is not set again. Failures are dropped: the copy stands
// without them.
void copyMetadata(int from, int to, const struct stat& status, const struct stat* made = nullptr) {
    if (!made || made->st_uid != status.st_uid || made->st_gid != status.st_gid) {
        if (::fchown(to, status.st_uid, status.st_gid) != 0) {
            (void)::fchown(to, uid_t(-1), status.st_gid);
        }
    }
    copyExtendedAttributes(from, to);
    if (!made || (made->st_mode & 07777) != (status.st_mode & 07777)) {
        (void)::fchmod(to, status.st_mode & 07777);
    }
    const timespec times[2] = {status.st_atim, status.st_mtim};
    (void)::futimens(to, times);
}

// The open file `source`, as `status` read it at its open, into a new file at `to`. The copy's
// size is read on its handle before its metadata is set, which that reading spares where it is
// right already.
CopiedItem copyOpenFile(int source, const struct stat& status, const ItemRef& to) {
    FileHandle target(::openat(to.folder, to.name.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!target.isOpen()) throwPosix(errno);
    copyData(source, target.get(), status);
    transfer::throwIfChangedSince(source, status);
    struct stat made {};
    if (::fstat(target.get(), &made) != 0) throwPosix(errno);
    copyMetadata(source, target.get(), status, &made);
    target.closeChecked();
    return {FileInfo::Type::regular, status.st_size, made.st_size};
}

void copyLink(const ItemRef& from, const ItemRef& to, const struct stat& status) {
    std::string destination(std::size_t(status.st_size > 0 ? status.st_size : PATH_MAX) + 1, '\0');
    const ssize_t length =
        ::readlinkat(from.folder, from.name.c_str(), destination.data(), destination.size());
    if (length < 0) throwPosix(errno);
    destination.resize(std::size_t(length));
    if (::symlinkat(destination.c_str(), to.folder, to.name.c_str()) != 0) throwPosix(errno);
    (void)::fchownat(to.folder, to.name.c_str(), status.st_uid, status.st_gid, AT_SYMLINK_NOFOLLOW);
    const timespec times[2] = {status.st_atim, status.st_mtim};
    (void)::utimensat(to.folder, to.name.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

// An entry of a folder, with its kind where the folder's listing tells it.
struct Entry {
    std::string name;
    std::optional<FileInfo::Type> type;
};

// The entries of an open folder, read whole before anything in it changes.
std::vector<Entry> entriesOf(int folder) {
    DIR* listing = ::fdopendir(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!listing) throwPosix(errno);
    std::unique_ptr<DIR, int (*)(DIR*)> closer(listing, ::closedir);
    std::vector<Entry> entries;
    while (const dirent* entry = ::readdir(listing)) {
        const std::string_view name(entry->d_name);
        if (name == "." || name == "..") continue;
        std::optional<FileInfo::Type> type;
        if (entry->d_type == DT_REG) type = FileInfo::Type::regular;
        if (entry->d_type == DT_DIR) type = FileInfo::Type::directory;
        entries.push_back({std::string(name), type});
    }
    return entries;
}

CopiedItem copyAny(const ItemRef& from, const ItemRef& to, const std::stop_token& stop,
                   std::optional<FileInfo::Type> known);

// Each level relative to the one above, so a tree of any depth is copied whole.
CopiedItem copyOpenTree(int folder, const struct stat& status, const ItemRef& to,
                        const std::stop_token& stop) {
    if (::mkdirat(to.folder, to.name.c_str(), 0700) != 0) throwPosix(errno);
    const FileHandle target(
        ::openat(to.folder, to.name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    if (!target.isOpen()) throwPosix(errno);

    // A folder copied whole may hold thousands of files: a stop is heard between them.
    for (const auto& entry : entriesOf(folder)) {
        if (stop.stop_requested()) throw Failure(errors::cancellation());
        copyAny({folder, entry.name}, {target.get(), entry.name}, stop, entry.type);
    }

    // The folder's own metadata last, since filling it moved its times.
    copyMetadata(folder, target.get(), status);
    return {FileInfo::Type::directory, status.st_size, 0};
}

// A file or a folder of the kind its caller read, read once more on its open handle: an item
// that is something else by then was replaced since, and the copy fails.
CopiedItem copyOpened(const ItemRef& from, const ItemRef& to, const std::stop_token& stop,
                      FileInfo::Type expected) {
    const FileHandle source = openSource(from);
    struct stat status {};
    if (::fstat(source.get(), &status) != 0) throwPosix(errno);
    if (S_ISREG(status.st_mode) && expected == FileInfo::Type::regular) {
        return copyOpenFile(source.get(), status, to);
    }
    if (S_ISDIR(status.st_mode) && expected == FileInfo::Type::directory) {
        return copyOpenTree(source.get(), status, to, stop);
    }
    throw Failure(transfer::sourceChangedError());
}

CopiedItem copyAny(const ItemRef& from, const ItemRef& to, const std::stop_token& stop,
                   std::optional<FileInfo::Type> known) {
    if (known == FileInfo::Type::regular || known == FileInfo::Type::directory) {
        return copyOpened(from, to, stop, *known);
    }
    struct stat status {};
    if (::fstatat(from.folder, from.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        throwPosix(errno);
    }
    if (S_ISREG(status.st_mode)) return copyOpened(from, to, stop, FileInfo::Type::regular);
    if (S_ISDIR(status.st_mode)) return copyOpened(from, to, stop, FileInfo::Type::directory);
    if (S_ISLNK(status.st_mode)) {
        copyLink(from, to, status);
        return {FileInfo::Type::symbolicLink, status.st_size, status.st_size};
    }
    // Sockets, pipes and devices are nothing a backup can keep.
    return {};
}

}  // namespace

CopiedItem LocalFileSystem::copyItem(const ItemRef& from, const ItemRef& to, std::stop_token stop,
                                     std::optional<FileInfo::Type> known) {
    return copyAny(from, to, stop, known);
}

void LocalFileSystem::replaceItem(const ItemRef& target, const ItemRef& with) {
    if (::renameat(with.folder, with.name.c_str(), target.folder, target.name.c_str()) == 0) {
        return;
    }
    const int renameError = errno;
    // A folder can't be renamed over a non-empty folder: exchange the two in one step, then
    // remove the old one, the older copy of a folder copied whole, as a file's older copy goes
    // in a rename. A file and a folder are never exchanged (EISDIR, ENOTDIR): the item in the
    // way holds other backups, and only the archive may take it.
    if (renameError != ENOTEMPTY && renameError != EEXIST) throwPosix(renameError);
    if (::renameat2(with.folder, with.name.c_str(), target.folder, target.name.c_str(),
                    RENAME_EXCHANGE) != 0) {
        throwPosix(errno);
    }
    // What can't be removed stays under the temporary name, where the next sweep finds it.
    removeQuietly(with.folder, with.name);
}

void LocalFileSystem::moveItem(const ItemRef& from, const ItemRef& to) {
    const char* fromName = from.name.c_str();
    const char* toName = to.name.c_str();
    if (::renameat2(from.folder, fromName, to.folder, toName, RENAME_NOREPLACE) == 0) return;
    if (errno != EINVAL && errno != ENOSYS) throwPosix(errno);
    // Some file systems can't refuse to replace; a check right before serves them.
    struct stat status {};
    if (::fstatat(to.folder, toName, &status, AT_SYMLINK_NOFOLLOW) == 0) throwPosix(EEXIST);
    if (::renameat(from.folder, fromName, to.folder, toName) != 0) throwPosix(errno);
}

void LocalFileSystem::createDirectories(const ItemRef& folder) {
    if (folder.folder != AT_FDCWD) {
        struct stat status {};
        if (::fstat(folder.folder, &status) != 0) throwPosix(errno);
        handles::makeFoldersBelow(folder.folder, folder.name, status.st_dev);
        return;
    }
    std::error_code error;
    std::filesystem::create_directories(folder.name, error);
    if (error) throwPosix(error.value());
}

void LocalFileSystem::removeItem(const ItemRef& item) {
    removeTree(item.folder, item.name);
}

void LocalFileSystem::flushVolume(const ItemRef& anyItemOnVolume) {
    const FileHandle handle(::openat(anyItemOnVolume.folder, anyItemOnVolume.name.c_str(),
                                     O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!handle.isOpen()) throwPosix(errno);
    if (::syncfs(handle.get()) != 0) throwPosix(errno);
}

void LocalFileSystem::flushFile(const ItemRef& file) {
    const FileHandle handle(
        ::openat(file.folder, file.name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!handle.isOpen()) throwPosix(errno);
    if (::fdatasync(handle.get()) != 0) throwPosix(errno);
}

std::size_t LocalFileSystem::copyChunk(int from, int to, std::int64_t offset, std::size_t length) {
    // Holes are passed over and left unwritten; a file system that can't tell where data is
    // answers EINVAL, and everything counts as data.
    const off_t data = ::lseek(from, offset, SEEK_DATA);
    if (data < 0 && errno == ENXIO) return 0;
    if (data > offset) return std::size_t(std::min<off_t>(data - offset, off_t(length)));
    if (data == offset) {
        const off_t hole = ::lseek(from, offset, SEEK_HOLE);
        if (hole > offset) length = std::size_t(std::min<off_t>(hole - offset, off_t(length)));
    }
    loff_t readAt = offset;
    loff_t writeAt = offset;
    for (;;) {
        const ssize_t count = ::copy_file_range(from, &readAt, to, &writeAt, length, 0);
        if (count > 0) {
            // Start writing the chunk out now, so that the flush before the swap waits for
            // little more than the last chunks.
            (void)::sync_file_range(to, offset, count, SYNC_FILE_RANGE_WRITE);
            return std::size_t(count);
        }
        // Some file systems answer 0 before the end instead of refusing: only a read tells
        // the end of the file, or a short file would pass for a whole one.
        if (count == 0) break;
        if (errno == EINTR) continue;
        if (!meansUnsupported(errno)) throwPosix(errno);
        break;
    }
    return std::size_t(copyRangeByReadAndWrite(from, to, offset, offset + off_t(length)));
}

void LocalFileSystem::copyMetadata(int from, int to) {
    struct stat status {};
    if (::fstat(from, &status) != 0) return;
    quillstow::copyMetadata(from, to, status);
}

bool LocalFileSystem::walkTree(const Path& root, WalkDetail detail, const ChoosingVisitor& visit,
                               const OnUnreadableFolder& onUnreadable) {
    return walkTreeChoosingDetail(root, detail, visit, onUnreadable);
}

}  // namespace quillstow
