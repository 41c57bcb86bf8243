#include "copy/ExclusionFilter.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <mutex>

namespace quillstow {

namespace {

using Names = std::vector<std::string_view>;

const Names baseExcludedNames{
    ".git",
    ".svn",
    ".hg",
    "node_modules",
    ".npm",
    ".yarn",
    "DerivedData",
    "build",
    "Build",
    "Pods",
    ".cocoapods",
    ".DS_Store",
    ".Spotlight-V100",
    ".Trashes",
    ".fseventsd",
    "__pycache__",
    ".pytest_cache",
    ".mypy_cache",
    ".env.local",
    ".Quillstow-Trash",
};

const Names baseExcludedPatterns{"*.xcuserstate", ".env.*.local", "Thumbs.db", "desktop.ini"};

const Names universalExcludedNames{".Spotlight-V100", ".Trashes", ".fseventsd", ".TemporaryItems",
                                   ".DocumentRevisions-V100"};

struct ProfileTables {
    Names names;
    Names extensions;
    Names packageExtensions;
};

const ProfileTables& tablesOf(BackupProfile profile) {
    static const ProfileTables none{};
    static const ProfileTables film{
        {"Render Files", "Audio Render Files", "Optimized Media", "Proxy Media", "Transcoded Media",
         "Common Cache Files", "Adobe Premiere Pro Auto-Save", "Adobe Premiere Pro Preview Files",
         "Adobe After Effects Auto-Save", "Adobe Audition Auto-Save", "Media Cache",
         "Media Cache Files", "CacheClip", "Optimized Clips"},
        {"pek", "cfa", "ims", "mpgindex", "tmp"},
        {"fcpbundle", "fcpevent", "fcpproject", "rcproject", "motn", "drp", "prproj"}};
    static const ProfileTables photography{{"Previews.lrdata", "Smart Previews.lrdata",
                                            "Helper.lrdata", "Cache", "Proxies", "Thumbnails"},
                                           {"lrdata"},
                                           {"lrcat", "lrlibrary", "cosessiondb", "cocatalog"}};
    static const ProfileTables music{
        {"Freeze Files", "Bounces", "Movie Files"}, {"asd"}, {"logicx", "band", "ptx", "als"}};
    // "dSYM" keeps its capitals and so never matches a lower-cased extension: kept as it is.
    static const ProfileTables developer{
        {"node_modules",  ".next",       ".nuxt",  ".turbo",      ".vercel",  "__pycache__",
         ".pytest_cache", ".mypy_cache", ".tox",   "venv",        ".venv",    "env",
         ".env",          ".gradle",     "target", "vendor",      "build",    "dist",
         "out",           "bin",         "obj",    "DerivedData", ".swiftpm", ".cache",
         ".turbo-cache",  ".bundle",     "tmp",    "Pods"},
        {"pyc", "pyo", "o", "obj", "class", "swiftmodule", "swiftdoc", "dSYM", "log"},
        {}};
    switch (profile) {
        case BackupProfile::film:
            return film;
        case BackupProfile::photography:
            return photography;
        case BackupProfile::music:
            return music;
        case BackupProfile::developer:
            return developer;
        case BackupProfile::standard:
        case BackupProfile::documents:
            return none;
    }
    return none;
}

const Names universalPackageExtensions{"app",       "framework",    "bundle",    "kext",
                                       "xpc",       "appex",        "plugin",    "photoslibrary",
                                       "aplibrary", "musiclibrary", "tvlibrary", "imovielibrary"};

constexpr std::array<std::string_view, 3> internalFileNames{
    ".quillstow-checkpoint.json",
    ".quillstow-hashes.json",
    ".quillstow-lastcheck",
};

void insertAll(NameSet& set, const Names& names) {
    for (auto name : names)
        set.emplace(name);
}

std::shared_ptr<const NameSet> sharedSet(const Names& names) {
    auto set = std::make_shared<NameSet>();
    insertAll(*set, names);
    return set;
}

// The filter of each profile without additional names, built once.
const ExclusionFilter& sharedFilterOf(BackupProfile profile) {
    static const std::map<BackupProfile, ExclusionFilter> filters = [] {
        std::map<BackupProfile, ExclusionFilter> built;
        const auto patterns = sharedSet(baseExcludedPatterns);
        for (const auto& [candidate, name] : backupProfileNames) {
            const ProfileTables& tables = tablesOf(candidate);
            auto names = std::make_shared<NameSet>();
            insertAll(*names, baseExcludedNames);
            insertAll(*names, tables.names);
            insertAll(*names, universalExcludedNames);
            ExclusionFilter filter;
            filter.excludedNames = std::move(names);
            filter.excludedFilePatterns = patterns;
            filter.excludedExtensions = sharedSet(tables.extensions);
            filter.profile = candidate;
            built.emplace(candidate, std::move(filter));
        }
        return built;
    }();
    return filters.at(profile);
}

const std::map<BackupProfile, NameSet>& packageExtensionsByProfile() {
    static const std::map<BackupProfile, NameSet> sets = [] {
        std::map<BackupProfile, NameSet> built;
        for (const auto& [profile, name] : backupProfileNames) {
            NameSet& set = built[profile];
            insertAll(set, universalPackageExtensions);
            insertAll(set, tablesOf(profile).packageExtensions);
        }
        return built;
    }();
    return sets;
}

}  // namespace

namespace {

// ASCII only, whatever the locale: names are UTF-8, whose other bytes no lower-casing of
// single bytes may touch. Inline, since both walks of a pass lower every name.
char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
}

}  // namespace

std::string lowercased(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), lowered);
    return lower;
}

std::string_view pathExtension(std::string_view name) {
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return {};
    return name.substr(dot + 1);
}

std::string_view deletingPathExtension(std::string_view name) {
    const std::string_view extension = pathExtension(name);
    return extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
}

namespace {

bool equalIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return lowered(x) == lowered(y);
           });
}

// The first occurrence of `piece` in `text` at or after `from`, ignoring case.
std::size_t findIgnoringCase(std::string_view text, std::string_view piece, std::size_t from) {
    if (piece.size() > text.size()) return std::string_view::npos;
    for (std::size_t at = from; at + piece.size() <= text.size(); ++at) {
        if (equalIgnoringCase(text.substr(at, piece.size()), piece)) return at;
    }
    return std::string_view::npos;
}

}  // namespace

// Compares as if both sides were lower-cased first, without making lower-cased copies: a pass
// asks this of every file it lists.
bool matchesPattern(std::string_view name, std::string_view pattern) {
    if (pattern.find('*') == std::string_view::npos) return equalIgnoringCase(name, pattern);

    const bool anchoredAtStart = !pattern.starts_with('*');
    const bool anchoredAtEnd = !pattern.ends_with('*');
    std::size_t position = 0;
    std::string_view rest = pattern;
    for (bool isFirst = true;; isFirst = false) {
        const auto star = rest.find('*');
        const bool isLast = star == std::string_view::npos;
        const std::string_view piece = isLast ? rest : rest.substr(0, star);
        if (!piece.empty()) {
            const auto found = findIgnoringCase(name, piece, position);
            if (found == std::string_view::npos) return false;
            if (isFirst && anchoredAtStart && found != 0) return false;
            if (isLast && anchoredAtEnd && found + piece.size() != name.size()) return false;
            position = found + piece.size();
        }
        if (isLast) return true;
        rest.remove_prefix(star + 1);
    }
}

ExclusionFilter ExclusionFilter::with(NameSet names, NameSet patterns, NameSet extensions,
                                      BackupProfile profile) {
    ExclusionFilter filter;
    filter.excludedNames = std::make_shared<NameSet>(std::move(names));
    filter.excludedFilePatterns = std::make_shared<NameSet>(std::move(patterns));
    filter.excludedExtensions = std::make_shared<NameSet>(std::move(extensions));
    filter.profile = profile;
    return filter;
}

bool ExclusionFilter::isExcluded(std::string_view name, bool isDirectory) const {
    if (excludedNames->contains(name)) return true;
    if (isDirectory) return false;
    for (const auto& pattern : *excludedFilePatterns) {
        if (matchesPattern(name, pattern)) return true;
    }
    const std::string_view extension = pathExtension(name);
    if (extension.empty()) return false;
    // Lower-cased on the stack: every file of a pass comes here.
    std::array<char, 32> lower;
    if (extension.size() > lower.size()) return excludedExtensions->contains(lowercased(extension));
    std::transform(extension.begin(), extension.end(), lower.begin(), lowered);
    return excludedExtensions->contains(std::string_view(lower.data(), extension.size()));
}

ExclusionFilter filterForProfile(BackupProfile profile,
                                 const std::vector<std::string>& additionalNames) {
    ExclusionFilter filter = sharedFilterOf(profile);
    if (!additionalNames.empty()) {
        auto names = std::make_shared<NameSet>(*filter.excludedNames);
        names->insert(additionalNames.begin(), additionalNames.end());
        filter.excludedNames = std::move(names);
    }
    return filter;
}

ExclusionFilter filterForPair(const BackupPair& pair) {
    return filterForProfile(pair.profile);
}

std::vector<std::string> profileExcludedNames(BackupProfile profile) {
    const Names& names = tablesOf(profile).names;
    return {names.begin(), names.end()};
}

std::vector<std::string> profileExcludedExtensions(BackupProfile profile) {
    const Names& extensions = tablesOf(profile).extensions;
    return {extensions.begin(), extensions.end()};
}

bool isPackageUnit(std::string_view extension, BackupProfile profile) {
    return packageExtensionsByProfile().at(profile).contains(lowercased(extension));
}

bool isInternalFileName(std::string_view name) {
    return std::find(internalFileNames.begin(), internalFileNames.end(), name) !=
           internalFileNames.end();
}

}  // namespace quillstow
