#include "copy/SwapBatch.hpp"

namespace quillstow {

SwapBatch::SwapBatch(FileSystem& fileSystem, std::filesystem::path destination)
    : fileSystem_(fileSystem), destination_(std::move(destination)) {}

void SwapBatch::addCopy(transfer::PreparedCopy copy, std::filesystem::path source,
                        std::string relativePath, bool isRetry) {
    pendingBytes_ += copy.size;
    ++pendingCopies_;
    outcomes_.push_back({std::move(copy), std::move(source), std::move(relativePath), isRetry, {}});
}

void SwapBatch::addError(FileOperationError error) {
    outcomes_.push_back({std::nullopt, {}, {}, false, std::move(error)});
}

bool SwapBatch::isFull() const {
    return pendingCopies_ >= maximumCopies || pendingBytes_ >= maximumBytes;
}

void SwapBatch::flush(BackupResult& result) {
    bool flushed = true;
    if (pendingCopies_ > 0) {
        try {
            fileSystem_.flushVolume(destination_);
        } catch (const Failure&) {
            // The data may not have reached the disk: no copy of this batch is swapped in as
            // it is; each is made again on its own, or fails.
            flushed = false;
        }
    }
    for (auto& outcome : outcomes_)
        swap(outcome, flushed, result);
    outcomes_.clear();
    pendingCopies_ = 0;
    pendingBytes_ = 0;
}

void SwapBatch::abandon(BackupResult& result) {
    for (auto& outcome : outcomes_) {
        if (outcome.error) result.errors.push_back(std::move(*outcome.error));
    }
    outcomes_.clear();
    pendingCopies_ = 0;
    pendingBytes_ = 0;
}

// The error of a size check that failed, in the pass's words.
FileOperationError sizeMismatchError(const std::filesystem::path& destination) {
    return {destination, "verifySize",
            errors::quillstow(1009,
                              "File was copied but size doesn't match source — will retry "
                              "on next backup.")};
}

void SwapBatch::swap(Outcome& outcome, bool flushed, BackupResult& result) {
    if (outcome.error) {
        result.errors.push_back(std::move(*outcome.error));
        return;
    }
    const transfer::PreparedCopy& copy = *outcome.copy;
    std::int64_t size = copy.size;
    try {
        if (!flushed) throw Failure(errors::posix(EIO));
        transfer::swapIntoPlace(fileSystem_, copy);
    } catch (const Failure& failure) {
        if (outcome.isRetry || !transfer::isTransient(failure.error())) {
            result.errors.push_back({outcome.source, "copy", failure.error()});
            return;
        }
        // The one more attempt, at once and whole, under a new name; the first temporary
        // file stays for the next sweep.
        try {
            const transfer::PreparedCopy again = transfer::prepareVerifiedCopy(
                fileSystem_, outcome.source, copy.destination, destination_);
            fileSystem_.flushVolume(again.temporary.parent_path());
            transfer::swapIntoPlace(fileSystem_, again);
            size = again.size;
        } catch (const Failure& retryFailure) {
            result.errors.push_back({outcome.source, "copy", retryFailure.error()});
            return;
        } catch (const FileOperationFailure& retryFailure) {
            result.errors.push_back({outcome.source, "copy", asError(retryFailure.error())});
            return;
        } catch (const transfer::SizeMismatch& mismatch) {
            result.errors.push_back(sizeMismatchError(mismatch.destination));
            return;
        }
    }
    result.bytesTransferred += size;
    result.copiedFiles += 1;
    result.copiedRelativePaths.push_back(std::move(outcome.relativePath));
}

}  // namespace quillstow
