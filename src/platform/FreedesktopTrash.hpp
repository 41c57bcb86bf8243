#pragma once

// The freedesktop.org Trash: an item on the home's file system goes to the home trash,
// ${XDG_DATA_HOME:-~/.local/share}/Trash; one on another volume to that volume's
// $topdir/.Trash/$UID (when an administrator made a sticky, non-link .Trash) or else
// $topdir/.Trash-$UID. Beside it, info/{name}.trashinfo records where it came from (the path
// percent-encoded as in a file URL; relative to $topdir on other volumes) and when (local time).
// The info file is made first with O_EXCL, which reserves the name; a clash takes "{name} 2",
// "{name} 3", ...
//
// No state but its settings; any thread.

#include <sys/types.h>

#include <filesystem>
#include <string>

#include "archive/Trash.hpp"
#include "support/Clock.hpp"

namespace quillstow {

class FreedesktopTrash final : public Trash {
  public:
    // The home trash of the environment, the process's user and the system's clock.
    FreedesktopTrash();
    FreedesktopTrash(std::filesystem::path homeTrash, uid_t user, const WallClock& clock);

    void moveToTrash(const std::filesystem::path& item) override;

    // ${XDG_DATA_HOME}/Trash when XDG_DATA_HOME is an absolute path, else ~/.local/share/Trash.
    static std::filesystem::path homeTrashOfEnvironment();

  private:
    struct Target {
        std::filesystem::path folder;  // holds files/ and info/
        std::string recordedPath;      // what the info file's Path says, not yet encoded
    };
    Target targetFor(const std::filesystem::path& item, dev_t device) const;

    std::filesystem::path homeTrash_;
    uid_t user_;
    const WallClock& clock_;
};

// "2026-03-01T10:30:00" in the local time zone, as DeletionDate wants it.
std::string trashDeletionDate(Date date);

}  // namespace quillstow
