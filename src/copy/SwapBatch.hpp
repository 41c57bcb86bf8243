#pragma once

// Copies of a pass that wait for their swap. Flushing every small file before its rename would
// cost a disk round trip per file; instead one flush of the volume makes a whole batch durable,
// and only then are the batch's names swapped in. A power cut at any moment leaves each final
// name with its old content or the whole new one.
//
// Outcomes reach the result in the order of the items, errors included, as if each item had
// been swapped right after its copy. Used on the task of one pass only.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "copy/FileSystem.hpp"
#include "copy/FileTransfer.hpp"
#include "model/Results.hpp"

namespace quillstow {

FileOperationError sizeMismatchError(const std::filesystem::path& destination);

class SwapBatch {
  public:
    // A batch flushes when it holds this many copies or this many bytes.
    static constexpr std::size_t maximumCopies = 2000;
    static constexpr std::int64_t maximumBytes = std::int64_t(256) << 20;

    SwapBatch(FileSystem& fileSystem, std::filesystem::path destination);
    SwapBatch(const SwapBatch&) = delete;
    SwapBatch& operator=(const SwapBatch&) = delete;

    // A copy made and checked; `isRetry` marks the second attempt after a transient error,
    // which gets no third. `root` is the mirror's, for a second attempt at the swap.
    void addCopy(transfer::PreparedCopy copy, std::filesystem::path source,
                 std::string relativePath, bool isRetry);
    void addError(FileOperationError error);

    bool isFull() const;

    // Flushes the volume, swaps every copy into place and records the outcomes in `result`.
    // Never raises.
    void flush(BackupResult& result);

    // Records the errors met so far and forgets the copies, whose volume is gone.
    void abandon(BackupResult& result);

  private:
    struct Outcome {
        std::optional<transfer::PreparedCopy> copy;
        std::filesystem::path source;
        std::string relativePath;
        bool isRetry = false;
        std::optional<FileOperationError> error;
    };

    void swap(Outcome& outcome, bool flushed, BackupResult& result);

    FileSystem& fileSystem_;
    const std::filesystem::path destination_;
    std::vector<Outcome> outcomes_;
    std::size_t pendingCopies_ = 0;
    std::int64_t pendingBytes_ = 0;
};

}  // namespace quillstow
