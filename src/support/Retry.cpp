#include "support/Retry.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "support/FileHandle.hpp"

namespace quillstow {

bool isTransient(const Error& error) {
    if (error.domain != errors::posixDomain) return false;
    switch (error.code) {
        case EINTR:
        case EIO:
        case EBUSY:
        case EAGAIN:
            return true;
        default:
            return false;
    }
}

namespace {

// The names in an open folder, read whole before anything in it changes.
std::vector<std::string> namesIn(int folder) {
    std::vector<std::string> names;
    alignas(8) char buffer[16384];
    for (;;) {
        const long length = ::syscall(SYS_getdents64, folder, buffer, sizeof buffer);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) throwPosix(errno);
        if (length == 0) return names;
        for (long at = 0; at < length;) {
            // On 64-bit Linux the C library's dirent has the kernel's layout.
            const auto* entry = reinterpret_cast<const dirent*>(buffer + at);
            at += entry->d_reclen;
            const std::string_view view(entry->d_name);
            if (view != "." && view != "..") names.emplace_back(view);
        }
    }
}

}  // namespace

void removeTree(int folder, const std::string& name) {
    struct stat status {};
    if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) return;
        throwPosix(errno);
    }
    if (!S_ISDIR(status.st_mode)) {
        if (::unlinkat(folder, name.c_str(), 0) != 0 && errno != ENOENT) throwPosix(errno);
        return;
    }
    const FileHandle inside(
        ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!inside.isOpen()) throwPosix(errno);
    for (const auto& child : namesIn(inside.get()))
        removeTree(inside.get(), child);
    if (::unlinkat(folder, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) throwPosix(errno);
}

void removeQuietly(int folder, const std::string& name) noexcept {
    try {
        removeTree(folder, name);
    } catch (...) {
    }
}

void removeQuietly(const std::filesystem::path& path) noexcept {
    removeQuietly(AT_FDCWD, path.native());
}

}  // namespace quillstow
