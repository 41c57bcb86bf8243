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

namespace quillstow {

using Path = std::filesystem::path;

json::Value toJson(const ProjectManifest& manifest) {
    json::Value files = json::Value::array();
    for (const auto& entry : manifest.files) {
        files.push_back({{"path", entry.path}, {"bytes", entry.bytes}});
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
                                  toInteger(required(entry, "bytes"), "bytes")});
    }
    return manifest;
}

ProjectManifestWriter::ProjectManifestWriter()
    : ProjectManifestWriter(filterForProfile(BackupProfile::standard)) {}

ProjectManifestWriter::ProjectManifestWriter(ExclusionFilter clutterFilter)
    : clutterFilter_(std::move(clutterFilter)) {}

std::vector<ProjectManifest::Entry> ProjectManifestWriter::listFiles(
    const Path& folder, const ManifestWalk& walk) const {
    std::vector<ProjectManifest::Entry> files;
    walkTree(folder, WalkDetail::metadata, [&](const WalkEntry& entry) {
        // Once stopped, no folder is entered, so the rest of the walk is the folders open now.
        if (walk.stop.stop_requested()) return false;
        // Folders are never pruned: only a file's own name makes it clutter.
        if (entry.info.isDirectory()) return true;
        if (!entry.info.isRegularFile() || entry.name == projectManifestName) return false;
        if (clutterFilter_.isExcluded(entry.name, false)) return false;
        files.push_back({entry.relativePath, entry.info.fileSize.value_or(0)});
        if (walk.onFile) walk.onFile(entry.relativePath);
        return false;
    });
    projectnames::sortInTextOrder(
        files,
        [](const ProjectManifest::Entry& entry) -> const std::string& { return entry.path; });
    return files;
}

ProjectManifest ProjectManifestWriter::scan(const Path& folder, const std::string& name,
                                            Date archivedAt, const ManifestWalk& walk) const {
    return {name, archivedAt, listFiles(folder, walk)};
}

void ProjectManifestWriter::write(const ProjectManifest& manifest, const Path& folder) const {
    atomicfile::write(paths::appending(folder, projectManifestName), json::write(toJson(manifest)));
}

ProjectCheckResult ProjectManifestWriter::check(const Path& folder, const ProjectManifest& manifest,
                                                const ManifestWalk& walk) const {
    const auto actual = listFiles(folder, walk);
    std::unordered_map<std::string_view, std::int64_t> sizes;
    for (const auto& entry : actual)
        sizes.emplace(entry.path, entry.bytes);

    ProjectCheckResult result;
    result.expectedCount = manifest.files.size();
    for (const auto& expected : manifest.files) {
        const auto found = sizes.find(expected.path);
        if (found == sizes.end()) {
            result.missing.push_back(expected.path);
        } else if (found->second != expected.bytes) {
            result.wrongSize.push_back(expected.path);
        }
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
    return result;
}

std::string ProjectManifestWriter::summary(const ProjectCheckResult& result) {
    return filingtext::checkSummary(result.missing.size(), result.wrongSize.size(),
                                    result.expectedCount);
}

}  // namespace quillstow
