#pragma once

// Real finished projects for the archive tests, built on disk the way people leave them: a film
// with its render caches, a photo shoot that never got the numbered folders, and a code base.

#include <filesystem>

namespace quillstow::testing {

// "Spring Campaign 2023": the six numbered folders, finals, and under "2 Project Files" an edit
// with "Render Files" (3 + 5 bytes) and "Media Cache" (7 bytes), and "Render Files" nested in
// "Render Files" again.
std::filesystem::path makeFilmProject(const std::filesystem::path& parent);

// "SS24 Lookbook": pictures loose at the top, a ".DS_Store", and no numbered folder at all.
std::filesystem::path makePhotoFolder(const std::filesystem::path& parent);

// "toolkit": sources in "2 Project Files", with a ".git" and a "node_modules" of two files.
std::filesystem::path makeCodeBase(const std::filesystem::path& parent);

}  // namespace quillstow::testing
