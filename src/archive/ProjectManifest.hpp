#pragma once

// The proof of a filed project: every file of the original with its size and SHA-256 digest,
// taken before the copy, kept in the archived folder as ".quillstow-manifest.json", and compared
// with what stands in the archive afterwards. Sizes alone would pass a copy that kept every
// length but not every byte; the digests catch that.
//
// The writer is a plain value with no state; its operations run on the filer's task. Scans and
// checks poll `stop` between files and between the buffers of one file.

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
        std::string sha256;  // 64 lower-case hex digits; empty when the file couldn't be read

        bool operator==(const Entry&) const = default;
    };

    std::string name;
    Date archivedAt;
    std::vector<Entry> files;  // sorted by path

    bool operator==(const ProjectManifest&) const = default;
};

// Keys "archivedAt", "files", "name"; in each entry "bytes", "path", "sha256"; dates in UTC
// to the second.
json::Value toJson(const ProjectManifest& manifest);
// Every key required; throws the decoding failure otherwise.
ProjectManifest projectManifestFromJson(const json::Value& value);

struct ProjectCheckResult {
    std::vector<std::string> missing;
    std::vector<std::string> wrongSize;
    // Present at the right size, with another digest (or one that couldn't be read).
    std::vector<std::string> differentContent;
    // Found but not listed: never part of the verdict.
    std::vector<std::string> added;
    std::size_t expectedCount = 0;

    bool passes() const { return missing.empty() && wrongSize.empty() && differentContent.empty(); }
    bool operator==(const ProjectCheckResult&) const = default;
};

class ProjectManifestWriter {
  public:
    // Hears the bytes digested so far in the scan or check at hand, of how many, and the file
    // being read.
    using Progress = std::function<void(std::int64_t bytesDone, std::int64_t bytesTotal,
                                        const std::string& relativePath)>;

    // The standard profile's filter decides what is clutter rather than content.
    ProjectManifestWriter();
    explicit ProjectManifestWriter(ExclusionFilter clutterFilter);

    // Every regular file below `folder` but clutter and the manifest itself, by its own name;
    // folders are never pruned, so the files inside a "node_modules" are listed. Never fails:
    // what can't be read isn't counted. A stop ends the scan with what it has.
    ProjectManifest scan(const std::filesystem::path& folder, const std::string& name,
                         Date archivedAt, const Progress& onProgress = nullptr,
                         std::stop_token stop = {}) const;

    // Replaces any earlier manifest atomically; throws Failure when it can't be written.
    void write(const ProjectManifest& manifest, const std::filesystem::path& folder) const;

    // Lists `folder` once and reads only the files that have their expected size. Never fails.
    ProjectCheckResult check(const std::filesystem::path& folder, const ProjectManifest& manifest,
                             const Progress& onProgress = nullptr, std::stop_token stop = {}) const;

    // The sum of the sizes a manifest lists: the bytes a scan or check reads.
    static std::int64_t totalBytes(const ProjectManifest& manifest);

    static std::string summary(const ProjectCheckResult& result);

  private:
    std::vector<ProjectManifest::Entry> listFiles(const std::filesystem::path& folder) const;

    ExclusionFilter clutterFilter_;
};

}  // namespace quillstow
