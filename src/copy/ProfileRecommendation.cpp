#include "copy/ProfileRecommendation.hpp"

#include <algorithm>
#include <set>
#include <string_view>
#include <unordered_map>

#include "support/FileHandle.hpp"
#include "support/Paths.hpp"
#include "support/TreeWalk.hpp"

namespace quillstow {

namespace {

using Table = std::unordered_map<std::string, BackupProfile, StringHash, std::equal_to<>>;

const Table& packageEvidence() {
    static const Table table{
        {"fcpbundle", BackupProfile::film},
        {"fcpevent", BackupProfile::film},
        {"fcpproject", BackupProfile::film},
        {"logicx", BackupProfile::music},
        {"band", BackupProfile::music},
        {"photoslibrary", BackupProfile::photography},
        {"aplibrary", BackupProfile::photography},
        {"lrlibrary", BackupProfile::photography},
    };
    return table;
}

const Table& folderMarkers() {
    static const Table table{
        {"Render Files", BackupProfile::film},
        {"Optimized Media", BackupProfile::film},
        {"Proxy Media", BackupProfile::film},
        {"Adobe Premiere Pro Auto-Save", BackupProfile::film},
        {"Media Cache", BackupProfile::film},
        {"CacheClip", BackupProfile::film},
        {"Previews.lrdata", BackupProfile::photography},
        {"Smart Previews.lrdata", BackupProfile::photography},
        {"Freeze Files", BackupProfile::music},
        {"node_modules", BackupProfile::developer},
        {".git", BackupProfile::developer},
        {"DerivedData", BackupProfile::developer},
        {"Pods", BackupProfile::developer},
        {"__pycache__", BackupProfile::developer},
        {".gradle", BackupProfile::developer},
        {".swiftpm", BackupProfile::developer},
        {"target", BackupProfile::developer},
        {"vendor", BackupProfile::developer},
    };
    return table;
}

const NameSet& fileMarkers() {
    static const NameSet set{
        "Package.swift",    "Podfile",        "package.json",     "yarn.lock",
        "pnpm-lock.yaml",   "pyproject.toml", "requirements.txt", "Pipfile",
        "Cargo.toml",       "go.mod",         "pom.xml",          "build.gradle",
        "build.gradle.kts", "Gemfile",        "Makefile",         "CMakeLists.txt",
    };
    return set;
}

const NameSet& projectFolderExtensions() {
    static const NameSet set{"xcodeproj", "xcworkspace", "playground"};
    return set;
}

struct ContentCategory {
    BackupProfile profile;
    bool countsHalf;
    NameSet extensions;
};

// In the order they are tried: the first that holds an extension takes the item, so "arw",
// "tiff" and "tif" count as video.
const std::vector<ContentCategory>& contentCategories() {
    static const std::vector<ContentCategory> categories{
        {BackupProfile::film,
         false,
         {"mov", "mp4", "m4v", "mkv", "avi", "wmv", "mxf", "r3d", "braw", "ari", "arw", "raw",
          "dpx", "exr", "tiff", "tif", "prores", "dnxhd", "dnxhr"}},
        {BackupProfile::photography,
         false,
         {"cr2", "cr3", "nef", "nrw", "arw", "raf", "rw2", "orf", "dng", "pef", "srw", "x3f", "iiq",
          "3fr"}},
        {BackupProfile::photography,
         true,
         {"jpg", "jpeg", "heic", "heif", "png", "psd", "psb", "tiff", "tif"}},
        {BackupProfile::music,
         false,
         {"wav", "aif", "aiff", "flac", "alac", "caf", "mp3", "m4a", "ogg", "opus"}},
        {BackupProfile::developer,
         false,
         {"swift", "m",    "h",     "mm",  "c",      "cpp", "cc",     "hpp",     "js",
          "jsx",   "ts",   "tsx",   "vue", "svelte", "py",  "rb",     "go",      "rs",
          "java",  "kt",   "scala", "clj", "php",    "lua", "pl",     "sh",      "bash",
          "zsh",   "json", "yaml",  "yml", "toml",   "xml", "gradle", "podspec", "lock"}},
        {BackupProfile::documents,
         false,
         {"pdf", "doc", "docx", "rtf", "rtfd", "txt", "md", "pages", "numbers", "key", "xls",
          "xlsx", "ppt", "pptx", "odt", "ods", "odp"}},
    };
    return categories;
}

// Each extension of the categories with the first that holds it.
const std::unordered_map<std::string, const ContentCategory*, StringHash, std::equal_to<>>&
categoryByExtension() {
    static const auto table = [] {
        std::unordered_map<std::string, const ContentCategory*, StringHash, std::equal_to<>> table;
        for (const auto& category : contentCategories()) {
            for (const auto& extension : category.extensions)
                table.emplace(extension, &category);
        }
        return table;
    }();
    return table;
}

std::string extensionOf(std::string_view relativePath) {
    return lowercased(pathExtension(lastComponent(relativePath)));
}

}  // namespace

void scanMarkers(const std::filesystem::path& folder, int depth,
                 std::map<BackupProfile, double>& scores) {
    const double weight = depth == 0 ? topMarkerWeight : nestedMarkerWeight;
    int subfoldersScanned = 0;
    walkTree(folder, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        const std::string name(entry.name);
        if (entry.info.isDirectory()) {
            if (const auto marker = folderMarkers().find(name); marker != folderMarkers().end()) {
                scores[marker->second] += weight;
            }
            if (projectFolderExtensions().contains(lowercased(pathExtension(name)))) {
                scores[BackupProfile::developer] += weight;
            }
            if (depth == 0 && subfoldersScanned < mostSubfoldersScanned) {
                ++subfoldersScanned;
                scanMarkers(paths::appending(folder, name), 1, scores);
            }
        } else if (fileMarkers().contains(name)) {
            scores[BackupProfile::developer] += weight;
        }
        return false;  // one level per listing; the scan goes deeper on its own terms
    });
}

BackupProfile recommendProfile(const WalkedEntries& items, const std::filesystem::path& root) {
    if (items.empty()) return BackupProfile::standard;

    // One look at each item's extension: a pass lists millions.
    std::map<BackupProfile, double> scores;
    std::set<BackupProfile> evidence;
    std::int64_t total = 0;
    std::map<BackupProfile, std::int64_t> bytes;
    for (const auto& item : items) {
        const std::int64_t size = item.byteCount();
        if (size >= 1) total += size;
        const std::string extension = extensionOf(item.relativePath());
        if (extension.empty()) continue;
        if (const auto found = packageEvidence().find(extension);
            found != packageEvidence().end()) {
            scores[found->second] += packageEvidenceWeight;
            evidence.insert(found->second);
        }
        if (size < 1) continue;
        if (const auto found = categoryByExtension().find(extension);
            found != categoryByExtension().end()) {
            bytes[found->second->profile] += found->second->countsHalf ? size >> 1 : size;
        }
    }

    std::map<BackupProfile, double> markers;
    scanMarkers(root, 0, markers);
    for (const auto& [profile, score] : markers) {
        if (score <= 0.0) continue;
        scores[profile] += score;
        evidence.insert(profile);
    }

    if (total >= 1) {
        for (const auto& [profile, profileBytes] : bytes) {
            const double share = double(profileBytes) / double(total);
            if (share < smallestShareForBonus) continue;
            if (!evidence.empty() && !evidence.contains(profile)) continue;
            scores[profile] += std::min(mostByteBonus, (0.5 + 2 * (share - 0.5)) * mostByteBonus);
        }
    }

    if (scores.empty()) return BackupProfile::standard;
    auto best = scores.begin();
    for (auto it = scores.begin(); it != scores.end(); ++it) {
        if (it->second > best->second) best = it;
    }
    return best->second >= scoreToWin ? best->first : BackupProfile::standard;
}

}  // namespace quillstow
