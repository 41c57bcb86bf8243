#include "model/BackupError.hpp"

#include "support/ByteCount.hpp"
#include "support/Paths.hpp"

namespace quillstow {

BackupError BackupError::sourceNotFound(std::filesystem::path url) {
    BackupError error(Case::sourceNotFound);
    error.url_ = std::move(url);
    return error;
}

BackupError BackupError::destinationNotFound(std::filesystem::path url) {
    BackupError error(Case::destinationNotFound);
    error.url_ = std::move(url);
    return error;
}

BackupError BackupError::bookmarkStale(std::filesystem::path url) {
    BackupError error(Case::bookmarkStale);
    error.url_ = std::move(url);
    return error;
}

BackupError BackupError::bookmarkAccessDenied(std::filesystem::path url) {
    BackupError error(Case::bookmarkAccessDenied);
    error.url_ = std::move(url);
    return error;
}

BackupError BackupError::watcherFailed(std::string reason) {
    BackupError error(Case::watcherFailed);
    error.reason_ = std::move(reason);
    return error;
}

BackupError BackupError::diskSpaceLow(std::int64_t available, std::int64_t threshold) {
    BackupError error(Case::diskSpaceLow);
    error.first_ = available;
    error.second_ = threshold;
    return error;
}

BackupError BackupError::partialFailure(int failedCount, int totalCount) {
    BackupError error(Case::partialFailure);
    error.first_ = failedCount;
    error.second_ = totalCount;
    return error;
}

BackupError BackupError::timedOut() {
    return BackupError(Case::timedOut);
}

std::string BackupError::errorDescription() const {
    switch (case_) {
        case Case::sourceNotFound:
            return "The source folder can't be found.";
        case Case::destinationNotFound:
            return "The backup drive isn't connected.";
        case Case::bookmarkStale:
            return "Quillstow needs permission to access this folder again.";
        case Case::bookmarkAccessDenied:
            return "Access to this folder was denied.";
        case Case::watcherFailed:
            return "Couldn't watch for file changes.";
        case Case::diskSpaceLow:
            return "The backup drive is running low on space.";
        case Case::partialFailure:
            // "files" stays plural, also for one.
            return std::to_string(failedCount()) + " of " + std::to_string(totalCount()) +
                   " files couldn't be backed up.";
        case Case::timedOut:
            return "This backup took too long and was stopped part-way.";
    }
    return {};
}

std::string BackupError::recoverySuggestion() const {
    switch (case_) {
        case Case::sourceNotFound:
            return "Make sure the folder \"" + paths::lastPathComponent(url_) + "\" still exists.";
        case Case::destinationNotFound:
            return "Connect the backup drive and try again.";
        case Case::bookmarkStale:
        case Case::bookmarkAccessDenied:
            return "Open Quillstow and re-select the folder to grant access again.";
        case Case::watcherFailed:
            return "Try removing and re-adding this backup pair.";
        case Case::diskSpaceLow:
            return "Free up space or remove old backups. Only " + formatByteCount(available()) +
                   " left.";
        case Case::partialFailure:
            return "Check the backup log for details on which files failed.";
        case Case::timedOut:
            return "The next backup will pick up where this one left off. If it keeps "
                   "happening, check the drive connection.";
    }
    return {};
}

}  // namespace quillstow
