#include "copy/RunningEditors.hpp"

#include "support/Paths.hpp"

namespace quillstow {

bool isOpenInEditor(const EditorSnapshot& snapshot, const std::filesystem::path& item,
                    const FileInfo* info) {
    if (info && snapshot.openFiles.contains({info->device, info->inode})) return true;
    const std::string path = paths::resolved(item).native();
    if (snapshot.openPaths.contains(path)) return true;
    const std::string folder = path.ends_with('/') ? path : path + "/";
    const auto candidate = snapshot.openPaths.lower_bound(folder);
    return candidate != snapshot.openPaths.end() && candidate->starts_with(folder);
}

}  // namespace quillstow
