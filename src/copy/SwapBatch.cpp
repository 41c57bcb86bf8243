#include "copy/SwapBatch.hpp"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <system_error>

#include "environment/VolumeSpace.hpp"
#include "support/Retry.hpp"

namespace quillstow {

SwapBatch::SwapBatch(FileSystem& fileSystem, transfer::MirrorRoot root, SharedFolder sourceRoot,
                     StreamContext context, BatchLimits limits)
    : fileSystem_(fileSystem),
      root_(std::move(root)),
      mirrorFolders_(root_.folder),
      sourceFolders_(std::move(sourceRoot)),
      context_(std::move(context)),
      limits_(limits) {
    begin();
}

// A batch still under its flush is waited for: its thread uses this batch's file system.
SwapBatch::~SwapBatch() {
    if (flushing_) flushing_->flushed.wait();
}

void SwapBatch::begin() {
    outcomes_.clear();
    pendingCopies_ = 0;
    pendingBytes_ = 0;
    const auto available = volumes::availableCapacity(root_.path);
    byteLimit_ = available ? std::min(limits_.bytes, *available / 4) : limits_.bytes;
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
    return pendingCopies_ >= limits_.copies || pendingBytes_ >= byteLimit_;
}

// False when the data may not have reached the disk: no copy of the batch is then swapped in
// as it is; each is made again on its own, or fails.
bool SwapBatch::flushVolume() {
    try {
        fileSystem_.flushVolume(root_.folder ? ItemRef(root_.folder->get(), ".")
                                             : ItemRef(root_.path));
        return true;
    } catch (const Failure&) {
        return false;
    }
}

void SwapBatch::swapAll(std::vector<Outcome>& outcomes, bool flushed, BackupResult& result) {
    for (auto& outcome : outcomes)
        swap(outcome, flushed, result);
}

// Waits for the batch under its flush, if any, and swaps it in.
void SwapBatch::finishFlushing(BackupResult& result) {
    if (!flushing_) return;
    const bool flushed = flushing_->flushed.get();
    std::vector<Outcome> outcomes = std::move(flushing_->outcomes);
    flushing_.reset();
    swapAll(outcomes, flushed, result);
}

void SwapBatch::flushWhenFull(BackupResult& result) {
    using namespace std::chrono_literals;
    if (flushing_ && flushing_->flushed.wait_for(0s) == std::future_status::ready) {
        finishFlushing(result);
    }
    if (!isFull()) return;
    finishFlushing(result);
    std::future<bool> flushed;
    try {
        flushed = std::async(std::launch::async, [this] { return flushVolume(); });
    } catch (const std::system_error&) {
        // No thread to spare: the batch is flushed here.
        flush(result);
        return;
    }
    flushing_.emplace(Flushing{std::move(outcomes_), std::move(flushed)});
    begin();
}

void SwapBatch::flush(BackupResult& result) {
    finishFlushing(result);
    const bool flushed = pendingCopies_ == 0 || flushVolume();
    swapAll(outcomes_, flushed, result);
    begin();
}

void SwapBatch::abandon(BackupResult& result) {
    if (flushing_) {
        flushing_->flushed.wait();
        outcomes_.insert(outcomes_.begin(), std::make_move_iterator(flushing_->outcomes.begin()),
                         std::make_move_iterator(flushing_->outcomes.end()));
        flushing_.reset();
    }
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
