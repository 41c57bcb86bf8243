#include "platform/FreedesktopTrash.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "copy/FileSystem.hpp"
#include "support/Error.hpp"
#include "support/FileUrl.hpp"
#include "support/Paths.hpp"
#include "support/Retry.hpp"

namespace quillstow {

namespace {

using Path = std::filesystem::path;

const SystemWallClock systemClock;

// The device of the path, or of the nearest folder above it that exists.
dev_t deviceOfNearest(Path path) {
    struct stat status {};
    while (::lstat(path.c_str(), &status) != 0) {
        if (path == path.parent_path()) return 0;
        path = path.parent_path();
    }
    return status.st_dev;
}

// The top of the volume that holds `item`: the highest folder above it on the same device.
Path topFolderOf(const Path& item, dev_t device) {
    Path top = item.parent_path();
    for (Path above = top.parent_path(); above != top; above = top.parent_path()) {
        struct stat status {};
        if (::lstat(above.c_str(), &status) != 0 || status.st_dev != device) break;
        top = above;
    }
    return top;
}

// A folder of ours: made when missing, refused when it is a link or another user's.
void requireOwnFolder(const Path& folder, uid_t user) {
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) throwPosix(errno);
    struct stat status {};
    if (::lstat(folder.c_str(), &status) != 0) throwPosix(errno);
    if (!S_ISDIR(status.st_mode) || status.st_uid != user) throwPosix(EPERM);
}

// An administrator's shared .Trash counts only when it is a real folder with the sticky bit.
bool isSharedTrash(const Path& folder) {
    struct stat status {};
    return ::lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           (status.st_mode & S_ISVTX) != 0;
}

std::string candidateName(const std::string& name, int attempt) {
    if (attempt == 1) return name;
    const Path path(name);
    const std::string extension = path.has_stem() ? path.extension().string() : std::string();
    const std::string stem = name.substr(0, name.size() - extension.size());
    return stem + " " + std::to_string(attempt) + extension;
}

void writeAll(int fd, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(fd, text.data() + written, text.size() - written);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throwPosix(errno);
        written += std::size_t(count);
    }
}

}  // namespace

std::string trashDeletionDate(Date date) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(
        std::chrono::time_point_cast<std::chrono::system_clock::duration>(date));
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    return text;
}

FreedesktopTrash::FreedesktopTrash()
    : FreedesktopTrash(homeTrashOfEnvironment(), ::getuid(), systemClock) {}

FreedesktopTrash::FreedesktopTrash(Path homeTrash, uid_t user, const WallClock& clock)
    : homeTrash_(std::move(homeTrash)), user_(user), clock_(clock) {}

Path FreedesktopTrash::homeTrashOfEnvironment() {
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    if (dataHome && dataHome[0] == '/') return Path(dataHome) / "Trash";
    return paths::homeFolder() / ".local/share/Trash";
}

FreedesktopTrash::Target FreedesktopTrash::targetFor(const Path& item, dev_t device) const {
    if (deviceOfNearest(homeTrash_) == device) {
        std::error_code error;
        std::filesystem::create_directories(homeTrash_, error);
        if (error) throw Failure(errors::posix(error.value()));
        ::chmod(homeTrash_.c_str(), 0700);
        return {homeTrash_, item.string()};
    }
    const Path top = topFolderOf(item, device);
    const std::string relative = item.lexically_relative(top).string();
    const std::string uid = std::to_string(user_);
    if (isSharedTrash(top / ".Trash")) {
        try {
            requireOwnFolder(top / ".Trash" / uid, user_);
            return {top / ".Trash" / uid, relative};
        } catch (const Failure&) {
            // The Trash standard's fallback: the volume's own trash of this user.
        }
    }
    requireOwnFolder(top / (".Trash-" + uid), user_);
    return {top / (".Trash-" + uid), relative};
}

void FreedesktopTrash::moveToTrash(const Path& original) {
    const Path item = paths::standardized(std::filesystem::absolute(original));
    struct stat status {};
    if (::lstat(item.c_str(), &status) != 0) throwPosix(errno);
    const Target target = targetFor(item, status.st_dev);
    requireOwnFolder(target.folder / "files", user_);
    requireOwnFolder(target.folder / "info", user_);

    const std::string contents =
        "[Trash Info]\nPath=" + fileurls::percentEncoded(target.recordedPath) +
        "\nDeletionDate=" + trashDeletionDate(clock_.now()) + "\n";
    const std::string name = paths::lastPathComponent(item);
    for (int attempt = 1;; ++attempt) {
        const std::string candidate = candidateName(name, attempt);
        const Path info = target.folder / "info" / (candidate + ".trashinfo");
        const Path trashed = target.folder / "files" / candidate;
        // The info file reserves the name; a clash with either half takes the next one.
        const int fd = ::open(info.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0 && errno == EEXIST) continue;
        if (fd < 0) throwPosix(errno);
        struct stat existing {};
        if (::lstat(trashed.c_str(), &existing) == 0) {
            ::close(fd);
            removeQuietly(info);
            continue;
        }
        try {
            writeAll(fd, contents);
        } catch (const Failure&) {
            ::close(fd);
            removeQuietly(info);
            throw;
        }
        ::close(fd);
        // A rename or nothing: a folder is never copied into the trash and deleted behind.
        try {
            LocalFileSystem().moveItem(item, trashed);
        } catch (const Failure& failure) {
            removeQuietly(info);
            if (errors::isPosix(failure.error(), EEXIST)) continue;
            throw;
        }
        return;
    }
}

}  // namespace quillstow
