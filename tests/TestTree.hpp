#pragma once

// Real folders for tests: a temporary folder that removes itself, and a small builder for the
// trees a test describes (folders, files with content and time, links).

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

#include "support/Dates.hpp"

namespace quillstow::testing {

class TemporaryFolder {
  public:
    // Made under $TMPDIR (or /tmp), or under `parent` when given.
    explicit TemporaryFolder(const std::filesystem::path& parent = {});
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& relative) const { return path_ / relative; }

  private:
    std::filesystem::path path_;
};

// Writes `content` at `path`, making its folders; with `modified`, sets that modification time.
void writeFile(const std::filesystem::path& path, const std::string& content);
void writeFile(const std::filesystem::path& path, const std::string& content, Date modified);

// The whole content; empty where there is no file.
std::string readFile(const std::filesystem::path& path);

void makeFolder(const std::filesystem::path& path);
void makeLink(const std::filesystem::path& link, const std::filesystem::path& target);

// Modification time to the nanosecond, of the item itself (a link is not followed).
void setModificationDate(const std::filesystem::path& path, Date date);
Date modificationDate(const std::filesystem::path& path);

// A fixed date well in the past, so that "now" never falls within a tolerance of it.
Date referenceDate();

// Every regular file below `root`, relative path to content; links and folders are left out.
std::map<std::string, std::string> filesBelow(const std::filesystem::path& root);

}  // namespace quillstow::testing
