#include "ProjectFolders.hpp"

#include "TestTree.hpp"

namespace quillstow::testing {

namespace fs = std::filesystem;

fs::path makeFilmProject(const fs::path& parent) {
    const fs::path project = parent / "Spring Campaign 2023";
    writeFile(project / "1 Documents/brief.txt", "two minutes, no voice-over");
    writeFile(project / "2 Project Files/Edit.kdenlive", "<mlt/>");
    writeFile(project / "2 Project Files/Render Files/a.mov", "abc");
    writeFile(project / "2 Project Files/Render Files/b.mov", "defgh");
    writeFile(project / "2 Project Files/Render Files/Render Files/c.mov", "");
    writeFile(project / "2 Project Files/Old Cut/Media Cache/index.cfa", "1234567");
    writeFile(project / "3 Media/A001.mov", std::string(3000, 'f'));
    makeFolder(project / "4 Renders");
    makeFolder(project / "5 Drafts");
    writeFile(project / "6 Finals/Campaign.mp4", std::string(1000, 'm'));
    return project;
}

fs::path makePhotoFolder(const fs::path& parent) {
    const fs::path project = parent / "SS24 Lookbook";
    writeFile(project / "IMG_0001.jpg", "jpeg one");
    writeFile(project / "IMG_0002.jpg", "jpeg two");
    writeFile(project / ".DS_Store", "finder");
    writeFile(project / "Selects/IMG_0001.jpg", "jpeg one");
    return project;
}

fs::path makeCodeBase(const fs::path& parent) {
    const fs::path project = parent / "toolkit";
    writeFile(project / "1 Documents/README", "read me");
    writeFile(project / "2 Project Files/src/main.cpp", "int main() {}");
    writeFile(project / "2 Project Files/.git/HEAD", "ref: refs/heads/main");
    writeFile(project / "2 Project Files/node_modules/left-pad/index.js", "pad");
    writeFile(project / "2 Project Files/node_modules/left-pad/package.json", "{}");
    writeFile(project / "6 Finals/toolkit-1.0.tar", "tar");
    return project;
}

bool holdsOnlyHidden(const fs::path& folder) {
    if (!fs::exists(folder)) return true;
    for (const auto& entry : fs::directory_iterator(folder))
        if (!entry.path().filename().native().starts_with('.')) return false;
    return true;
}

}  // namespace quillstow::testing
