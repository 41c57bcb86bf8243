#pragma once

// Whether a lost destination is back. The reconnector asks it of one destination at a time and
// never on the main thread, since a dying network share can make any look at it block for
// minutes, or for ever. A probe that hangs is abandoned by the one who asked and may return long
// after, even after the program has begun to quit: so a probe owns everything it uses, and is
// shared with the threads that run it.
//
// Any thread; its state is fixed when it is made.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "environment/Gvfs.hpp"

namespace quillstow {

class DestinationProbe {
  public:
    virtual ~DestinationProbe() = default;
    // Whether `destination` is there now, after doing what may bring it back. May block.
    virtual bool isBack(const std::filesystem::path& destination) const = 0;
};

// The machine's probe. A destination is back when the mount table as it is holds it (the rule of
// destinationState); else it tries to bring it back and looks again: for a GVFS location it asks
// GVFS to mount it, and it opens the destination itself, which mounts an autofs or systemd
// automount point on the way or at the end of the path (a mere stat would not). A share found
// mounted twice is logged.
class SystemDestinationProbe final : public DestinationProbe {
  public:
    SystemDestinationProbe(std::vector<std::string> removableMediaRoots,
                           std::shared_ptr<const GvfsMounter> gvfs);

    bool isBack(const std::filesystem::path& destination) const override;

  private:
    bool isPresent(const std::filesystem::path& destination) const;

    const std::vector<std::string> roots_;
    const std::shared_ptr<const GvfsMounter> gvfs_;
};

}  // namespace quillstow
