#include "copy/StreamedCopy.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "copy/FileTransfer.hpp"
#include "support/AtomicFile.hpp"
#include "support/ByteCount.hpp"
#include "support/Error.hpp"
#include "support/FileHandle.hpp"
#include "support/FileInfo.hpp"
#include "support/Retry.hpp"

namespace quillstow {

namespace fs = std::filesystem;

std::string partialName(std::int64_t size, const std::string& name) {
    const std::string head = std::string(transfer::resumePrefix) + std::to_string(size) + "-";
    return head + atomicfile::fittedName(head, name);
}

namespace {

[[noreturn]] void fail(ErrorCode code, const char* message) {
    throw Failure(errors::quillstow(code, message));
}

void throwIfStopped(const std::stop_token& stop) {
    if (stop.stop_requested()) throw Failure(errors::cancellation());
}

bool isOlder(const timespec& a, const timespec& b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

// The head that an earlier attempt left, when it is shorter than the source's `size`; any
// other partial file goes.
struct Head {
    std::int64_t size = 0;
    timespec modified{};
};
std::optional<Head> resumableHead(const ItemRef& partial, std::int64_t size) {
    struct stat head {};
    if (::fstatat(partial.folder, partial.name.c_str(), &head, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(head.st_mode) && head.st_size >= 1 && head.st_size < size) {
        return Head{head.st_size, head.st_mtim};
    }
    removeQuietly(partial.folder, partial.name);
    return std::nullopt;
}

FileHandle openForReading(const ItemRef& source) {
    const char* name = source.name.c_str();
    int fd = ::openat(source.folder, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NOATIME);
    if (fd < 0 && errno == EPERM)
        fd = ::openat(source.folder, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    return FileHandle(fd);
}

void copyChunks(FileSystem& fileSystem, int input, int output, std::int64_t offset,
                std::int64_t size, const std::string& name, const StreamContext& context) {
    const std::string total = formatByteCount(size);
    for (std::int64_t done = offset;;) {
        throwIfStopped(context.stop);
        const std::size_t copied = fileSystem.copyChunk(input, output, done, chunkSize);
        if (copied == 0) break;
        done += std::int64_t(copied);
        if (context.gate) context.gate->pauseBetweenChunks();
        if (size >= 1 && context.onProgress) {
            context.onProgress(context.fraction,
                               name + " (" + formatByteCount(done) + "/" + total + ")");
        }
    }
}

bool hasChangedSince(int fd, const struct stat& before) {
    try {
        transfer::throwIfChangedSince(fd, before);
        return false;
    } catch (const Failure&) {
        return true;
    }
}

}  // namespace

CopiedItem streamCopy(FileSystem& fileSystem, const ItemRef& source, const ItemRef& partial,
                      std::int64_t size, const std::string& name, const StreamContext& context) {
    const FileHandle input = openForReading(source);
    struct stat status {};
    if (input.get() < 0 || ::fstat(input.get(), &status) != 0) {
        fail(ErrorCode::sourceNotOpened, "Could not open source file for reading.");
    }
    const auto head = resumableHead(partial, size);
    std::int64_t offset = head ? head->size : 0;
    if (offset > 0) {
        throwIfStopped(context.stop);
        if (status.st_size < offset) {
            removeQuietly(partial.folder, partial.name);
            fail(ErrorCode::resumeMismatch,
                 "Resume mismatch — source shrank since the previous copy. Restarting next time.");
        }
        // A head written before the source last changed holds an older version: joined to a
        // newer tail it would be neither.
        if (isOlder(head->modified, status.st_ctim)) offset = 0;
    }

    const int partialFlags =
        O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | (offset > 0 ? 0 : O_TRUNC);
    const FileHandle output(::openat(partial.folder, partial.name.c_str(), partialFlags, 0600));
    if (!output.isOpen())
        fail(ErrorCode::partialNotOpened, "Could not open destination file for writing.");

    struct stat written {};
    try {
        copyChunks(fileSystem, input.get(), output.get(), offset, size, name, context);
        transfer::throwIfChangedSince(input.get(), status);
        // A hole at the end of the source is passed over: the length says it.
        if (::ftruncate(output.get(), status.st_size) != 0) throwPosix(errno);
        if (::fstat(output.get(), &written) != 0) throwPosix(errno);
    } catch (const Failure& failure) {
        // A head is worth keeping only for a source that stood still while it was written, and
        // not on a full drive, where it would starve the files after it.
        if (errors::isPosix(failure.error(), ENOSPC) || hasChangedSince(input.get(), status) ||
            failure.error() == transfer::sourceChangedError()) {
            removeQuietly(partial.folder, partial.name);
        }
        throw;
    }
    fileSystem.copyMetadata(input.get(), output.get());
    return {FileInfo::Type::regular, status.st_size, written.st_size};
}

}  // namespace quillstow
