#pragma once

// The typed failure of a whole operation, with the words the user reads.

#include <cstdint>
#include <exception>
#include <filesystem>
#include <string>

namespace quillstow {

class BackupError {
  public:
    enum class Case {
        sourceNotFound,
        destinationNotFound,
        bookmarkStale,
        bookmarkAccessDenied,
        watcherFailed,
        diskSpaceLow,
        partialFailure,
        timedOut,
    };

    static BackupError sourceNotFound(std::filesystem::path url);
    static BackupError destinationNotFound(std::filesystem::path url);
    static BackupError bookmarkStale(std::filesystem::path url);
    static BackupError bookmarkAccessDenied(std::filesystem::path url);
    static BackupError watcherFailed(std::string reason);
    static BackupError diskSpaceLow(std::int64_t available, std::int64_t threshold);
    static BackupError partialFailure(int failedCount, int totalCount);
    static BackupError timedOut();

    Case kind() const { return case_; }
    const std::filesystem::path& url() const { return url_; }
    const std::string& reason() const { return reason_; }
    std::int64_t available() const { return first_; }
    std::int64_t threshold() const { return second_; }
    int failedCount() const { return int(first_); }
    int totalCount() const { return int(second_); }

    std::string errorDescription() const;
    std::string recoverySuggestion() const;

    bool operator==(const BackupError&) const = default;

  private:
    explicit BackupError(Case kind) : case_(kind) {}

    Case case_;
    std::filesystem::path url_;
    std::string reason_;
    std::int64_t first_ = 0;
    std::int64_t second_ = 0;
};

// Carries a BackupError through a throw.
class BackupFailure : public std::exception {
  public:
    explicit BackupFailure(BackupError error) : error_(std::move(error)) {}
    const BackupError& error() const noexcept { return error_; }
    const char* what() const noexcept override { return "backup error"; }

  private:
    BackupError error_;
};

}  // namespace quillstow
