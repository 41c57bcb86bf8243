#include "support/AtomicFile.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "support/Error.hpp"

namespace quillstow::atomicfile {

namespace {

void writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            throwPosix(errno);
        }
        bytes.remove_prefix(std::size_t(written));
    }
}

}  // namespace

void write(const std::filesystem::path& path, std::string_view bytes) {
    const std::string suffix = "-" + path.filename().native();
    std::string temporary =
        (path.parent_path() / (std::string(temporaryPrefix) + "XXXXXX" + suffix)).native();
    const int fd = ::mkostemps(temporary.data(), int(suffix.size()), O_CLOEXEC);
    if (fd < 0) throwPosix(errno);
    // mkstemp makes the file readable by its owner alone, which suits files that name the
    // user's folders.
    try {
        writeAll(fd, bytes);
        if (::fsync(fd) != 0) throwPosix(errno);
    } catch (...) {
        ::close(fd);
        ::unlink(temporary.c_str());
        throw;
    }
    if (::close(fd) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        throwPosix(error);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        throwPosix(error);
    }
}

std::string read(const std::filesystem::path& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throwPosix(errno);
    std::string content;
    char buffer[65536];
    for (;;) {
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count == 0) break;
        if (count < 0) {
            if (errno == EINTR) continue;
            const int error = errno;
            ::close(fd);
            throwPosix(error);
        }
        content.append(buffer, std::size_t(count));
    }
    ::close(fd);
    return content;
}

}  // namespace quillstow::atomicfile
