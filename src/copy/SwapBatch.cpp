#include "copy/SwapBatch.hpp"

#include <algorithm>

#include "environment/VolumeSpace.hpp"
#include "support/Retry.hpp"

namespace quillstow {

SwapBatch::SwapBatch(FileSystem& fileSystem, transfer::MirrorRoot root, SharedFolder sourceRoot,
                     StreamContext context)
    : fileSystem_(fileSystem),
      root_(std::move(root)),
      mirrorFolders_(root_.folder),
      sourceFolders_(std::move(sourceRoot)),
      context_(std::move(context)) {
    begin();
}

void SwapBatch::begin() {
    outcomes_.clear();
    pendingCopies_ = 0;
    pendingBytes_ = 0;
    const auto available = volumes::availableCapacity(root_.path);
    byteLimit_ = available ? std::min(maximumBytes, *available / 2) : maximumBytes;
}

void SwapBatch::addCopy(transfer::PreparedCopy copy, transfer::Item source,
                        std::string relativePath, bool isRetry, double fraction) {
    pendingBytes_ += copy.size;
    ++pendingCopies_;
    // Reached again when needed: an open folder per waiting copy would bound the batch by the
    // process's open files instead of what it holds.
    if (root_.folder) copy.folder = nullptr;
    if (sourceFolders_.root()) source.folder = nullptr;
    outcomes_.push_back(
        {std::move(copy), std::move(source), std::move(relativePath), isRetry, fraction, {}});
}

void SwapBatch::addError(FileOperationError error) {
    outcomes_.push_back({std::nullopt, transfer::Item({}), {}, false, 0, std::move(error)});
}

bool SwapBatch::isFull() const {
    return pendingCopies_ >= maximumCopies || pendingBytes_ >= byteLimit_;
}

void SwapBatch::flush(BackupResult& result) {
    bool flushed = true;
    if (pendingCopies_ > 0) {
        try {
            fileSystem_.flushVolume(root_.folder ? ItemRef(root_.folder->get(), ".")
                                                 : ItemRef(root_.path));
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
    transfer::PreparedCopy& copy = *outcome.copy;
    try {
        if (root_.folder) copy.folder = mirrorFolders_.folderOf(outcome.relativePath);
    } catch (const Failure& failure) {
        // Its folder went, or became a link, since the copy: it waits for the next pass.
        result.errors.push_back({outcome.source.path, "copy", failure.error()});
        return;
    }
    // The swap, and after a transient failure the whole copy once more, under a new name; the
    // first temporary file stays for the next sweep. An item that was a retry already gets no
    // third attempt.
    const auto attempt = [&](bool again) {
        if (again) return retry(outcome);
        if (!flushed) throw Failure(errors::posix(EIO));
        transfer::swapIntoPlace(fileSystem_, copy);
        return copy.size;
    };
    std::int64_t size = 0;
    try {
        size = outcome.isRetry ? attempt(false)
                               : withRetry(attempt, {context_.stop, [&] { beforeRetry(outcome); }});
    } catch (const Failure& failure) {
        result.errors.push_back({outcome.source.path, "copy", failure.error()});
        return;
    } catch (const FileOperationFailure& failure) {
        result.errors.push_back({outcome.source.path, "copy", asError(failure.error())});
        return;
    } catch (const transfer::SizeMismatch& mismatch) {
        result.errors.push_back(sizeMismatchError(mismatch.destination));
        return;
    }
    result.bytesTransferred += size;
    result.copiedFiles += 1;
    result.copiedRelativePaths.push_back(std::move(outcome.relativePath));
}

// Paced and reported like the first attempt was.
void SwapBatch::beforeRetry(const Outcome& outcome) const {
    if (context_.gate) context_.gate->pauseBetweenFiles(context_.stop);
    if (context_.onProgress && !context_.stop.stop_requested()) {
        context_.onProgress(outcome.fraction, outcome.copy->destination.filename().native());
    }
}

std::int64_t SwapBatch::retry(Outcome& outcome) {
    const transfer::PreparedCopy& copy = *outcome.copy;
    if (sourceFolders_.root())
        outcome.source.folder = sourceFolders_.folderOf(outcome.relativePath);
    StreamContext context = context_;
    context.fraction = outcome.fraction;
    const transfer::PreparedCopy again = transfer::prepareVerifiedCopy(
        fileSystem_, outcome.source, transfer::Item(copy.destination, copy.folder), &root_,
        context);
    fileSystem_.flushVolume(transfer::Item(again.temporary, again.folder).sibling("."));
    transfer::swapIntoPlace(fileSystem_, again);
    return again.size;
}

}  // namespace quillstow
