#pragma once

// What is mounted, as the kernel says it now: a snapshot of the mount table with matching of a
// path to the mount that holds it. A destination is judged by its mount and never by the mere
// existence of its folder: a folder left at a drive's mount point when the drive went away lies
// on the disk above it, and writing a backup there would silently fill that disk.
//
// No state: every caller takes a fresh snapshot. Any thread.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillstow {

namespace MountTable {

struct Mount {
    std::string mountPoint;  // "/" or "/media/ana/Photos 2", escapes decoded
    std::string source;      // a device, or a share's server and path
    bool isNetwork = false;
    std::string fileSystemType;
    // The kernel's number of the mount: a drive mounted again where another was is new.
    int id = 0;

    bool operator==(const Mount&) const = default;
};

// The mount table of this process; empty when it can't be read, so that no path has a mount.
std::vector<Mount> snapshot();
// The same from a file in the format of /proc/self/mountinfo.
std::vector<Mount> snapshot(const std::filesystem::path& mountInfo);

// Network file systems by type: libmount's own list is short.
bool isNetworkFileSystem(std::string_view type);

// The mount that holds `path`: the longest mount point that equals it or is followed in it by
// "/", byte for byte; of equally long ones the first. Nothing when none matches.
std::optional<Mount> mount(std::string_view forPath, const std::vector<Mount>& in);

// Every mount of the source, in table order; case counts.
std::vector<Mount> mounts(std::string_view withSource, const std::vector<Mount>& in);

}  // namespace MountTable

// Where removable drives appear: "/media/", "/run/media/", "/mnt/" and "/Volumes/".
const std::vector<std::string>& removableMediaRoots();

// Whether `mount`, found for `path`, stands for a drive that is not there: the path lies below a
// removable-media root while the mount that holds it lies above that root, like
// "/" or "/run". A drive mounted at the root itself ("/mnt") is there.
bool isMissingDrive(std::string_view path, const MountTable::Mount& mount,
                    const std::vector<std::string>& roots = removableMediaRoots());

// A destination as the mount table and the disk show it: present when a mount that is not a
// missing drive holds its path and the path leads (links followed) to a folder; folder missing
// when such a mount holds it but no folder is there (a file counts as none); else not mounted.
// The mount is judged by the path as written, the folder by what it leads to.
enum class DestinationState { present, folderMissing, notMounted };

DestinationState destinationState(const std::filesystem::path& url,
                                  const std::vector<MountTable::Mount>& mounts,
                                  const std::vector<std::string>& roots = removableMediaRoots());

// Whether a destination may be used: present, over a fresh snapshot.
bool isDestinationReachable(const std::filesystem::path& url,
                            const std::vector<std::string>& roots = removableMediaRoots());

// Logs when the network share that holds `url` is mounted more than once.
void logDuplicateMounts(const std::filesystem::path& url);
void logDuplicateMounts(const std::filesystem::path& url,
                        const std::vector<MountTable::Mount>& mounts);

}  // namespace quillstow
