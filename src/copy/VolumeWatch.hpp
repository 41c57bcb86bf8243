#pragma once

// Watches the two folders of a pass for a volume that leaves in the middle of it, at a cost
// that a pass can pay every tenth item: a look at whether the mount table changed is one poll of
// its file, which is never read; the full check is a fresh look at each folder's path, which
// must still lead to a folder on the volume the pass opened it on.
//
// Used by the one task that runs the pass.

#include <sys/types.h>

#include <filesystem>
#include <optional>

#include "model/Results.hpp"
#include "support/FileHandle.hpp"

namespace quillstow {

class VolumeWatch {
  public:
    // The devices the pass opened its folders on.
    VolumeWatch(std::filesystem::path source, dev_t sourceDevice, std::filesystem::path destination,
                dev_t destinationDevice);

    // Whether anything was mounted or unmounted since the last look (or since the watch began).
    // Where the mount table can't be watched, always: the full check then runs every time.
    bool mountsChanged();

    // The first folder that has left: 1006 for the source, 1007 for the destination.
    std::optional<FileOperationError> check() const;

  private:
    std::filesystem::path source_;
    dev_t sourceDevice_;
    std::filesystem::path destination_;
    dev_t destinationDevice_;
    FileHandle mountTable_;
};

// Whether `path`, links followed, is a folder on `device`: a drive pulled from under it leaves
// the path on the disk above it, or nowhere.
bool isFolderOnDevice(const std::filesystem::path& path, dev_t device);

}  // namespace quillstow
