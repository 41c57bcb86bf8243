#include "archive/ProjectManifest.hpp"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "archive/FilingTexts.hpp"
#include "archive/ProjectNames.hpp"
#include "model/Coding.hpp"
#include "support/AtomicFile.hpp"
#include "support/Paths.hpp"
#include "support/TreeWalk.hpp"
#include "verify/IntegrityVerifier.hpp"

namespace quillstow {

namespace {

using Path = std::filesystem::path;

// The digest of one listed file, telling the bytes read so far across the whole operation.
struct DigestProgress {
    const ProjectManifestWriter::Progress& onProgress;
    std::int64_t done = 0;
    std::int64_t total = 0;
};

std::string digestOf(const Path& folder, const std::string& relativePath,
                     const DigestProgress& progress, std::stop_token stop) {
    const auto tell = [&](std::int64_t bytesRead) {
        if (progress.onProgress) {
            progress.onProgress(progress.done + bytesRead, progress.total, relativePath);
        }
    };
    tell(0);
    const auto digest = sha256OfFile(paths::appending(folder, relativePath), stop, tell);
    return digest.value_or(std::string());
}

}  // namespace

json::Value toJson(const ProjectManifest& manifest) {
    json::Value files = json::Value::array();
    for (const auto& entry : manifest.files) {
        files.push_back({{"path", entry.path}, {"bytes", entry.bytes}, {"sha256", entry.sha256}});
    }
    return {{"name", manifest.name},
            {"archivedAt", coding::fromDate(manifest.archivedAt)},
            {"files", std::move(files)}};
}

ProjectManifest projectManifestFromJson(const json::Value& value) {
    using namespace coding;
    const Value& source = object(value, "a project manifest");
    ProjectManifest manifest;
    manifest.name = toString(required(source, "name"), "name");
    manifest.archivedAt = toDate(required(source, "archivedAt"), "archivedAt");
    for (const auto& item : array(required(source, "files"), "files")) {
        const Value& entry = object(item, "a manifest entry");
        manifest.files.push_back({toString(required(entry, "path"), "path"),
                                  toInteger(required(entry, "bytes"), "bytes"),
                                  toString(required(entry, "sha256"), "sha256")});
    }
    return manifest;
}

ProjectManifestWriter::ProjectManifestWriter()
    : ProjectManifestWriter(filterForProfile(BackupProfile::standard)) {}

ProjectManifestWriter::ProjectManifestWriter(ExclusionFilter clutterFilter)
    : clutterFilter_(std::move(clutterFilter)) {}

std::vector<ProjectManifest::Entry> ProjectManifestWriter::listFiles(const Path& folder) const {
    std::vector<ProjectManifest::Entry> files;
    walkTree(folder, WalkDetail::metadata, [&](const WalkEntry& entry) {
        // Folders are never pruned: only a file's own name makes it clutter.
        if (entry.info.isDirectory()) return true;
        if (!entry.info.isRegularFile() || entry.name == projectManifestName) return false;
        if (clutterFilter_.isExcluded(entry.name, false)) return false;
        files.push_back({entry.relativePath, entry.info.fileSize.value_or(0), {}});
        return false;
    });
    projectnames::sortInTextOrder(
        files,
        [](const ProjectManifest::Entry& entry) -> const std::string& { return entry.path; });
    return files;
}

ProjectManifest ProjectManifestWriter::scan(const Path& folder, const std::string& name,
                                            Date archivedAt, const Progress& onProgress,
                                            std::stop_token stop) const {
    ProjectManifest manifest{name, archivedAt, listFiles(folder)};
    DigestProgress progress{onProgress, 0, totalBytes(manifest)};
    for (auto& entry : manifest.files) {
        if (stop.stop_requested()) break;
        entry.sha256 = digestOf(folder, entry.path, progress, stop);
        progress.done += entry.bytes;
    }
    return manifest;
}

void ProjectManifestWriter::write(const ProjectManifest& manifest, const Path& folder) const {
    atomicfile::write(paths::appending(folder, projectManifestName), json::write(toJson(manifest)));
}

ProjectCheckResult ProjectManifestWriter::check(const Path& folder, const ProjectManifest& manifest,
                                                const Progress& onProgress,
                                                std::stop_token stop) const {
    const auto actual = listFiles(folder);
    std::unordered_map<std::string_view, std::int64_t> sizes;
    for (const auto& entry : actual)
        sizes.emplace(entry.path, entry.bytes);

    ProjectCheckResult result;
    result.expectedCount = manifest.files.size();
    DigestProgress progress{onProgress, 0, totalBytes(manifest)};
    for (const auto& expected : manifest.files) {
        if (stop.stop_requested()) break;
        const auto found = sizes.find(expected.path);
        if (found == sizes.end()) {
            result.missing.push_back(expected.path);
        } else if (found->second != expected.bytes) {
            result.wrongSize.push_back(expected.path);
        } else if (!expected.sha256.empty()) {
            const auto digest = digestOf(folder, expected.path, progress, stop);
            if (digest != expected.sha256 && !stop.stop_requested()) {
                result.differentContent.push_back(expected.path);
            }
        }
        progress.done += expected.bytes;
    }
    std::unordered_set<std::string_view> listed;
    for (const auto& expected : manifest.files)
        listed.insert(expected.path);
    for (const auto& entry : actual) {
        if (!listed.contains(entry.path)) result.added.push_back(entry.path);
    }
    // `actual` is sorted already; the manifest's order may be anyone's.
    const auto itself = [](const std::string& path) -> const std::string& { return path; };
    projectnames::sortInTextOrder(result.missing, itself);
    projectnames::sortInTextOrder(result.wrongSize, itself);
    projectnames::sortInTextOrder(result.differentContent, itself);
    return result;
}

std::int64_t ProjectManifestWriter::totalBytes(const ProjectManifest& manifest) {
    std::int64_t total = 0;
    for (const auto& entry : manifest.files)
        total += entry.bytes;
    return total;
}

std::string ProjectManifestWriter::summary(const ProjectCheckResult& result) {
    return filingtext::checkSummary(result.missing.size(), result.wrongSize.size(),
                                    result.differentContent.size(), result.expectedCount);
}

}  // namespace quillstow
