#include "copy/FileTransfer.hpp"

#include <sys/stat.h>

#include <cerrno>

#include "model/Results.hpp"
#include "support/FileInfo.hpp"
#include "support/Paths.hpp"
#include "support/Retry.hpp"
#include "support/TreeWalk.hpp"
#include "support/Uuid.hpp"

namespace quillstow::transfer {

std::string temporaryName(const std::string& name) {
    return atomicfile::temporaryName(name);
}

bool isPartialName(std::string_view name) {
    if (!name.starts_with(resumePrefix)) return false;
    name.remove_prefix(resumePrefix.size());
    std::size_t digits = 0;
    while (digits < name.size() && name[digits] >= '0' && name[digits] <= '9')
        ++digits;
    return digits > 0 && digits + 1 < name.size() && name[digits] == '-';
}

bool isReservedName(std::string_view name) {
    return atomicfile::isTemporaryName(name) || isPartialName(name);
}

MirrorRoot MirrorRoot::at(const Path& path) {
    auto folder = std::make_shared<const FileHandle>(handles::openFolder(path.native()));
    struct stat status {};
    if (::fstat(folder->get(), &status) != 0) throwPosix(errno);
    return {path, status.st_dev, std::move(folder)};
}

bool MirrorRoot::isPresent() const {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_dev == device;
}

FileHandle openFoldersOnVolume(const Path& path, const MirrorRoot& root) {
    Path existing = path;
    struct stat status {};
    while (::stat(existing.c_str(), &status) != 0) {
        if (errno != ENOENT || !existing.has_relative_path()) throwPosix(errno);
        existing = existing.parent_path();
    }
    if (status.st_dev != root.device) throwPosix(EXDEV);
    const FileHandle found = handles::openFolder(existing.native());
    return handles::makeFoldersBelow(found.get(), path.lexically_relative(existing).native(),
                                     root.device);
}

ItemRef Item::ref() const {
    if (!folder) return path;
    return {folder->get(), path.filename().native()};
}

ItemRef Item::sibling(const std::string& name) const {
    if (!folder) return path.parent_path() / name;
    return {folder->get(), name};
}

Error sourceChangedError() {
    return errors::quillstow(
        ErrorCode::sourceChangedDuringCopy,
        "Source file changed while it was being copied — will copy it again on the next backup.");
}

void throwIfChangedSince(int fd, const struct stat& before) {
    struct stat now {};
    if (::fstat(fd, &now) != 0) throwPosix(errno);
    const auto same = [](const timespec& a, const timespec& b) {
        return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
    };
    if (now.st_size != before.st_size || !same(now.st_mtim, before.st_mtim) ||
        !same(now.st_ctim, before.st_ctim)) {
        throw Failure(sourceChangedError());
    }
}

namespace {

std::optional<struct stat> statusOf(const ItemRef& item) {
    struct stat status {};
    if (::fstatat(item.folder, item.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return std::nullopt;
    }
    return status;
}

// The destination's folder, made where it is missing: through the pass's open folder when it
// has one, else by its path, and then only on the root's volume while the root is there.
void makeFolderOf(FileSystem& fileSystem, const Item& destination, const MirrorRoot* root) {
    if (destination.folder) return;
    const Path folder = destination.path.parent_path();
    try {
        if (root) {
            if (!root->isPresent()) throwPosix(ENOENT);
            openFoldersOnVolume(folder, *root);
        } else if (!files::isFolder(folder)) {
            fileSystem.createDirectories(folder);
        }
    } catch (const Failure& failure) {
        throw FileOperationFailure({folder, "createDirectory", failure.error()});
    }
}

}  // namespace

// What the listing read of the source, or, without one, a look at it now; nothing when it
// can't be read, which the copy then reports.
std::optional<ListedSource> readSource(const Item& source) {
    if (source.listed) return source.listed;
    const auto status = statusOf(source.ref());
    if (!status) return std::nullopt;
    return ListedSource{S_ISDIR(status->st_mode), std::int64_t(status->st_size)};
}

PreparedCopy prepareCopy(FileSystem& fileSystem, const Item& source, const Item& destination,
                         const MirrorRoot* root, const StreamContext& context) {
    makeFolderOf(fileSystem, destination, root);
    const auto listed = readSource(source);
    PreparedCopy copy;
    copy.size = listed ? listed->size : 0;
    copy.isFolder = listed && listed->isFolder;
    copy.destination = destination.path;
    copy.folder = destination.folder;
    const std::string name = paths::lastPathComponent(destination.path);
    const Path folder = destination.path.parent_path();
    if (listed && !copy.isFolder && copy.size >= streamThreshold) {
        const std::string partial = partialName(copy.size, name);
        copy.temporary = folder / partial;
        copy.made = streamCopy(fileSystem, source.ref(), destination.sibling(partial), copy.size,
                               name, context);
        copy.size = copy.made.sourceSize;
        return copy;
    }
    const std::string temporary = temporaryName(name);
    copy.temporary = folder / temporary;
    const ItemRef target = destination.sibling(temporary);
    std::optional<FileInfo::Type> kind;
    if (listed) kind = copy.isFolder ? FileInfo::Type::directory : FileInfo::Type::regular;
    try {
        copy.made = fileSystem.copyItem(source.ref(), target, context.stop, kind);
    } catch (const Failure&) {
        removeQuietly(target.folder, target.name);
        throw;
    }
    if (copy.made.type != FileInfo::Type::other) copy.size = copy.made.sourceSize;
    return copy;
}

bool sameSize(const CopiedItem& made, bool isFolder) {
    if (isFolder) return made.type == FileInfo::Type::directory;
    return made.type != FileInfo::Type::directory && made.type != FileInfo::Type::other &&
           made.size == made.sourceSize;
}

PreparedCopy prepareVerifiedCopy(FileSystem& fileSystem, const Item& source,
                                 const Item& destination, const MirrorRoot* root,
                                 const StreamContext& context) {
    PreparedCopy copy = prepareCopy(fileSystem, source, destination, root, context);
    if (!sameSize(copy.made, copy.isFolder)) {
        const ItemRef temporary = destination.sibling(copy.temporary.filename().native());
        removeQuietly(temporary.folder, temporary.name);
        throw SizeMismatch{destination.path};
    }
    return copy;
}

void swapIntoPlace(FileSystem& fileSystem, const PreparedCopy& copy) {
    const Item destination(copy.destination, copy.folder);
    const ItemRef temporary = destination.sibling(copy.temporary.filename().native());
    const ItemRef target = destination.ref();
    // A rename that refuses to replace answers "is something there?" in the same call.
    try {
        fileSystem.moveItem(temporary, target);
    } catch (const Failure& failure) {
        if (!errors::isPosix(failure.error(), EEXIST)) throw;
        fileSystem.replaceItem(target, temporary);
    }
}

std::int64_t copyOnce(FileSystem& fileSystem, const Path& source, const Path& destination,
                      const StreamContext& context) {
    const PreparedCopy copy = prepareCopy(fileSystem, source, destination, nullptr, context);
    fileSystem.flushVolume(copy.temporary.parent_path());
    swapIntoPlace(fileSystem, copy);
    return copy.size;
}

std::int64_t copyFile(FileSystem& fileSystem, const Path& source, const Path& destination,
                      const StreamContext& context) {
    // A streamed copy continues from its partial file; a plain one starts under a new name.
    return withRetry([&](bool) { return copyOnce(fileSystem, source, destination, context); },
                     {context.stop, nullptr});
}

}  // namespace quillstow::transfer
