#include "support/AtomicFile.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "support/Error.hpp"
#include "support/Retry.hpp"
#include "support/Uuid.hpp"

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

// FNV-1a: small, and the same in every run, which a name derived from it must be.
std::uint64_t digestOf(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (const unsigned char byte : text) {
        hash ^= byte;
        hash *= 0x100000001b3ULL;
    }
    return hash;
}

bool isUpperHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

constexpr std::size_t randomPartLength = 8;

}  // namespace

std::string fittedName(std::string_view prefix, std::string_view name) {
    if (prefix.size() + name.size() <= maximumNameLength) return std::string(name);
    char digest[18];
    std::snprintf(digest, sizeof digest, "~%016llx",
                  static_cast<unsigned long long>(digestOf(name)));
    std::size_t keep = maximumNameLength - prefix.size() - (sizeof digest - 1);
    // Never cut inside a UTF-8 sequence: back up over continuation bytes.
    while (keep > 0 && (static_cast<unsigned char>(name[keep]) & 0xC0) == 0x80)
        --keep;
    return std::string(name.substr(0, keep)) + digest;
}

std::string temporaryName(std::string_view name) {
    const std::string head =
        std::string(temporaryPrefix) + Uuid::random().text().substr(0, randomPartLength) + "-";
    return head + fittedName(head, name);
}

bool isTemporaryName(std::string_view name) {
    if (!name.starts_with(temporaryPrefix)) return false;
    name.remove_prefix(temporaryPrefix.size());
    if (name.size() < randomPartLength + 2 || name[randomPartLength] != '-') return false;
    for (std::size_t i = 0; i < randomPartLength; ++i) {
        if (!isUpperHexDigit(name[i])) return false;
    }
    return true;
}

void write(const std::filesystem::path& path, std::string_view bytes) {
    // Readable by its owner alone, which suits files that name the user's folders. A name
    // taken already is tried once more under a fresh one.
    std::string temporary;
    int fd = -1;
    for (int attempt = 0; attempt < 2 && fd < 0; ++attempt) {
        temporary = (path.parent_path() / temporaryName(path.filename().native())).native();
        fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (fd < 0 && errno != EEXIST) break;
    }
    if (fd < 0) throwPosix(errno);
    try {
        writeAll(fd, bytes);
        if (::fsync(fd) != 0) throwPosix(errno);
    } catch (...) {
        ::close(fd);
        removeQuietly(temporary);
        throw;
    }
    if (::close(fd) != 0) {
        const int error = errno;
        removeQuietly(temporary);
        throwPosix(error);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        removeQuietly(temporary);
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
