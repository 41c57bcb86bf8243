#include "copy/VolumeWatch.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include "copy/PathRules.hpp"

namespace quillstow {

VolumeWatch::VolumeWatch(std::filesystem::path source, dev_t sourceDevice,
                         std::filesystem::path destination, dev_t destinationDevice)
    : source_(std::move(source)),
      sourceDevice_(sourceDevice),
      destination_(std::move(destination)),
      destinationDevice_(destinationDevice),
      // The kernel marks the open file when the table changes; a poll clears the mark.
      mountTable_(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC)) {}

bool VolumeWatch::mountsChanged() {
    if (!mountTable_.isOpen()) return true;
    pollfd watched{mountTable_.get(), POLLPRI, 0};
    return ::poll(&watched, 1, 0) != 0;
}

std::optional<FileOperationError> VolumeWatch::check() const {
    if (!isFolderOnDevice(source_, sourceDevice_)) return sourceVolumeLost(source_);
    if (!isFolderOnDevice(destination_, destinationDevice_)) {
        return destinationVolumeLost(destination_);
    }
    return std::nullopt;
}

bool isFolderOnDevice(const std::filesystem::path& path, dev_t device) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_dev == device;
}

}  // namespace quillstow
