#include "copy/StreamedCopy.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "copy/FileInfo.hpp"
#include "copy/FileTransfer.hpp"
#include "support/ByteCount.hpp"
#include "support/Error.hpp"

namespace quillstow {

namespace fs = std::filesystem;

std::string partialName(std::int64_t size, const std::string& name) {
    return std::string(transfer::resumePrefix) + std::to_string(size) + "-" + name;
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

[[noreturn]] void fail(int code, const char* message) {
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

void streamCopy(FileSystem& fileSystem, const fs::path& source, const fs::path& partial,
                std::int64_t size, const std::string& name, const StreamContext& context) {
    // Only a head shorter than the source is worth continuing.
    std::int64_t offset = 0;
    const auto head = files::readInfo(partial);
    if (head && head->isRegularFile() && head->fileSize && *head->fileSize >= 1 &&
        *head->fileSize < size) {
        offset = *head->fileSize;
    } else {
        removeQuietly(fileSystem, partial);
    }

    int sourceFd = ::open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NOATIME);
    if (sourceFd < 0 && errno == EPERM)
        sourceFd = ::open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (sourceFd < 0) fail(1010, "Could not open source file for reading.");
    const Handle input(sourceFd);

    const int partialFlags =
        O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | (offset > 0 ? 0 : O_TRUNC);
    const Handle output(::open(partial.c_str(), partialFlags, 0600));
    if (output.get() < 0) fail(1011, "Could not open destination file for writing.");

    if (offset > 0) {
        throwIfStopped(context.stop);
        struct stat status {};
        if (::fstat(input.get(), &status) != 0 || status.st_size < offset) {
            removeQuietly(fileSystem, partial);
            fail(1013,
                 "Resume mismatch — source shrank since the previous copy. Restarting next time.");
        }
    }

    const std::string total = formatByteCount(size);
    std::int64_t done = offset;
    for (;;) {
        throwIfStopped(context.stop);
        const std::size_t copied = fileSystem.copyChunk(input.get(), output.get(), done, chunkSize);
        if (copied == 0) break;
        done += std::int64_t(copied);
        if (context.gate) context.gate->pauseBetweenChunks();
        if (size >= 1 && context.onProgress) {
            context.onProgress(context.fraction,
                               name + " (" + formatByteCount(done) + "/" + total + ")");
        }
    }
    fileSystem.copyMetadata(source, partial);
}

}  // namespace quillstow
