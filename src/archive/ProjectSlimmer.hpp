#pragma once

// Finds the folders inside a project's working folder that its applications rebuild on their
// own (render caches, proxies, build output), says how much room they take, and at the user's
// explicit choice moves them to the Trash before the project is filed. The only part of the
// filing that changes an original, and only through the Trash, from which it can be put back.
//
// A plain value with no state of its own; the flow calls it on the main thread.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "archive/Trash.hpp"
#include "copy/ExclusionFilter.hpp"
#include "support/Logger.hpp"

namespace quillstow {

class ProjectSlimmer {
  public:
    struct Finding {
        std::filesystem::path url;
        std::string relativePath;  // below the project folder
        std::string name;
        std::int64_t bytes = 0;  // the regular files below it; links aren't followed

        bool operator==(const Finding&) const = default;
    };

    struct Report {
        std::vector<Finding> items;

        bool operator==(const Report&) const = default;
    };

    struct Removal {
        int removed = 0;
        std::int64_t bytesFreed = 0;
        std::vector<std::string> failures;  // "{relativePath}: {reason}"
    };

    // The one folder searched: where a project's applications keep their working files.
    static constexpr const char* searchedFolder = "2 Project Files";

    // The profile's excluded names are what counts as rebuildable; the flow passes `film`.
    ProjectSlimmer(BackupProfile profile, Trash& trash);

    // Sorted by relative path; a rebuildable folder inside another is covered by the outer one.
    // Never fails: what can't be read contributes nothing.
    std::vector<Finding> findings(const std::filesystem::path& project) const;

    // In the list's order; one that is gone already is passed over, one that can't be moved is
    // a failure and the rest go on.
    Removal remove(const std::vector<Finding>& items) const;

    static std::string summary(const Report& report);

  private:
    ExclusionFilter filter_;
    Trash& trash_;
    const Logger log_{"app"};
};

}  // namespace quillstow
