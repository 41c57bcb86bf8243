#pragma once

// What a pass leaves out (what a machine can make again) and which folders it copies whole.
// A filter is a plain value; its sets are built once per profile, on first use, and shared by
// every copy of the filter, so a lookup costs one hash.

#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "model/BackupPair.hpp"
#include "model/BackupProfile.hpp"

namespace quillstow {

struct StringHash {
    using is_transparent = void;
    // Not noexcept on purpose: the standard library then keeps each key's hash in its node, so a
    // lookup in a table of a million paths never hashes a neighbour's key again.
    std::size_t operator()(std::string_view text) const {
        return std::hash<std::string_view>{}(text);
    }
};

using NameSet = std::unordered_set<std::string, StringHash, std::equal_to<>>;

struct ExclusionFilter {
    // Exact names with case, for files and folders alike.
    std::shared_ptr<const NameSet> excludedNames = std::make_shared<NameSet>();
    // "*" wildcards, for files only.
    std::shared_ptr<const NameSet> excludedFilePatterns = std::make_shared<NameSet>();
    // Lower-case extensions, for files only.
    std::shared_ptr<const NameSet> excludedExtensions = std::make_shared<NameSet>();
    // Selects the package units.
    BackupProfile profile = BackupProfile::standard;

    // A filter of the given sets, for callers that build their own.
    static ExclusionFilter with(NameSet names, NameSet patterns, NameSet extensions,
                                BackupProfile profile = BackupProfile::standard);

    bool isExcluded(std::string_view name, bool isDirectory) const;
};

// The filter of a pair, from its profile.
ExclusionFilter filterForPair(const BackupPair& pair);

// The filter of a profile: the base names and patterns, the profile's names and extensions,
// the universal names, and any additional names (which nobody passes at present).
ExclusionFilter filterForProfile(BackupProfile profile,
                                 const std::vector<std::string>& additionalNames = {});

// What the profile leaves out beyond the tables every pair shares: folder names and
// lower-case extensions, in the tables' order. Empty for standard and documents.
std::vector<std::string> profileExcludedNames(BackupProfile profile);
std::vector<std::string> profileExcludedExtensions(BackupProfile profile);

// Whether a folder with this extension is copied as one item under the profile.
bool isPackageUnit(std::string_view extension, BackupProfile profile);

// "*" is the only wildcard; a pattern without one compares ignoring case. The search takes the
// first occurrence of each piece and never backtracks, so "*.tmp" does not match "a.tmp.tmp".
bool matchesPattern(std::string_view name, std::string_view pattern);

// What follows the last dot of a name, when that dot is neither its first nor its last
// character: ".env" has none, "a.tar.gz" has "gz".
std::string_view pathExtension(std::string_view name);

// The name without its extension and the dot before it.
std::string_view deletingPathExtension(std::string_view name);

std::string lowercased(std::string_view text);

// Files the system keeps in a mirror for itself: never copied, never archived, whatever the
// filter says.
bool isInternalFileName(std::string_view name);

}  // namespace quillstow
