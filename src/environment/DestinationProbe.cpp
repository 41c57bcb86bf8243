#include "environment/DestinationProbe.hpp"

#include <fcntl.h>
#include <unistd.h>

#include "environment/MountTable.hpp"
#include "support/Paths.hpp"

namespace quillstow {

SystemDestinationProbe::SystemDestinationProbe(std::vector<std::string> removableMediaRoots,
                                               std::shared_ptr<const GvfsMounter> gvfs)
    : roots_(std::move(removableMediaRoots)), gvfs_(std::move(gvfs)) {}

bool SystemDestinationProbe::isPresent(const std::filesystem::path& destination) const {
    const auto mounts = MountTable::snapshot();
    if (destinationState(destination, mounts, roots_) != DestinationState::present) return false;
    logDuplicateMounts(destination, mounts);
    return true;
}

bool SystemDestinationProbe::isBack(const std::filesystem::path& destination) const {
    if (isPresent(destination)) return true;
    if (const auto uri = gvfsMountUri(destination)) gvfs_->mount(*uri);
    // Opening the folder, unlike a stat, makes autofs and systemd automount mount its last
    // component too. What it finds is judged by the mount table again below.
    const int folder =
        ::open(paths::standardized(destination).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) ::close(folder);
    return isPresent(destination);
}

}  // namespace quillstow
