#include "environment/Volumes.hpp"

#include "environment/VolumeSpace.hpp"

namespace quillstow {

std::optional<std::int64_t> Volumes::availableCapacity(const std::filesystem::path& path) const {
    return volumes::availableCapacity(path);
}

std::optional<dev_t> Volumes::volumeIdentifier(const std::filesystem::path& path) const {
    return volumes::volumeIdentifier(path);
}

bool Volumes::isDestinationReachable(const std::filesystem::path& url) const {
    return destinationState(url, mounts()) == DestinationState::present;
}

DestinationState Volumes::destinationState(const std::filesystem::path& url,
                                           const std::vector<MountTable::Mount>& mounts) const {
    return quillstow::destinationState(url, mounts, roots_);
}

}  // namespace quillstow
