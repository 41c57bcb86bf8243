#pragma once

// What a pass skips, and which folders it copies whole. The filter is a plain value; the tables
// that fill it for each profile live with the profiles.

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "model/BackupProfile.hpp"

namespace quillstow {

struct ExclusionFilter {
    std::set<std::string, std::less<>> excludedNames;         // exact, with case; any item
    std::set<std::string, std::less<>> excludedFilePatterns;  // "*" wildcards; files only
    std::set<std::string, std::less<>> excludedExtensions;    // lower case; files only
    BackupProfile profile = BackupProfile::standard;

    bool isExcluded(std::string_view name, bool isDirectory) const;
};

// The filter of a profile. The profile tables are not filled in yet: nothing is excluded.
ExclusionFilter filterForProfile(BackupProfile profile);

// Whether a folder with this extension is copied as one item under the profile. No extension
// makes a unit yet, so every folder is entered.
bool isPackageUnit(std::string_view extension, BackupProfile profile);

// "*" is the only wildcard; a pattern without one compares ignoring case. The search takes the
// first occurrence of each piece and never backtracks.
bool matchesPattern(std::string_view name, std::string_view pattern);

// The path extension of a name: what follows the last dot, when that dot is neither the first
// nor the last character.
std::string_view pathExtension(std::string_view name);

// Files the system keeps in a mirror for itself: never copied, never archived.
bool isInternalFileName(std::string_view name);

// The profile whose data a listed tree seems to hold. The evidence tables are not there yet,
// so every tree reads as standard.
BackupProfile recommendProfile(const std::vector<std::string>& relativePaths,
                               const std::string& root);

}  // namespace quillstow
