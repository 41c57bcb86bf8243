#pragma once

// The volumes a user would recognise (removable drives, network shares, other mounted disks;
// not the root, nor the file systems of the system itself), kept current as drives come and go,
// and told to the status manager: every mount and unmount below a removable-media root, or of a
// volume that holds something of interest (a pair's destination), whatever its type.
//
// Threading: used on the main thread; a thread of its own waits on the kernel's mount table
// through libmount's monitor and hands each change to the main thread, where the list is read
// afresh before the callback runs.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "environment/MountTable.hpp"
#include "support/MainQueue.hpp"
#include "support/Observable.hpp"

struct libmnt_monitor;

namespace quillstow {

struct VolumeInfo {
    std::filesystem::path id;     // the mount point
    std::string name;             // the file system's label, else the mount point's last component
    std::int64_t totalSpace = 0;  // 0 when unknown, as for a network share
    std::int64_t freeSpace = 0;
    bool isNetwork = false;
    bool isExternal = false;  // removable, or attached by USB

    bool operator==(const VolumeInfo&) const = default;
};

// Whether a mount is a volume a user would pick: a network share, or a block device mounted
// outside the folders of the system. The root is never one.
bool isUserVolume(const MountTable::Mount& mount);

// The row of a mount, with its label, flags and sizes read from the system.
VolumeInfo describeVolume(const MountTable::Mount& mount);

// The user's volumes of a snapshot, in the order a file manager shows names.
std::vector<VolumeInfo> listVolumes(const std::vector<MountTable::Mount>& mounts);

class VolumeMonitor {
  public:
    using Callback = std::function<void(const std::filesystem::path& volume)>;

    explicit VolumeMonitor(MainQueue& mainQueue,
                           std::vector<std::string> roots = removableMediaRoots());
    VolumeMonitor(const VolumeMonitor&) = delete;
    VolumeMonitor& operator=(const VolumeMonitor&) = delete;
    ~VolumeMonitor();

    // Idempotent: starts listening and takes the first reading.
    void startMonitoring();
    void stopMonitoring();
    void refreshVolumes();

    const std::vector<VolumeInfo>& mountedVolumes() const { return mountedVolumes_; }
    [[nodiscard]] Subscription observeMountedVolumes(
        Observers<std::vector<VolumeInfo>>::Observer observer);

    Callback onVolumeDidMount;
    Callback onVolumeDidUnmount;
    // Mount points the callbacks are for besides those below a removable-media root.
    std::function<bool(const std::filesystem::path& mountPoint)> isOfInterest;

  private:
    // What the main queue reaches through a weak reference, so that a change that arrives after
    // the stop is dropped.
    struct Link {
        VolumeMonitor* monitor;
    };

    void watchMounts(libmnt_monitor* monitor, std::vector<MountTable::Mount> known);
    void handleChange(const std::filesystem::path& mountPoint, bool mounted);
    bool isReported(const std::filesystem::path& mountPoint) const;

    MainQueue& mainQueue_;
    const std::vector<std::string> roots_;
    std::vector<VolumeInfo> mountedVolumes_;
    Observers<std::vector<VolumeInfo>> observers_;
    std::shared_ptr<Link> link_;
    int stopSignal_ = -1;
    std::thread watcher_;
};

}  // namespace quillstow
