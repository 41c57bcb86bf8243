#include "archive/ProjectInspector.hpp"

#include "archive/FilingTexts.hpp"
#include "support/FileInfo.hpp"
#include "support/Paths.hpp"
#include "support/TreeWalk.hpp"

namespace quillstow {

namespace {

using Path = std::filesystem::path;

// One level of a folder, hidden entries included, as the listing gives them: a link is a link,
// whatever it points at. False when the folder can't be listed.
bool listOneLevel(const Path& folder, std::vector<std::pair<std::string, bool>>& entries) {
    return walkTree(folder, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        entries.emplace_back(std::string(entry.name), entry.info.isDirectory());
        return false;
    });
}

std::string_view messageFor(ProjectNameProblem problem) {
    switch (problem) {
        case ProjectNameProblem::surroundingWhitespace:
            return filingtext::surroundingWhitespace;
        case ProjectNameProblem::repeatedSpaces:
            return filingtext::repeatedSpaces;
        case ProjectNameProblem::awkwardCharacters:
            return filingtext::awkwardCharacters;
    }
    return {};
}

}  // namespace

std::vector<std::string> ProjectInspection::warnings() const {
    std::vector<std::string> messages;
    if (finalsAreEmpty) messages.emplace_back(filingtext::finalsEmpty);
    if (!looseFilesAtRoot.empty())
        messages.push_back(filingtext::looseFiles(looseFilesAtRoot.size()));
    if (!missingFolders.empty()) messages.push_back(filingtext::missingFolders(missingFolders));
    for (const auto problem : nameProblems)
        messages.emplace_back(messageFor(problem));
    return messages;
}

ProjectInspector::ProjectInspector()
    : ProjectInspector(filterForProfile(BackupProfile::standard)) {}

ProjectInspector::ProjectInspector(ExclusionFilter clutterFilter)
    : clutterFilter_(std::move(clutterFilter)) {}

ProjectInspection ProjectInspector::inspect(const Path& folder) const {
    ProjectInspection inspection;
    inspection.name = paths::lastPathComponent(folder);
    for (const auto expected : expectedProjectFolders) {
        // A file called "3 Media" is no folder; a link to a folder is followed, as an open would.
        if (!files::isFolder(paths::appending(folder, std::string(expected)))) {
            inspection.missingFolders.emplace_back(expected);
        }
    }
    inspection.tidiedName = projectnames::tidiedName(inspection.name);
    inspection.nameProblems = projectnames::problemsOf(inspection.name);
    inspection.looseFilesAtRoot = looseFilesIn(folder);
    inspection.finalsAreEmpty = isFinalsEmpty(paths::appending(folder, "6 Finals"));
    inspection.suggestedYear = projectnames::suggestedYear(inspection.name);
    return inspection;
}

std::vector<std::string> ProjectInspector::looseFilesIn(const Path& folder) const {
    std::vector<std::pair<std::string, bool>> entries;
    if (!listOneLevel(folder, entries)) return {};
    std::vector<std::string> loose;
    for (const auto& [name, isDirectory] : entries) {
        if (isDirectory || name.starts_with('.')) continue;
        if (clutterFilter_.isExcluded(name, false)) continue;
        loose.push_back(name);
    }
    return loose;
}

bool ProjectInspector::isFinalsEmpty(const Path& finals) const {
    std::vector<std::pair<std::string, bool>> entries;
    if (!listOneLevel(finals, entries)) return true;
    // A hidden file that isn't clutter is content here, and so is any sub-folder, even empty.
    for (const auto& entry : entries) {
        if (!clutterFilter_.isExcluded(entry.first, false)) return false;
    }
    return true;
}

}  // namespace quillstow
