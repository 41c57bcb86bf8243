#include "copy/SourceListing.hpp"

#include "copy/TreeWalk.hpp"
#include "support/Paths.hpp"

namespace quillstow {

std::vector<ListedItem> listSource(const std::filesystem::path& source,
                                   const ExclusionFilter& filter) {
    std::vector<ListedItem> items;
    // Walking the resolved root makes every item's path a resolved one: the walk follows no
    // link below it, so the relative path of an item is the path it was reached by.
    walkTree(paths::resolved(source), WalkDetail::metadata, [&](const WalkEntry& entry) {
        const FileInfo& info = entry.info;
        if (info.isSymbolicLink()) return false;
        if (isInternalFileName(entry.name)) return false;
        if (filter.isExcluded(entry.name, info.isDirectory())) return false;
        if (info.isDirectory()) {
            const std::string_view extension = pathExtension(entry.name);
            if (!extension.empty() && isPackageUnit(extension, filter.profile)) {
                items.push_back({entry.relativePath, info});
                return false;
            }
            return true;
        }
        if (info.isRegularFile()) items.push_back({entry.relativePath, info});
        return false;
    });
    return items;
}

std::string relativePath(const std::filesystem::path& root, const std::filesystem::path& item) {
    std::string rootPath = paths::resolved(root).native();
    if (!rootPath.ends_with('/')) rootPath += '/';
    const std::string itemPath = paths::resolved(item).native();
    if (itemPath.starts_with(rootPath)) return itemPath.substr(rootPath.size());
    return paths::lastPathComponent(itemPath);
}

bool needsCopy(const std::optional<FileInfo>& source, const std::optional<FileInfo>& destination) {
    if (!destination || !source) return true;
    // A missing size counts as 0 on either side, so a folder copied whole only agrees with
    // another folder (or an empty file) and its date alone decides.
    if (source->fileSize.value_or(0) != destination->fileSize.value_or(0)) return true;
    if (!source->modificationDate || !destination->modificationDate) return true;
    const auto difference = *source->modificationDate - *destination->modificationDate;
    return difference > modificationDateTolerance || -difference > modificationDateTolerance;
}

bool needsCopy(const std::filesystem::path& source, const std::filesystem::path& destination) {
    const auto destinationInfo = files::readInfo(destination);
    if (!destinationInfo) return true;
    return needsCopy(files::readInfo(source), destinationInfo);
}

}  // namespace quillstow
