#pragma once

// One source folder paired with one destination, as the settings file holds it.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "model/BackupProfile.hpp"
#include "model/Coding.hpp"
#include "support/Base64.hpp"
#include "support/Dates.hpp"
#include "support/Uuid.hpp"

namespace quillstow {

struct BackupPair {
    Uuid id;
    std::string name;
    std::filesystem::path sourceURL;
    std::filesystem::path destinationURL;
    std::optional<base64::Bytes> sourceBookmark;
    std::optional<base64::Bytes> destinationBookmark;
    bool isEnabled = true;
    Date createdAt;
    std::optional<Date> lastBackupAt;
    std::optional<std::int64_t> lastBackupFileCount;
    std::optional<std::int64_t> lastBackupByteCount;
    std::optional<std::filesystem::path> offsiteURL;
    std::optional<base64::Bytes> offsiteBookmark;
    std::optional<Date> lastOffsiteAt;
    std::optional<std::int64_t> lastOffsiteFileCount;
    BackupProfile profile = BackupProfile::standard;
    bool didSuggestProfile = false;
    // What the file held that this version can't use, written back with the pair.
    KeptValues keptValues{};

    bool operator==(const BackupPair&) const = default;
};

json::Value toJson(const BackupPair& pair);
// Fails only when the pair can't be told apart or placed: a bad id, name, source or
// destination. Any other odd value takes its default and is kept, with a note that begins with
// `where`.
BackupPair backupPairFromJson(const json::Value& value, coding::DecodingNotes* notes = nullptr,
                              std::string where = "the pair");

// The pair's folder name on a destination: every "..", "/", "\" and NUL removed, Unicode white
// space trimmed, leading dots dropped; "Untitled Backup" when nothing is left.
std::string sanitizedFolderName(const std::string& name);

}  // namespace quillstow
