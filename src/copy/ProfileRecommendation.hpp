#pragma once

// Which kind of data a folder seems to hold: evidence from packages, marker folders and files
// near the top, and the share of bytes of each kind. A byte share alone never wins; a package of
// the evidence table does. Nothing here fails: what can't be read counts as absent.

#include <filesystem>
#include <map>
#include <vector>

#include "copy/SourceListing.hpp"
#include "model/BackupProfile.hpp"

namespace quillstow {

inline constexpr double packageEvidenceWeight = 40.0;
inline constexpr double topMarkerWeight = 20.0;
inline constexpr double nestedMarkerWeight = 12.0;
inline constexpr int mostSubfoldersScanned = 30;
inline constexpr double smallestShareForBonus = 0.5;
inline constexpr double mostByteBonus = 25.0;
inline constexpr double scoreToWin = 40.0;

// The profile for the items of a listing of `root`; standard when no profile scores 40.
BackupProfile recommendProfile(const WalkedEntries& items, const std::filesystem::path& root);

// Adds the marker scores of `folder` and, at depth 0, of up to 30 of its subfolders.
void scanMarkers(const std::filesystem::path& folder, int depth,
                 std::map<BackupProfile, double>& scores);

}  // namespace quillstow
