#include "support/FileHandle.hpp"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "support/Error.hpp"

namespace quillstow {

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = other.release();
    }
    return *this;
}

FileHandle::~FileHandle() {
    if (fd_ >= 0) ::close(fd_);
}

int FileHandle::release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

void FileHandle::closeChecked() {
    const int fd = release();
    if (fd >= 0 && ::close(fd) != 0 && errno != EINTR) throwPosix(errno);
}

std::string_view lastComponent(std::string_view relativePath) {
    const auto slash = relativePath.rfind('/');
    return slash == std::string_view::npos ? relativePath : relativePath.substr(slash + 1);
}

namespace handles {

namespace {

constexpr int folderFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

// A piece of a path that one openat2 call takes, well below PATH_MAX.
constexpr std::size_t longestPiece = 3072;

// Cleared once the kernel (or a container's filter) says it has no openat2.
std::atomic<bool> kernelHasOpenat2{true};

FileHandle openComponent(int folder, std::string_view name) {
    if (name == "." || name == "..") throwPosix(EINVAL);
    const std::string component(name);
    const int fd = ::openat(folder, component.c_str(), folderFlags | O_NOFOLLOW);
    if (fd < 0) throwPosix(errno);
    return FileHandle(fd);
}

// Components of at most longestPiece bytes together, in one call where the kernel can.
FileHandle openPiece(int folder, std::string_view piece) {
    if (kernelHasOpenat2.load(std::memory_order_relaxed)) {
        open_how how{};
        how.flags = folderFlags;
        how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
        const std::string path(piece);
        const long fd = ::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how);
        if (fd >= 0) return FileHandle(int(fd));
        if (errno != ENOSYS) throwPosix(errno);
        kernelHasOpenat2.store(false, std::memory_order_relaxed);
    }
    FileHandle current;
    for (std::size_t start = 0; start <= piece.size();) {
        auto slash = piece.find('/', start);
        if (slash == std::string_view::npos) slash = piece.size();
        if (slash > start) {
            current = openComponent(current.isOpen() ? current.get() : folder,
                                    piece.substr(start, slash - start));
        }
        start = slash + 1;
    }
    return current;
}

FileHandle duplicate(int folder) {
    const int fd = ::openat(folder, ".", folderFlags);
    if (fd < 0) throwPosix(errno);
    return FileHandle(fd);
}

}  // namespace

FileHandle openFolderBelow(int base, std::string_view relativePath) {
    while (relativePath.starts_with('/'))
        relativePath.remove_prefix(1);
    if (relativePath.empty()) return duplicate(base);
    FileHandle current;
    while (!relativePath.empty()) {
        std::size_t end = relativePath.size();
        if (end > longestPiece) {
            end = relativePath.rfind('/', longestPiece);
            // A single name is never longer than 255 bytes, so a piece always has a slash.
            if (end == std::string_view::npos || end == 0) throwPosix(ENAMETOOLONG);
        }
        current = openPiece(current.isOpen() ? current.get() : base, relativePath.substr(0, end));
        relativePath.remove_prefix(std::min(relativePath.size(), end + 1));
    }
    return current;
}

FileHandle makeFoldersBelow(int base, std::string_view relativePath, dev_t device) {
    try {
        return openFolderBelow(base, relativePath);
    } catch (const Failure& failure) {
        if (!errors::isPosix(failure.error(), ENOENT)) throw;
    }
    FileHandle current = duplicate(base);
    for (std::size_t start = 0; start <= relativePath.size();) {
        auto slash = relativePath.find('/', start);
        if (slash == std::string_view::npos) slash = relativePath.size();
        if (slash > start) {
            const std::string name(relativePath.substr(start, slash - start));
            int fd = ::openat(current.get(), name.c_str(), folderFlags | O_NOFOLLOW);
            if (fd < 0 && errno == ENOENT) {
                struct stat status {};
                if (::fstat(current.get(), &status) != 0) throwPosix(errno);
                if (status.st_dev != device) throwPosix(EXDEV);
                if (::mkdirat(current.get(), name.c_str(), 0777) != 0 && errno != EEXIST) {
                    throwPosix(errno);
                }
                fd = ::openat(current.get(), name.c_str(), folderFlags | O_NOFOLLOW);
            }
            if (fd < 0) throwPosix(errno);
            current = FileHandle(fd);
        }
        start = slash + 1;
    }
    return current;
}

FileHandle openFolder(const std::string& path) {
    const int fd = ::open(path.c_str(), folderFlags);
    if (fd < 0) throwPosix(errno);
    return FileHandle(fd);
}

}  // namespace handles

FolderCursor::FolderCursor(SharedFolder root, std::optional<dev_t> makesFoldersOn)
    : root_(std::move(root)), device_(makesFoldersOn) {}

const SharedFolder& FolderCursor::folderOf(std::string_view relativePath) {
    const auto slash = relativePath.rfind('/');
    if (slash == std::string_view::npos) return root_;
    const std::string_view folder = relativePath.substr(0, slash);
    if (handle_ && folder == folder_) return handle_;
    handle_.reset();
    folder_ = folder;
    handle_ = std::make_shared<const FileHandle>(
        device_ ? handles::makeFoldersBelow(root_->get(), folder, *device_)
                : handles::openFolderBelow(root_->get(), folder));
    return handle_;
}

}  // namespace quillstow
