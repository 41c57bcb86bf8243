#include "environment/VolumeSpace.hpp"

#include <sys/stat.h>
#include <sys/statvfs.h>

namespace quillstow::volumes {

std::optional<std::int64_t> availableCapacity(const std::filesystem::path& path) {
    struct statvfs volume {};
    if (::statvfs(path.c_str(), &volume) != 0) return std::nullopt;
    return std::int64_t(volume.f_bavail) * std::int64_t(volume.f_frsize);
}

std::optional<dev_t> volumeIdentifier(const std::filesystem::path& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return std::nullopt;
    return status.st_dev;
}

}  // namespace quillstow::volumes
