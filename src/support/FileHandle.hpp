#pragma once

// An open file descriptor with one owner, closed when the owner goes; and the ways a pass
// reaches the folders below an open one: no symbolic link is followed on the way, nothing above
// the open folder is reached, and a path may be longer than PATH_MAX, since it is walked
// relative to a folder rather than named whole.
//
// A handle is used by one thread at a time; the functions keep no state but the kernel's answer
// to whether it has openat2, read once.

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace quillstow {

class FileHandle {
  public:
    FileHandle() = default;
    explicit FileHandle(int fd) : fd_(fd) {}
    FileHandle(FileHandle&& other) noexcept : fd_(other.release()) {}
    FileHandle& operator=(FileHandle&& other) noexcept;
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    ~FileHandle();

    int get() const { return fd_; }
    bool isOpen() const { return fd_ >= 0; }
    int release();

    // Closes now and raises Failure with the error, which network file systems may hold back
    // until the close.
    void closeChecked();

  private:
    int fd_ = -1;
};

// Folders a pass keeps open for a while, shared by the copies that wait in them.
using SharedFolder = std::shared_ptr<const FileHandle>;

namespace handles {

// The folder at `relativePath` below the open folder `base` ("" names `base` itself), opened
// with O_PATH. A link anywhere on the way fails with ELOOP or ENOTDIR, a file with ENOTDIR;
// every failure raises Failure with the errno.
FileHandle openFolderBelow(int base, std::string_view relativePath);

// The same, making each folder that is missing on the way. A folder is made only inside one of
// the volume `device`: a mount point below `base` fails with EXDEV before anything is made.
FileHandle makeFoldersBelow(int base, std::string_view relativePath, dev_t device);

// A folder by its path, which may pass through links (the mirror's own path may), opened with
// O_PATH. Raises Failure.
FileHandle openFolder(const std::string& path);

}  // namespace handles

// The folder of the last item asked for, kept open: items that come in folder order cost one
// lookup of their own name each, not a walk of their path. Used by one thread.
class FolderCursor {
  public:
    // With a `device`, missing folders are made on that volume; without one, never made.
    explicit FolderCursor(SharedFolder root, std::optional<dev_t> makesFoldersOn = std::nullopt);

    // The open folder that holds the item at `relativePath`. Raises Failure as
    // handles::openFolderBelow does; the next call tries again.
    const SharedFolder& folderOf(std::string_view relativePath);

    const SharedFolder& root() const { return root_; }

    // Lets the open folder go, after its path may have been moved.
    void forget() { handle_.reset(); }

  private:
    SharedFolder root_;
    std::optional<dev_t> device_;
    std::string folder_;
    SharedFolder handle_;
};

// The name of an item, from its relative path.
std::string_view lastComponent(std::string_view relativePath);

}  // namespace quillstow
