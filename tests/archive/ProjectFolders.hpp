#pragma once

// Finished projects as people leave them, built on disk for the filing tests.

#include <filesystem>

namespace quillstow::testing {

// "Spring Campaign 2023": the six numbered folders, finals, and under "2 Project Files" an edit
// with "Render Files" (3 + 5 bytes, and "Render Files" nested again) and "Media Cache" (7 bytes).
std::filesystem::path makeFilmProject(const std::filesystem::path& parent);

// "SS24 Lookbook": pictures loose at the top, a ".DS_Store", and no numbered folder at all.
std::filesystem::path makePhotoFolder(const std::filesystem::path& parent);

// "toolkit": sources in "2 Project Files", with a ".git" and a "node_modules" of two files.
std::filesystem::path makeCodeBase(const std::filesystem::path& parent);

// Whether `folder` is missing or holds hidden entries only: nothing filed under a name, at most
// what a stopped filing leaves for the next one to sweep.
bool holdsOnlyHidden(const std::filesystem::path& folder);

}  // namespace quillstow::testing
