#include "environment/VolumeMonitor.hpp"

#include <blkid/blkid.h>
#include <libmount.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>

#include "support/Paths.hpp"
#include "support/TextCompare.hpp"

namespace quillstow {

namespace fs = std::filesystem;

namespace {

// Folders of the system itself; a mount in them is no volume of the user's.
constexpr std::array<std::string_view, 11> systemFolders{
    "/proc", "/sys", "/dev", "/run", "/boot", "/efi", "/snap", "/var", "/tmp", "/usr", "/etc"};

bool isBelowSystemFolder(std::string_view mountPoint) {
    if (paths::isWithin(std::string(mountPoint), "/run/media")) return false;
    return std::any_of(systemFolders.begin(), systemFolders.end(), [&](std::string_view folder) {
        return paths::isWithin(std::string(mountPoint), std::string(folder));
    });
}

std::string firstLine(const fs::path& file) {
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    return line;
}

// The sysfs folder of a block device, and of its whole disk when it is a partition.
std::optional<fs::path> sysfsDisk(const std::string& device) {
    struct stat status {};
    if (::stat(device.c_str(), &status) != 0 || !S_ISBLK(status.st_mode)) return std::nullopt;
    std::error_code error;
    fs::path folder = fs::canonical("/sys/dev/block/" + std::to_string(major(status.st_rdev)) +
                                        ":" + std::to_string(minor(status.st_rdev)),
                                    error);
    if (error) return std::nullopt;
    if (fs::exists(folder / "partition", error)) folder = folder.parent_path();
    return folder;
}

std::string labelOf(const std::string& device) {
    char* label = blkid_get_tag_value(nullptr, "LABEL", device.c_str());
    if (!label) return {};
    std::string text = label;
    std::free(label);
    return text;
}

}  // namespace

bool isUserVolume(const MountTable::Mount& mount) {
    if (paths::standardized(mount.mountPoint) == "/") return false;
    if (mount.isNetwork) return true;
    if (!mount.source.starts_with("/dev/") || mount.fileSystemType == "swap") return false;
    return !isBelowSystemFolder(mount.mountPoint);
}

VolumeInfo describeVolume(const MountTable::Mount& mount) {
    VolumeInfo volume;
    volume.id = mount.mountPoint;
    volume.isNetwork = mount.isNetwork;
    if (!mount.isNetwork) {
        volume.name = labelOf(mount.source);
        if (const auto disk = sysfsDisk(mount.source)) {
            const bool isRemovable = firstLine(*disk / "removable") == "1";
            const bool isOnUsb = disk->native().find("/usb") != std::string::npos;
            volume.isExternal = isRemovable || isOnUsb;
        }
        // A share that stopped answering would hold the caller here; its sizes stay unknown.
        struct statvfs sizes {};
        if (::statvfs(mount.mountPoint.c_str(), &sizes) == 0) {
            volume.totalSpace = std::int64_t(sizes.f_blocks) * std::int64_t(sizes.f_frsize);
            volume.freeSpace = std::int64_t(sizes.f_bavail) * std::int64_t(sizes.f_frsize);
        }
    }
    if (volume.name.empty()) volume.name = paths::lastPathComponent(mount.mountPoint);
    return volume;
}

std::vector<VolumeInfo> listVolumes(const std::vector<MountTable::Mount>& mounts) {
    std::vector<VolumeInfo> volumes;
    for (const auto& mount : mounts) {
        if (isUserVolume(mount)) volumes.push_back(describeVolume(mount));
    }
    std::stable_sort(volumes.begin(), volumes.end(), [](const auto& a, const auto& b) {
        return text::isBeforeInFinderOrder(a.name, b.name);
    });
    return volumes;
}

VolumeMonitor::VolumeMonitor(MainQueue& mainQueue, std::vector<std::string> roots)
    : mainQueue_(mainQueue), roots_(std::move(roots)) {}

VolumeMonitor::~VolumeMonitor() {
    stopMonitoring();
}

Subscription VolumeMonitor::observeMountedVolumes(
    Observers<std::vector<VolumeInfo>>::Observer observer) {
    return observers_.subscribe(std::move(observer));
}

void VolumeMonitor::startMonitoring() {
    if (link_) return;
    link_ = std::make_shared<Link>(Link{this});
    stopSignal_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    // Listening before the first reading: a mount in between is then a change, not lost.
    libmnt_monitor* monitor = mnt_new_monitor();
    // The descriptor is made on its first request, and only then does the kernel report.
    if (monitor &&
        (mnt_monitor_enable_kernel(monitor, 1) != 0 || mnt_monitor_get_fd(monitor) < 0)) {
        mnt_unref_monitor(monitor);
        monitor = nullptr;
    }
    watcher_ = std::thread([this, monitor, known = MountTable::snapshot()]() mutable {
        watchMounts(monitor, std::move(known));
    });
    refreshVolumes();
}

void VolumeMonitor::stopMonitoring() {
    if (!link_) return;
    const std::uint64_t one = 1;
    (void)::write(stopSignal_, &one, sizeof one);
    watcher_.join();
    ::close(stopSignal_);
    stopSignal_ = -1;
    link_.reset();
}

void VolumeMonitor::refreshVolumes() {
    std::vector<VolumeInfo> volumes = listVolumes(MountTable::snapshot());
    if (volumes == mountedVolumes_) return;
    mountedVolumes_ = std::move(volumes);
    observers_.notify(mountedVolumes_);
}

bool VolumeMonitor::isReported(const fs::path& mountPoint) const {
    const std::string point = paths::standardized(mountPoint).native() + "/";
    for (const auto& root : roots_) {
        if (point.starts_with(root) && point.size() > root.size()) return true;
    }
    return isOfInterest && isOfInterest(mountPoint);
}

void VolumeMonitor::handleChange(const fs::path& mountPoint, bool mounted) {
    refreshVolumes();
    if (!isReported(mountPoint)) return;
    const Callback& callback = mounted ? onVolumeDidMount : onVolumeDidUnmount;
    if (callback) callback(mountPoint);
}

void VolumeMonitor::watchMounts(libmnt_monitor* listening, std::vector<MountTable::Mount> known) {
    struct MonitorCloser {
        void operator()(libmnt_monitor* monitor) const { mnt_unref_monitor(monitor); }
    };
    const std::unique_ptr<libmnt_monitor, MonitorCloser> monitor(listening);
    if (!monitor) return;
    const int changes = mnt_monitor_get_fd(monitor.get());
    if (changes < 0) return;
    std::weak_ptr<Link> link = link_;
    pollfd watched[2] = {{changes, POLLIN, 0}, {stopSignal_, POLLIN, 0}};
    for (;;) {
        if (::poll(watched, 2, -1) < 0) continue;
        if (watched[1].revents & POLLIN) return;
        const char* file = nullptr;
        int type = 0;
        while (mnt_monitor_next_change(monitor.get(), &file, &type) == 0) {
        }
        std::vector<MountTable::Mount> now = MountTable::snapshot();
        // A mount that is in one table and not in the other came or went; one stacked on
        // another at the same point counts on its own.
        const auto report = [&](const std::vector<MountTable::Mount>& from,
                                const std::vector<MountTable::Mount>& against, bool mounted) {
            std::vector<MountTable::Mount> rest = against;
            for (const auto& mount : from) {
                const auto same = std::find(rest.begin(), rest.end(), mount);
                if (same != rest.end()) {
                    rest.erase(same);
                    continue;
                }
                mainQueue_.post([link, point = fs::path(mount.mountPoint), mounted] {
                    if (const auto held = link.lock()) held->monitor->handleChange(point, mounted);
                });
            }
        };
        report(known, now, false);
        report(now, known, true);
        known = std::move(now);
    }
}

}  // namespace quillstow
