#pragma once

// Looks at a folder the user calls a finished project, before anything is copied, and says what
// looks odd: numbered folders that are missing, files loose at the top, an empty finals folder,
// an awkward name. It proposes the name and the year to file under. It never changes anything
// and never refuses a project: everything it finds is a heads-up.
//
// A plain value with no state; inspect runs on whichever thread asks (the flow asks on the main
// thread, once, when the user picks a folder).

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/ProjectNames.hpp"
#include "copy/ExclusionFilter.hpp"

namespace quillstow {

// The shape of a well-formed project, in order.
inline constexpr std::array<std::string_view, 6> expectedProjectFolders = {
    "1 Documents", "2 Project Files", "3 Media", "4 Renders", "5 Drafts", "6 Finals"};

struct ProjectInspection {
    std::string name;  // the folder's last component, as it stands
    std::string tidiedName;
    std::vector<ProjectNameProblem> nameProblems;
    std::vector<std::string> missingFolders;    // in the expected order
    std::vector<std::string> looseFilesAtRoot;  // in listing order
    bool finalsAreEmpty = false;
    std::optional<int> suggestedYear;

    // The heads-ups for the review, in the order it shows them; empty when all is well.
    std::vector<std::string> warnings() const;

    bool operator==(const ProjectInspection&) const = default;
};

class ProjectInspector {
  public:
    // The standard profile's filter decides what is clutter rather than content.
    ProjectInspector();
    explicit ProjectInspector(ExclusionFilter clutterFilter);

    // Never fails: a folder that can't be read has no loose files and an empty finals folder.
    ProjectInspection inspect(const std::filesystem::path& folder) const;

  private:
    std::vector<std::string> looseFilesIn(const std::filesystem::path& folder) const;
    bool isFinalsEmpty(const std::filesystem::path& finals) const;

    ExclusionFilter clutterFilter_;
};

}  // namespace quillstow
