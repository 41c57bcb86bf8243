#pragma once

// Puts copies back into a user's folder, the one operation of this program that writes there.
// Each file is copied to ".{name}.restore-{8 characters}" beside its target, checked against
// its source's size, flushed (one flush of the volume for a batch of copies) and renamed over
// the target in one step: the target holds the old file or the whole new one, never a part. The
// folders of a target are opened one component at a time without following a link, so that nothing
// below the chosen folder can lead a restore out of it; a link where a folder or the file should be
// fails that file. A file that fails is counted and the next one is tried.
//
// restoreFiles runs on a background task and calls `onProgress` there; a window hops to its
// own thread. It polls `stop` before every file and between chunks of a large one; the file
// being copied then leaves no temporary behind, and the copies made before it go into place.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "archive/DeletedFiles.hpp"
#include "archive/RestoreListing.hpp"
#include "copy/FileSystem.hpp"

namespace quillstow {

// One file to put back.
struct RestoreJob {
    // The copy in the backup or the archive.
    std::filesystem::path source;
    // Where it goes, below the chosen folder.
    std::string targetRelativePath;
    // As listed, for progress.
    std::int64_t size = 0;
};

// The selected rows of a backup's list, in list order, hidden ones included.
std::vector<RestoreJob> restoreJobs(const std::vector<RestoreFileItem>& files,
                                    const std::filesystem::path& backupRoot);

// The selected rows of the archive's list, each to its original path. Where several copies of
// one file are selected, the newest in the list goes back and the others are left out: only one
// can stand under the name.
std::vector<RestoreJob> recoveryJobs(const std::vector<DeletedFileItem>& items,
                                     const std::filesystem::path& archiveRoot);

struct RestoreProgress {
    std::int64_t filesDone = 0;
    std::int64_t filesTotal = 0;
    std::int64_t bytesDone = 0;
    std::int64_t bytesTotal = 0;
};
using RestoreProgressCallback = std::function<void(const RestoreProgress&)>;

struct RestoreOutcome {
    int restored = 0;
    int failed = 0;
    bool cancelled = false;

    // The summary the window shows, "Error: " first when a file failed.
    std::string message() const;
};

// Restores `jobs` in order below `destination` (its own links resolved, as the user chose it).
// A destination that isn't a folder fails every file.
RestoreOutcome restoreFiles(FileSystem& fileSystem, const std::vector<RestoreJob>& jobs,
                            const std::filesystem::path& destination,
                            const RestoreProgressCallback& onProgress = {},
                            std::stop_token stop = {});

// ".{name}.restore-{first 8 characters of a new UUID}", the head of a long name kept so that it
// fits in a folder entry.
std::string restoreTemporaryName(const std::string& name);

}  // namespace quillstow
