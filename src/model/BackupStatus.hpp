#pragma once

// The live state of a pair, never persisted, and the one line of text that stands for it.

#include <optional>
#include <string>

#include "model/BackupError.hpp"

namespace quillstow {

class BackupStatus {
  public:
    enum class Case {
        syncing,
        completed,
        error,
        idle,
        scanning,
        destinationUnreachable,
        paused,
        queued,
    };

    static BackupStatus syncing(double progress, std::string currentFile);
    static BackupStatus completed(int fileCount, double duration);
    static BackupStatus error(BackupError error);
    static BackupStatus idle() { return BackupStatus(Case::idle); }
    static BackupStatus scanning() { return BackupStatus(Case::scanning); }
    static BackupStatus destinationUnreachable() {
        return BackupStatus(Case::destinationUnreachable);
    }
    static BackupStatus paused() { return BackupStatus(Case::paused); }
    static BackupStatus queued() { return BackupStatus(Case::queued); }

    Case kind() const { return case_; }
    double progress() const { return progress_; }
    const std::string& currentFile() const { return currentFile_; }
    int fileCount() const { return fileCount_; }
    double duration() const { return duration_; }
    const std::optional<BackupError>& backupError() const { return error_; }

    std::string displayText() const;

    bool operator==(const BackupStatus&) const = default;

  private:
    explicit BackupStatus(Case kind) : case_(kind) {}

    Case case_;
    double progress_ = 0;
    std::string currentFile_;
    int fileCount_ = 0;
    double duration_ = 0;
    std::optional<BackupError> error_;
};

// "1 second", "12 seconds", "1 minute", "2 hours": whole counts, cut, never rounded.
std::string durationText(double seconds);

}  // namespace quillstow
