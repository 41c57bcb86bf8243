#pragma once

// The one way the engines reach the machine's volumes: the mount table, the free space of a
// folder's volume, which volume holds a folder, and whether a destination may be used. The
// reachability of a destination is one rule (destinationState, over a fresh table), so the
// engine's check before a run and the copy redundancy's view of a pair never disagree.
//
// The defaults read the system. Tests derive to hand in a table of their own, or to block.
// Any thread; no state besides the removable-media roots it is given.

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "environment/MountTable.hpp"

namespace quillstow {

class Volumes {
  public:
    explicit Volumes(std::vector<std::string> roots = quillstow::removableMediaRoots())
        : roots_(std::move(roots)) {}
    virtual ~Volumes() = default;

    // The kernel's mount table now.
    virtual std::vector<MountTable::Mount> mounts() const { return MountTable::snapshot(); }
    // What an ordinary user may still write on the volume of `path`; nothing when unreachable.
    virtual std::optional<std::int64_t> availableCapacity(const std::filesystem::path& path) const;
    // The device of the volume of `path`, equal for two paths on one volume in one session.
    virtual std::optional<dev_t> volumeIdentifier(const std::filesystem::path& path) const;

    // Whether a destination may be used now: present by destinationState over mounts().
    virtual bool isDestinationReachable(const std::filesystem::path& url) const;
    DestinationState destinationState(const std::filesystem::path& url,
                                      const std::vector<MountTable::Mount>& mounts) const;

    const std::vector<std::string>& removableMediaRoots() const { return roots_; }

  protected:
    std::vector<std::string> roots_;
};

}  // namespace quillstow
