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
#include "support/FileInfo.hpp"

namespace quillstow {

namespace fs = std::filesystem;

std::string partialName(std::int64_t size, const std::string& name) {
    const std::string head = std::string(transfer::resumePrefix) + std::to_string(size) + "-";
    return head + atomicfile::fittedName(head, name);
}

namespace {

class Handle {
  public:
    explicit Handle(int fd) : fd_(fd) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        if (fd_ >= 0) ::close(fd_);
    }
    int get() const { return fd_; }

  private:
    int fd_;
};

[[noreturn]] void fail(ErrorCode code, const char* message) {
    throw Failure(errors::quillstow(code, message));
}

void throwIfStopped(const std::stop_token& stop) {
    if (stop.stop_requested()) throw Failure(errors::cancellation());
}

void removeQuietly(FileSystem& fileSystem, const fs::path& path) {
    try {
        fileSystem.removeItem(path);
    } catch (const Failure&) {
    }
}

}  // namespace

namespace {

bool isOlder(const timespec& a, const timespec& b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

// The head that an earlier attempt left, when it is shorter than the source's `size`; any
// other partial file goes.
struct Head {
    std::int64_t size = 0;
    timespec modified{};
};
std::optional<Head> resumableHead(FileSystem& fileSystem, const fs::path& partial,
                                  std::int64_t size) {
    struct stat head {};
    if (::lstat(partial.c_str(), &head) == 0 && S_ISREG(head.st_mode) && head.st_size >= 1 &&
        head.st_size < size) {
        return Head{head.st_size, head.st_mtim};
    }
    removeQuietly(fileSystem, partial);
    return std::nullopt;
}

int openForReading(const fs::path& source) {
    int fd = ::open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NOATIME);
    if (fd < 0 && errno == EPERM) fd = ::open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    return fd;
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

void streamCopy(FileSystem& fileSystem, const fs::path& source, const fs::path& partial,
                std::int64_t size, const std::string& name, const StreamContext& context) {
    const Handle input(openForReading(source));
    struct stat status {};
    if (input.get() < 0 || ::fstat(input.get(), &status) != 0) {
        fail(ErrorCode::sourceNotOpened, "Could not open source file for reading.");
    }
    const auto head = resumableHead(fileSystem, partial, size);
    std::int64_t offset = head ? head->size : 0;
    if (offset > 0) {
        throwIfStopped(context.stop);
        if (status.st_size < offset) {
            removeQuietly(fileSystem, partial);
            fail(ErrorCode::resumeMismatch,
                 "Resume mismatch — source shrank since the previous copy. Restarting next time.");
        }
        // A head written before the source last changed holds an older version: joined to a
        // newer tail it would be neither.
        if (isOlder(head->modified, status.st_ctim)) offset = 0;
    }

    const int partialFlags =
        O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | (offset > 0 ? 0 : O_TRUNC);
    const Handle output(::open(partial.c_str(), partialFlags, 0600));
    if (output.get() < 0)
        fail(ErrorCode::partialNotOpened, "Could not open destination file for writing.");

    try {
        copyChunks(fileSystem, input.get(), output.get(), offset, size, name, context);
        transfer::throwIfChangedSince(input.get(), status);
        // A hole at the end of the source is passed over: the length says it.
        if (::ftruncate(output.get(), status.st_size) != 0) throwPosix(errno);
    } catch (const Failure& failure) {
        // A head is worth keeping only for a source that stood still while it was written, and
        // not on a full drive, where it would starve the files after it.
        if (errors::isPosix(failure.error(), ENOSPC) || hasChangedSince(input.get(), status) ||
            failure.error() == transfer::sourceChangedError()) {
            removeQuietly(fileSystem, partial);
        }
        throw;
    }
    fileSystem.copyMetadata(input.get(), output.get());
}

}  // namespace quillstow
