#include "copy/SwapBatch.hpp"

#include <algorithm>

#include "environment/VolumeSpace.hpp"

namespace quillstow {

SwapBatch::SwapBatch(FileSystem& fileSystem, transfer::MirrorRoot root, StreamContext context)
    : fileSystem_(fileSystem), root_(std::move(root)), context_(std::move(context)) {
    begin();
}

void SwapBatch::begin() {
    outcomes_.clear();
    pendingCopies_ = 0;
    pendingBytes_ = 0;
    const auto available = volumes::availableCapacity(root_.path);
    byteLimit_ = available ? std::min(maximumBytes, *available / 2) : maximumBytes;
}

void SwapBatch::addCopy(transfer::PreparedCopy copy, std::filesystem::path source,
                        std::string relativePath, bool isRetry, double fraction) {
    pendingBytes_ += copy.size;
    ++pendingCopies_;
    outcomes_.push_back(
        {std::move(copy), std::move(source), std::move(relativePath), isRetry, fraction, {}});
}

void SwapBatch::addError(FileOperationError error) {
    outcomes_.push_back({std::nullopt, {}, {}, false, 0, std::move(error)});
}

bool SwapBatch::isFull() const {
    return pendingCopies_ >= maximumCopies || pendingBytes_ >= byteLimit_;
}

void SwapBatch::flush(BackupResult& result) {
    bool flushed = true;
    if (pendingCopies_ > 0) {
        try {
            fileSystem_.flushVolume(root_.path);
        } catch (const Failure&) {
            // The data may not have reached the disk: no copy of this batch is swapped in as
            // it is; each is made again on its own, or fails.
            flushed = false;
        }
    }
    for (auto& outcome : outcomes_)
        swap(outcome, flushed, result);
    begin();
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
            errors::quillstow(ErrorCode::sizeMismatch,
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
        if (outcome.isRetry || !transfer::isTransient(failure.error()) ||
            context_.stop.stop_requested()) {
            result.errors.push_back({outcome.source, "copy", failure.error()});
            return;
        }
        // The one more attempt, at once and whole, under a new name; the first temporary
        // file stays for the next sweep.
        try {
            size = retry(outcome);
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

// Paced, reported and cancellable like the first attempt was.
std::int64_t SwapBatch::retry(const Outcome& outcome) {
    const transfer::PreparedCopy& copy = *outcome.copy;
    if (context_.gate) context_.gate->pauseBetweenFiles(context_.stop);
    if (context_.stop.stop_requested()) throw Failure(errors::cancellation());
    if (context_.onProgress) {
        context_.onProgress(outcome.fraction, copy.destination.filename().native());
    }
    StreamContext context = context_;
    context.fraction = outcome.fraction;
    const transfer::PreparedCopy again = transfer::prepareVerifiedCopy(
        fileSystem_, outcome.source, copy.destination, &root_, context);
    fileSystem_.flushVolume(again.temporary.parent_path());
    transfer::swapIntoPlace(fileSystem_, again);
    return again.size;
}

}  // namespace quillstow
