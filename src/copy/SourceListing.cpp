#include "copy/SourceListing.hpp"

#include "copy/FileTransfer.hpp"
#include "support/Paths.hpp"
#include "support/TreeWalk.hpp"

namespace quillstow {

EntryRole roleOf(std::string_view name, const FileInfo& info, const ExclusionFilter& filter,
                 bool skipsReservedNames) {
    if (info.isSymbolicLink()) return EntryRole::none;
    if (isInternalFileName(name)) return EntryRole::none;
    if (skipsReservedNames && transfer::isReservedName(name)) return EntryRole::none;
    if (filter.isExcluded(name, info.isDirectory())) return EntryRole::none;
    if (info.isDirectory()) {
        const std::string_view extension = pathExtension(name);
        const bool isPackage = !extension.empty() && isPackageUnit(extension, filter.profile);
        return isPackage ? EntryRole::item : EntryRole::folder;
    }
    return info.isRegularFile() ? EntryRole::item : EntryRole::none;
}

namespace {

SourceListing readSource(FileSystem& fileSystem, const std::filesystem::path& source,
                         const ExclusionFilter& filter, const std::stop_token& stop) {
    SourceListing listing;
    // Walking the resolved root makes every item's path a resolved one: the walk follows no
    // link below it, so the relative path of an item is the path it was reached by.
    fileSystem.walkTree(
        paths::resolved(source), WalkDetail::metadata,
        [&](const WalkEntry& entry) -> std::optional<WalkDetail> {
            const EntryRole role = roleOf(entry.name, entry.info, filter, false);
            if (role == EntryRole::item) listing.items.add(entry.relativePath, entry.info);
            if (role != EntryRole::folder || stop.stop_requested()) return std::nullopt;
            listing.folders.push_back({entry.relativePath, entry.info.modificationDate});
            return WalkDetail::metadata;
        },
        [&](const std::string& relativePath, int error) {
            listing.unreadableFolders.push_back({relativePath, error});
        });
    return listing;
}

}  // namespace

SourceListing readSource(FileSystem& fileSystem, const std::filesystem::path& source,
                         const ExclusionFilter& filter) {
    return readSource(fileSystem, source, filter, {});
}

WalkedEntries listSource(const std::filesystem::path& source, const ExclusionFilter& filter,
                         std::stop_token stop) {
    LocalFileSystem fileSystem;
    return readSource(fileSystem, source, filter, stop).items;
}

bool needsCopy(const std::optional<FileInfo>& source, const std::optional<FileInfo>& destination) {
    if (!destination || !source) return true;
    if (destination->isSymbolicLink() || destination->isDirectory() != source->isDirectory()) {
        return true;
    }
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
