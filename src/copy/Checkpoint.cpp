#include "copy/Checkpoint.hpp"

#include <unistd.h>

#include "support/AtomicFile.hpp"
#include "support/Json.hpp"
#include "support/Retry.hpp"

namespace quillstow {

void writeCheckpoint(const std::filesystem::path& file, Date start) {
    const json::Value marker{{"startTime", dates::formatISO8601(start)}, {"phase", "copying"}};
    try {
        atomicfile::write(file, marker.dump());
    } catch (const Failure&) {
    }
}

CheckpointGuard::CheckpointGuard(std::filesystem::path destination, Date start)
    : file_(std::move(destination) / checkpointFileName) {
    writeCheckpoint(file_, start);
}

CheckpointGuard::~CheckpointGuard() {
    removeQuietly(file_);
}

}  // namespace quillstow
