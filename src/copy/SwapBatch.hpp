#pragma once

// Copies of a pass that wait for their swap. Flushing every small file before its rename would
// cost a disk round trip per file; instead one flush of the volume makes a whole batch durable,
// and only then are the batch's names swapped in. A power cut at any moment leaves each final
// name with its old content or the whole new one: no rename of the batch comes before the one
// flush that covers the data of all its copies.
//
// A full batch is flushed on a thread of its own while the pass copies the next one, so that
// the pass doesn't stand still while the disk catches up; it is swapped in on the pass's task
// once its flush has ended, before any later batch. Two batches may then wait at once, so each
// is bounded by half of what one alone could hold.
//
// A waiting copy holds no open folder: its folder is reached again from the mirror's open root
// for the swap, no link followed, so a batch is bounded by its copies and bytes alone and one
// flush serves a change spread over thousands of folders.
//
// Outcomes reach the result in the order of the items, errors included, as if each item had
// been swapped right after its copy. Used on the task of one pass only; the flush thread calls
// the file system's flushVolume and nothing else.

#include <cstdint>
#include <future>
#include <optional>
#include <string>
#include <vector>

#include "copy/FileSystem.hpp"
#include "copy/FileTransfer.hpp"
#include "model/Results.hpp"

namespace quillstow {

FileOperationError sizeMismatchError(const std::filesystem::path& destination);

// A batch is full when it holds this many copies or this many bytes, or a quarter of the space
// that was free on the drive when it began: until their swap, the copies of two batches stand
// beside the old ones, and a nearly full drive must still take updates that fit one at a time.
struct BatchLimits {
    std::size_t copies = 2000;
    std::int64_t bytes = std::int64_t(128) << 20;
};

class SwapBatch {
  public:
    static constexpr std::size_t maximumCopies = BatchLimits{}.copies;

    // `context` is the pass's, for the one more attempt at a swap that failed; `sourceRoot`, the
    // source's open root, through which that attempt reads the item again.
    SwapBatch(FileSystem& fileSystem, transfer::MirrorRoot root, SharedFolder sourceRoot,
              StreamContext context = {}, BatchLimits limits = {});
    ~SwapBatch();
    SwapBatch(const SwapBatch&) = delete;
    SwapBatch& operator=(const SwapBatch&) = delete;

    // A copy made and checked; `isRetry` marks the second attempt after a transient error,
    // which gets no third. `fraction` is the item's place in the pass, for progress.
    void addCopy(transfer::PreparedCopy copy, transfer::Item source, std::string relativePath,
                 bool isRetry, double fraction = 0);
    void addError(FileOperationError error);

    bool isFull() const;
    // Copies that wait for their swap, in the batch being filled or the one being flushed.
    bool hasPendingCopies() const { return pendingCopies_ > 0 || flushing_.has_value(); }

    // Called between items: swaps in the batch whose flush has ended, and hands the current
    // batch to a flush of its own once it is full. Never raises.
    void flushWhenFull(BackupResult& result);

    // Flushes the volume, swaps every copy into place and records the outcomes in `result`;
    // returns once all of it is done. Never raises.
    void flush(BackupResult& result);

    // Records the errors met so far and forgets the copies, whose volume is gone.
    void abandon(BackupResult& result);

  private:
    struct Outcome {
        std::optional<transfer::PreparedCopy> copy;
        transfer::Item source;
        std::string relativePath;
        bool isRetry = false;
        double fraction = 0;
        std::optional<FileOperationError> error;
    };

    // A batch handed to a flush on a thread of its own; `flushed` tells whether it succeeded.
    struct Flushing {
        std::vector<Outcome> outcomes;
        std::future<bool> flushed;
    };

    bool flushVolume();
    void swapAll(std::vector<Outcome>& outcomes, bool flushed, BackupResult& result);
    void finishFlushing(BackupResult& result);
    void swap(Outcome& outcome, bool flushed, BackupResult& result);
    std::int64_t retry(Outcome& outcome);
    void beforeRetry(const Outcome& outcome) const;
    void begin();

    FileSystem& fileSystem_;
    const transfer::MirrorRoot root_;
    FolderCursor mirrorFolders_;
    FolderCursor sourceFolders_;
    const StreamContext context_;
    const BatchLimits limits_;
    std::vector<Outcome> outcomes_;
    std::size_t pendingCopies_ = 0;
    std::int64_t pendingBytes_ = 0;
    std::int64_t byteLimit_ = 0;
    std::optional<Flushing> flushing_;
};

}  // namespace quillstow
