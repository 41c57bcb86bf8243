#include "environment/MountTable.hpp"

#include <libmount.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <memory>

#include "support/Logger.hpp"
#include "support/Paths.hpp"

namespace quillstow {

namespace {

std::string withTrailingSlash(std::string text) {
    if (text.empty() || text.back() != '/') text += '/';
    return text;
}

struct TableCloser {
    void operator()(libmnt_table* table) const { mnt_unref_table(table); }
};
struct IteratorCloser {
    void operator()(libmnt_iter* iterator) const { mnt_free_iter(iterator); }
};

}  // namespace

namespace MountTable {

bool isNetworkFileSystem(std::string_view type) {
    static constexpr std::array<std::string_view, 11> types{
        "nfs", "nfs4", "cifs",      "smb3",  "smbfs", "fuse.sshfs",
        "9p",  "ceph", "glusterfs", "davfs", "afs"};
    return std::find(types.begin(), types.end(), type) != types.end();
}

std::vector<Mount> snapshot(const std::filesystem::path& mountInfo) {
    std::vector<Mount> mounts;
    const std::unique_ptr<libmnt_table, TableCloser> table(mnt_new_table());
    const std::unique_ptr<libmnt_iter, IteratorCloser> iterator(mnt_new_iter(MNT_ITER_FORWARD));
    if (!table || !iterator || mnt_table_parse_file(table.get(), mountInfo.c_str()) != 0) {
        return mounts;
    }
    libmnt_fs* entry = nullptr;
    while (mnt_table_next_fs(table.get(), iterator.get(), &entry) == 0) {
        const char* target = mnt_fs_get_target(entry);
        if (!target) continue;
        const char* source = mnt_fs_get_source(entry);
        const char* type = mnt_fs_get_fstype(entry);
        Mount mount{target, source ? source : "", false, type ? type : "", mnt_fs_get_id(entry)};
        mount.isNetwork = isNetworkFileSystem(mount.fileSystemType);
        mounts.push_back(std::move(mount));
    }
    return mounts;
}

std::vector<Mount> snapshot() {
    return snapshot("/proc/self/mountinfo");
}

std::optional<Mount> mount(std::string_view forPath, const std::vector<Mount>& in) {
    // By bytes: names that differ in case are different folders here, and taking a folder of
    // the disk below for a mounted drive would put a backup on that disk.
    const Mount* best = nullptr;
    for (const auto& candidate : in) {
        const std::string& point = candidate.mountPoint;
        const bool matches = point == forPath || forPath.starts_with(withTrailingSlash(point));
        if (matches && (!best || candidate.mountPoint.size() > best->mountPoint.size())) {
            best = &candidate;
        }
    }
    if (!best) return std::nullopt;
    return *best;
}

std::vector<Mount> mounts(std::string_view withSource, const std::vector<Mount>& in) {
    std::vector<Mount> found;
    for (const auto& candidate : in) {
        if (candidate.source == withSource) found.push_back(candidate);
    }
    return found;
}

}  // namespace MountTable

const std::vector<std::string>& removableMediaRoots() {
    static const std::vector<std::string> roots{"/media/", "/run/media/", "/mnt/", "/Volumes/"};
    return roots;
}

bool isMissingDrive(std::string_view path, const MountTable::Mount& mount,
                    const std::vector<std::string>& roots) {
    const std::string point = withTrailingSlash(mount.mountPoint);
    for (const auto& root : roots) {
        // Below the root, held by a mount that lies above it.
        if (path.starts_with(root) && point.size() < root.size() && root.starts_with(point)) {
            return true;
        }
    }
    return false;
}

DestinationState destinationState(const std::filesystem::path& url,
                                  const std::vector<MountTable::Mount>& mounts,
                                  const std::vector<std::string>& roots) {
    // The mount by the path as written, so that a link can't lead the judgement off the drive
    // it names; the folder by what the path leads to.
    const std::string path = paths::standardized(url).native();
    const auto holding = MountTable::mount(path, mounts);
    if (!holding || isMissingDrive(path, *holding, roots)) return DestinationState::notMounted;
    struct stat status {};
    const bool isFolder = ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    return isFolder ? DestinationState::present : DestinationState::folderMissing;
}

bool isDestinationReachable(const std::filesystem::path& url,
                            const std::vector<std::string>& roots) {
    return destinationState(url, MountTable::snapshot(), roots) == DestinationState::present;
}

void logDuplicateMounts(const std::filesystem::path& url) {
    logDuplicateMounts(url, MountTable::snapshot());
}

void logDuplicateMounts(const std::filesystem::path& url,
                        const std::vector<MountTable::Mount>& mounts) {
    const auto holding = MountTable::mount(paths::standardized(url).native(), mounts);
    if (!holding || !holding->isNetwork) return;
    const auto same = MountTable::mounts(holding->source, mounts);
    if (same.size() < 2) return;
    std::vector<std::string> points;
    for (const auto& mount : same)
        points.push_back(mount.mountPoint);
    std::sort(points.begin(), points.end());
    std::string joined;
    for (const auto& point : points)
        joined += (joined.empty() ? "" : ", ") + point;
    Logger("BackupEngine")
        .error(
            "Destination volume is mounted %{public}ld times: %{private,mask.hash}s. Using "
            "%{private,mask.hash}s.",
            long(same.size()), joined, holding->mountPoint);
}

}  // namespace quillstow
