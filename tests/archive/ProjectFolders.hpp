#pragma once

// Real finished projects for the archive tests, built on disk the way people leave them: a film
// with its render caches, a photo shoot that never got the numbered folders, and a code base.

#include <filesystem>
#include <optional>
#include <string>

namespace quillstow::testing {

// "Spring Campaign 2023": the six numbered folders, finals, and under "2 Project Files" an edit
// with "Render Files" (3 + 5 bytes) and "Media Cache" (7 bytes), and "Render Files" nested in
// "Render Files" again.
std::filesystem::path makeFilmProject(const std::filesystem::path& parent);

// "SS24 Lookbook": pictures loose at the top, a ".DS_Store", and no numbered folder at all.
std::filesystem::path makePhotoFolder(const std::filesystem::path& parent);

// "toolkit": sources in "2 Project Files", with a ".git" and a "node_modules" of two files.
std::filesystem::path makeCodeBase(const std::filesystem::path& parent);

// Whether `folder` is missing or holds hidden entries only: nothing filed under a name, at most
// what a stopped filing leaves for the next one to sweep.
bool holdsOnlyHidden(const std::filesystem::path& folder);

// Sets an environment variable for the length of a test, and puts the old value back.
class ScopedEnvironment {
  public:
    ScopedEnvironment(std::string name, const std::string& value);
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment();

  private:
    std::string name_;
    std::optional<std::string> previous_;
};

}  // namespace quillstow::testing
