#pragma once

// The proof of a filed project: every file of the original with its size, taken before the
// copy, kept in the archived folder as ".quillstow-manifest.json", and compared with what stands
// in the archive afterwards. The comparison is by presence and size: no file is opened, so a
// project of hundreds of gigabytes is proven in one walk of each side.
//
// The writer is a plain value with no state; its operations run on whatever task calls them.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "copy/ExclusionFilter.hpp"
#include "support/Dates.hpp"
#include "support/Json.hpp"

namespace quillstow {

inline constexpr const char* projectManifestName = ".quillstow-manifest.json";

struct ProjectManifest {
    struct Entry {
        std::string path;  // relative, "/" between components
        std::int64_t bytes = 0;

        bool operator==(const Entry&) const = default;
    };

    std::string name;
    Date archivedAt;
    std::vector<Entry> files;  // sorted by path

    bool operator==(const ProjectManifest&) const = default;
};

// Keys "archivedAt", "files", "name"; in each entry "bytes", "path"; dates in UTC
// to the second.
json::Value toJson(const ProjectManifest& manifest);
// Every key required; throws the decoding failure otherwise.
ProjectManifest projectManifestFromJson(const json::Value& value);

struct ProjectCheckResult {
    std::vector<std::string> missing;
    std::vector<std::string> wrongSize;
    // Found but not listed: never part of the verdict.
    std::vector<std::string> added;
    std::size_t expectedCount = 0;

    bool passes() const { return missing.empty() && wrongSize.empty(); }
    bool operator==(const ProjectCheckResult&) const = default;
};

// What a walk of a large project tells its caller and consults, on the walking thread: each
// file as it is listed, and a stop, after which the walk lists nothing more.
struct ManifestWalk {
    std::function<void(const std::string& relativePath)> onFile;
    std::stop_token stop;
};

class ProjectManifestWriter {
  public:
    // The standard profile's filter decides what is clutter rather than content.
    ProjectManifestWriter();
    explicit ProjectManifestWriter(ExclusionFilter clutterFilter);

    // Every regular file below `folder` but clutter and the manifest itself, by its own name;
    // folders are never pruned, so the files inside a "node_modules" are listed. Never fails:
    // what can't be read isn't counted. A stopped walk gives what it had listed.
    ProjectManifest scan(const std::filesystem::path& folder, const std::string& name,
                         Date archivedAt, const ManifestWalk& walk = {}) const;

    // Replaces any earlier manifest atomically; throws Failure when it can't be written.
    void write(const ProjectManifest& manifest, const std::filesystem::path& folder) const;

    // Lists `folder` once and compares presence and size; a file that kept its size but not
    // its bytes passes. Never fails; a stopped walk's result means nothing.
    ProjectCheckResult check(const std::filesystem::path& folder, const ProjectManifest& manifest,
                             const ManifestWalk& walk = {}) const;

    static std::string summary(const ProjectCheckResult& result);

  private:
    std::vector<ProjectManifest::Entry> listFiles(const std::filesystem::path& folder,
                                                  const ManifestWalk& walk) const;

    ExclusionFilter clutterFilter_;
};

}  // namespace quillstow
