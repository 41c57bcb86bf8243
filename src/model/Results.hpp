#pragma once

// The outcome records of a copy pass and of an offsite sync, and the failure of one file
// operation inside them.

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "model/BackupProfile.hpp"
#include "support/Dates.hpp"
#include "support/Error.hpp"
#include "support/Json.hpp"

namespace quillstow {

struct FileOperationError {
    std::filesystem::path url;
    std::string operation;  // a short word of the pass: "copy", "verifySize", ...
    Error underlying;

    bool operator==(const FileOperationError&) const = default;
};

// Carries a FileOperationError through a throw: what a pass raises when a check before its
// first file fails.
class FileOperationFailure : public std::exception {
  public:
    explicit FileOperationFailure(FileOperationError error) : error_(std::move(error)) {}
    const FileOperationError& error() const noexcept { return error_; }
    const char* what() const noexcept override { return error_.underlying.description.c_str(); }

  private:
    FileOperationError error_;
};

// A FileOperationError nested inside another: the cause's domain and code, with the operation
// and the path in the description.
Error asError(const FileOperationError& error);

struct BackupResult {
    int copiedFiles = 0;
    std::vector<std::string> copiedRelativePaths;
    int archivedFiles = 0;
    std::int64_t bytesTransferred = 0;
    double duration = 0;
    std::vector<FileOperationError> errors;
    bool abortedDueToVolumeLoss = false;
    std::map<std::string, int> filesDeferredByEditor;
    BackupProfile recommendedProfile = BackupProfile::standard;
    std::int64_t approximateSourceBytes = 0;
};

struct OffsiteSyncResult {
    int copiedFiles = 0;
    std::int64_t bytesTransferred = 0;
    double duration = 0;
    std::vector<FileOperationError> errors;
    bool abortedDueToFolderLoss = false;
};

// The outcome of one re-read of a sample of a backup against its recorded digests.
struct IntegrityResult {
    int verified = 0;
    std::vector<std::string> corrupted;
    std::vector<std::string> missing;
    Date timestamp;
    int totalTracked = 0;
    int neverVerified = 0;
    std::optional<Date> oldestVerifiedAt;
};

json::Value toJson(const Error& error);
json::Value toJson(const FileOperationError& error);
json::Value toJson(const BackupResult& result);
json::Value toJson(const OffsiteSyncResult& result);

}  // namespace quillstow
