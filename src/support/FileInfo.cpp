#include "support/FileInfo.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/Error.hpp"

namespace quillstow::files {

namespace {

FileInfo infoFrom(const struct stat& status) {
    FileInfo info;
    if (S_ISREG(status.st_mode)) {
        info.type = FileInfo::Type::regular;
    } else if (S_ISDIR(status.st_mode)) {
        info.type = FileInfo::Type::directory;
    } else if (S_ISLNK(status.st_mode)) {
        info.type = FileInfo::Type::symbolicLink;
    }
    info.entrySize = std::int64_t(status.st_size);
    if (!info.isDirectory()) info.fileSize = info.entrySize;
    info.modificationDate = Date{std::chrono::seconds(status.st_mtim.tv_sec) +
                                 std::chrono::nanoseconds(status.st_mtim.tv_nsec)};
    info.device = status.st_dev;
    info.inode = status.st_ino;
    return info;
}

}  // namespace

std::optional<FileInfo> readInfo(const std::filesystem::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
    return infoFrom(status);
}

std::optional<FileInfo> readInfoAt(int folder, const char* name) {
    struct stat status {};
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    return infoFrom(status);
}

bool exists(const std::filesystem::path& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

bool isFolder(const std::filesystem::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool setModificationDate(const std::filesystem::path& path, Date date) {
    return setModificationDateAt(AT_FDCWD, path.c_str(), date);
}

bool setModificationDateAt(int folder, const char* name, Date date) {
    const auto sinceEpoch = date.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const timespec times[2] = {{0, UTIME_OMIT},
                               {time_t(seconds.count()), long((sinceEpoch - seconds).count())}};
    return ::utimensat(folder, name, times, AT_SYMLINK_NOFOLLOW) == 0;
}

bool isReadable(const std::filesystem::path& path) {
    return ::faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) == 0;
}

bool isWritable(const std::filesystem::path& path) {
    return ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

TreeReader::TreeReader(const std::filesystem::path& root) {
    try {
        folders_.emplace(std::make_shared<const FileHandle>(handles::openFolder(root.native())));
    } catch (const Failure&) {
    }
}

std::optional<FileInfo> TreeReader::readInfo(std::string_view relativePath) {
    if (!folders_) return std::nullopt;
    try {
        // A folder that isn't there is looked for again when the next item of it comes: a copy
        // may have made it since.
        const SharedFolder& folder = folders_->folderOf(relativePath);
        return readInfoAt(folder->get(), std::string(lastComponent(relativePath)).c_str());
    } catch (const Failure&) {
        return std::nullopt;
    }
}

}  // namespace quillstow::files
