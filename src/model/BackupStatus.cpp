#include "model/BackupStatus.hpp"

#include <cmath>

namespace quillstow {

BackupStatus BackupStatus::syncing(double progress, std::string currentFile) {
    BackupStatus status(Case::syncing);
    status.progress_ = progress;
    status.currentFile_ = std::move(currentFile);
    return status;
}

BackupStatus BackupStatus::completed(int fileCount, double duration) {
    BackupStatus status(Case::completed);
    status.fileCount_ = fileCount;
    status.duration_ = duration;
    return status;
}

BackupStatus BackupStatus::error(BackupError error) {
    BackupStatus status(Case::error);
    status.error_ = std::move(error);
    return status;
}

namespace {

std::string counted(long long count, const char* singular, const char* plural) {
    return std::to_string(count) + " " + (count == 1 ? singular : plural);
}

// The whole part, guarded against values no count can hold.
long long wholePart(double value) {
    if (!std::isfinite(value)) return 0;
    if (std::fabs(value) > 9e18)
        return value < 0 ? -9'000'000'000'000'000'000LL : 9'000'000'000'000'000'000LL;
    return static_cast<long long>(std::trunc(value));
}

}  // namespace

std::string durationText(double seconds) {
    if (seconds < 60) return counted(wholePart(seconds), "second", "seconds");
    if (seconds < 3600) return counted(wholePart(seconds / 60), "minute", "minutes");
    return counted(wholePart(seconds / 3600), "hour", "hours");
}

std::string BackupStatus::displayText() const {
    switch (case_) {
        case Case::syncing:
            return "Backing up " + std::to_string(wholePart(progress_ * 100)) + "% — " +
                   currentFile_;
        case Case::completed:
            return "Backed up " + counted(fileCount_, "file", "files") + " in " +
                   durationText(duration_);
        case Case::error:
            return error_ ? error_->errorDescription() : "An error occurred";
        case Case::idle:
            return "Up to date";
        case Case::scanning:
            return "Scanning for changes…";
        case Case::destinationUnreachable:
            return "Backup drive not connected";
        case Case::paused:
            return "Paused";
        case Case::queued:
            return "Waiting in queue…";
    }
    return {};
}

}  // namespace quillstow
