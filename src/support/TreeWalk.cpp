#include "support/TreeWalk.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include "support/FileHandle.hpp"

namespace quillstow {

namespace {

struct Listed {
    std::string name;
    std::optional<FileInfo> info;
};

std::optional<FileInfo> typeOf(unsigned char type) {
    FileInfo info;
    switch (type) {
        case DT_REG:
            info.type = FileInfo::Type::regular;
            return info;
        case DT_DIR:
            info.type = FileInfo::Type::directory;
            return info;
        case DT_LNK:
            info.type = FileInfo::Type::symbolicLink;
            return info;
        case DT_UNKNOWN:
            return std::nullopt;
        default:
            return info;
    }
}

// Reads an open folder whole before anything in it is visited. Returns 0, or the error that
// kept the folder from being read whole.
int listFolder(int fd, WalkDetail detail, std::vector<Listed>& entries) {
    // getdents64 itself: the directory stream of the C library costs an fstat and two fcntl
    // calls per folder, which a walk of a hundred thousand files feels. On 64-bit Linux the
    // C library's dirent has the kernel's layout.
    alignas(8) char buffer[32768];
    for (;;) {
        const long length = ::syscall(SYS_getdents64, fd, buffer, sizeof buffer);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) return errno;
        if (length == 0) return 0;
        for (long at = 0; at < length;) {
            const auto* entry = reinterpret_cast<const dirent*>(buffer + at);
            at += entry->d_reclen;
            const std::string_view name(entry->d_name);
            if (name == "." || name == "..") continue;
            std::optional<FileInfo> info;
            if (detail == WalkDetail::typeOnly) info = typeOf(entry->d_type);
            if (!info) info = files::readInfoAt(fd, entry->d_name);
            entries.push_back({std::string(name), std::move(info)});
        }
    }
}

// Each folder is opened relative to the one above, which stays open while its entries are
// visited: a path of any length is walked, and a folder swapped for a link since it was listed
// is not entered. A deep tree holds one descriptor per level.
bool walkFolder(const FileHandle& folder, const std::string& relativeFolder, WalkDetail detail,
                const ChoosingVisitor& visit, const OnUnreadableFolder& onUnreadable) {
    std::vector<Listed> entries;
    if (const int error = folder.isOpen() ? listFolder(folder.get(), detail, entries) : errno) {
        if (onUnreadable) onUnreadable(relativeFolder, error);
        return false;
    }
    std::string relativePath;
    for (const auto& entry : entries) {
        // An entry that vanished between listing and reading is no longer there to visit.
        if (!entry.info) continue;
        // Built in place: its room is kept from one entry to the next.
        relativePath.assign(relativeFolder);
        if (!relativePath.empty()) relativePath += '/';
        relativePath += entry.name;
        const auto goIn = visit(WalkEntry{relativePath, entry.name, *entry.info, folder.get()});
        if (goIn && entry.info->isDirectory()) {
            const FileHandle inside(::openat(folder.get(), entry.name.c_str(),
                                             O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
            walkFolder(inside, relativePath, *goIn, visit, onUnreadable);
        }
    }
    return true;
}

}  // namespace

bool walkTree(const std::filesystem::path& root, WalkDetail detail,
              const std::function<bool(const WalkEntry&)>& visit) {
    return walkTree(root, detail, visit, nullptr);
}

bool walkTree(const std::filesystem::path& root, WalkDetail detail,
              const std::function<bool(const WalkEntry&)>& visit,
              const OnUnreadableFolder& onUnreadable) {
    return walkTreeChoosingDetail(
        root, detail,
        [&](const WalkEntry& entry) {
            return visit(entry) ? std::optional<WalkDetail>(detail) : std::nullopt;
        },
        onUnreadable);
}

bool walkTreeChoosingDetail(const std::filesystem::path& root, WalkDetail detail,
                            const ChoosingVisitor& visit, const OnUnreadableFolder& onUnreadable) {
    std::string rootPath = root.native();
    while (rootPath.size() > 1 && rootPath.back() == '/')
        rootPath.pop_back();
    // Only the root may be reached through a link; below it nothing is followed.
    const FileHandle folder(::open(rootPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return walkFolder(folder, "", detail, visit, onUnreadable);
}

}  // namespace quillstow
