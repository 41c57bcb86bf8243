#pragma once

// The kind of data a pair holds; it selects the exclusion tables.

#include "model/Coding.hpp"

namespace quillstow {

enum class BackupProfile { standard, film, photography, music, developer, documents };

inline constexpr coding::EnumNames<BackupProfile, 6> backupProfileNames{{
    {BackupProfile::standard, "standard"},
    {BackupProfile::film, "film"},
    {BackupProfile::photography, "photography"},
    {BackupProfile::music, "music"},
    {BackupProfile::developer, "developer"},
    {BackupProfile::documents, "documents"},
}};

}  // namespace quillstow
