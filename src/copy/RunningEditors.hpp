#pragma once

// Which editing applications run, and which files they hold open, so that a pass doesn't copy
// a project file in the middle of a save. The snapshot is taken once per pass.

#include <sys/types.h>

#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/FileInfo.hpp"

namespace quillstow {

struct EditorSnapshot {
    // Display names of the running editors, unique and sorted.
    std::vector<std::string> names;
    // Resolved paths of what they hold open.
    std::set<std::string, std::less<>> openPaths;
    // Device and inode of what they hold open, for files reached by another path.
    std::set<std::pair<dev_t, ino_t>> openFiles;

    bool hasEditors() const { return !names.empty(); }
};

// A platform service. Any thread may call it; the default reports no editors.
class RunningEditors {
  public:
    virtual ~RunningEditors() = default;
    virtual EditorSnapshot snapshot() const { return {}; }
};

// Whether an item is open in one of the editors: the file itself, or for a folder copied whole,
// anything inside it. `info` is the item's own metadata when known.
bool isOpenInEditor(const EditorSnapshot& snapshot, const std::filesystem::path& item,
                    const FileInfo* info);

}  // namespace quillstow
