#include "archive/ProjectSlimmer.hpp"

#include <algorithm>

#include "archive/FilingTexts.hpp"
#include "archive/ProjectNames.hpp"
#include "support/ByteCount.hpp"
#include "support/FileInfo.hpp"
#include "support/Paths.hpp"
#include "support/TreeWalk.hpp"

namespace quillstow {

namespace {

using Path = std::filesystem::path;

std::int64_t bytesBelow(const Path& folder) {
    std::int64_t bytes = 0;
    walkTree(folder, WalkDetail::metadata, [&](const WalkEntry& entry) {
        if (entry.info.isRegularFile()) bytes += entry.info.fileSize.value_or(0);
        return entry.info.isDirectory();
    });
    return bytes;
}

}  // namespace

ProjectSlimmer::ProjectSlimmer(BackupProfile profile, Trash& trash)
    : filter_(filterForProfile(profile)), trash_(trash) {}

std::vector<ProjectSlimmer::Finding> ProjectSlimmer::findings(const Path& project) const {
    const std::string searched = searchedFolder;
    const Path folder = paths::appending(project, searched);
    std::vector<Finding> found;
    walkTree(folder, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        if (!entry.info.isDirectory()) return false;
        // Exact names with case; patterns and extensions speak of files only.
        if (!filter_.excludedNames->contains(entry.name)) return true;
        const Path url = paths::appending(folder, entry.relativePath);
        found.push_back(
            {url, searched + "/" + entry.relativePath, std::string(entry.name), bytesBelow(url)});
        return false;
    });
    projectnames::sortInTextOrder(
        found, [](const Finding& finding) -> const std::string& { return finding.relativePath; });
    return found;
}

ProjectSlimmer::Removal ProjectSlimmer::remove(const std::vector<Finding>& items) const {
    Removal removal;
    for (const auto& item : items) {
        // The user may have cleared it away since the review.
        if (!files::exists(item.url)) continue;
        try {
            trash_.moveToTrash(item.url);
            removal.removed += 1;
            removal.bytesFreed += item.bytes;
        } catch (const Failure& failure) {
            removal.failures.push_back(item.relativePath + ": " + failure.error().description);
            log_.error("Could not trash rebuildable folder %{private}s: %{public}s",
                       item.relativePath, failure.error().description);
        }
    }
    return removal;
}

std::string ProjectSlimmer::summary(const Report& report) {
    if (report.items.empty()) return std::string(filingtext::nothingToTidy);
    std::int64_t bytes = 0;
    for (const auto& item : report.items)
        bytes += item.bytes;
    return filingtext::rebuildableOffer(formatByteCount(bytes), report.items.size());
}

}  // namespace quillstow
