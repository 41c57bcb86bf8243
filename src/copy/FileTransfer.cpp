#include "copy/FileTransfer.hpp"

#include <sys/stat.h>

#include <cerrno>

#include "model/Results.hpp"
#include "support/FileInfo.hpp"
#include "support/Paths.hpp"
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

MirrorRoot MirrorRoot::at(const Path& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) throwPosix(errno);
    return {path, status.st_dev};
}

bool MirrorRoot::isPresent() const {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_dev == device;
}

void createFoldersOnVolume(FileSystem& fileSystem, const Path& folder, const MirrorRoot& root) {
    Path existing = folder;
    struct stat status {};
    while (::stat(existing.c_str(), &status) != 0) {
        if (errno != ENOENT || !existing.has_relative_path()) throwPosix(errno);
        existing = existing.parent_path();
    }
    if (status.st_dev != root.device) throwPosix(EXDEV);
    if (existing != folder) fileSystem.createDirectories(folder);
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

PreparedCopy prepareCopy(FileSystem& fileSystem, const Path& source, const Path& destination,
                         const MirrorRoot* root, const StreamContext& context) {
    const Path folder = destination.parent_path();
    try {
        if (root) {
            if (!root->isPresent()) throwPosix(ENOENT);
            createFoldersOnVolume(fileSystem, folder, *root);
        } else if (!files::isFolder(folder)) {
            fileSystem.createDirectories(folder);
        }
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
        fileSystem.copyItem(source, copy.temporary, context.stop);
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
                                 const Path& destination, const MirrorRoot* root,
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
    const PreparedCopy copy = prepareCopy(fileSystem, source, destination, nullptr, context);
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
