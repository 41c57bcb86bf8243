#include "copy/FileTransfer.hpp"

#include <cerrno>

#include "copy/FileInfo.hpp"
#include "copy/TreeWalk.hpp"
#include "model/Results.hpp"
#include "support/Paths.hpp"
#include "support/Uuid.hpp"

namespace quillstow::transfer {

std::string temporaryName(const std::string& name) {
    return std::string(temporaryPrefix) + Uuid::random().text().substr(0, 8) + "-" + name;
}

bool isReservedName(std::string_view name) {
    return name.starts_with(temporaryPrefix) || name.starts_with(resumePrefix);
}

bool isTransient(const Error& error) {
    if (error.domain != errors::posixDomain) return false;
    switch (error.code) {
        case EINTR:
        case EIO:
        case EBUSY:
        case EAGAIN:
            return true;
        default:
            return false;
    }
}

PreparedCopy prepareCopy(FileSystem& fileSystem, const Path& source, const Path& destination,
                         const Path& root, const StreamContext& context) {
    const Path folder = destination.parent_path();
    try {
        if (!root.empty() && !files::isFolder(root)) throwPosix(ENOENT);
        if (!files::isFolder(folder)) fileSystem.createDirectories(folder);
    } catch (const Failure& failure) {
        throw FileOperationFailure({folder, "createDirectory", failure.error()});
    }

    const auto info = files::readInfo(source);
    PreparedCopy copy;
    // For a folder, what the file system reports for the entry itself.
    copy.size = info ? info->entrySize : 0;
    copy.destination = destination;
    const std::string name = paths::lastPathComponent(destination);
    if (info && !info->isDirectory() && copy.size >= streamThreshold) {
        copy.temporary = folder / partialName(copy.size, name);
        streamCopy(fileSystem, source, copy.temporary, copy.size, name, context);
        return copy;
    }
    copy.temporary = folder / temporaryName(name);

    try {
        fileSystem.removeItem(copy.temporary);
    } catch (const Failure&) {
    }
    try {
        fileSystem.copyItem(source, copy.temporary);
    } catch (const Failure&) {
        try {
            fileSystem.removeItem(copy.temporary);
        } catch (const Failure&) {
        }
        throw;
    }
    return copy;
}

PreparedCopy prepareVerifiedCopy(FileSystem& fileSystem, const Path& source,
                                 const Path& destination, const Path& root,
                                 const StreamContext& context) {
    PreparedCopy copy = prepareCopy(fileSystem, source, destination, root, context);
    if (!sameSize(source, copy.temporary)) {
        try {
            fileSystem.removeItem(copy.temporary);
        } catch (const Failure&) {
        }
        throw SizeMismatch{destination};
    }
    return copy;
}

void swapIntoPlace(FileSystem& fileSystem, const PreparedCopy& copy) {
    // A rename that refuses to replace answers "is something there?" in the same call.
    try {
        fileSystem.moveItem(copy.temporary, copy.destination);
    } catch (const Failure& failure) {
        if (!errors::isPosix(failure.error(), EEXIST)) throw;
        fileSystem.replaceItem(copy.destination, copy.temporary);
    }
}

std::int64_t copyOnce(FileSystem& fileSystem, const Path& source, const Path& destination,
                      const StreamContext& context) {
    const PreparedCopy copy = prepareCopy(fileSystem, source, destination, {}, context);
    fileSystem.flushVolume(copy.temporary.parent_path());
    swapIntoPlace(fileSystem, copy);
    return copy.size;
}

std::int64_t copyFile(FileSystem& fileSystem, const Path& source, const Path& destination,
                      const StreamContext& context) {
    try {
        return copyOnce(fileSystem, source, destination, context);
    } catch (const Failure& failure) {
        if (!isTransient(failure.error())) throw;
    }
    // A streamed copy continues from its partial file; a plain one starts under a new name.
    return copyOnce(fileSystem, source, destination, context);
}

bool sameSize(const Path& source, const Path& destination) {
    const auto sourceInfo = files::readInfo(source);
    const auto destinationInfo = files::readInfo(destination);
    if (!sourceInfo || !destinationInfo) return false;
    if (sourceInfo->isDirectory()) return destinationInfo->isDirectory();
    return sourceInfo->fileSize && destinationInfo->fileSize &&
           *sourceInfo->fileSize == *destinationInfo->fileSize;
}

void removeStaleTemporaries(FileSystem& fileSystem, const Path& destination) {
    if (!files::exists(destination)) return;
    walkTree(destination, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        if (!isReservedName(entry.name)) return true;
        try {
            fileSystem.removeItem(paths::appending(destination, entry.relativePath));
        } catch (const Failure&) {
        }
        return false;
    });
}

}  // namespace quillstow::transfer
