#pragma once

// What the filing window's model needs from the program, made once and kept by the tray
// application: the file system, clocks, the desktop's Trash, the filer, and the task runner its
// filings run on. A window closed mid-filing never stops the copy, and a window opened again
// gets a fresh model while that filing runs on here. The program quitting stops it: the filing
// is cancelled, which removes what a moment allows of its unfinished copy (the next filing into
// that year sweeps the rest), and waited for, which takes under a second, so nothing half-filed
// is left under the project's name and nothing the filing uses goes before it.
//
// Made and used on the main thread; the filer and the Trash are used from the filing's task.

#include <unistd.h>

#include <memory>

#include "app/QtMainQueue.hpp"
#include "archive/PromoteViewModel.hpp"
#include "copy/FileSystem.hpp"
#include "platform/FreedesktopTrash.hpp"
#include "support/Clock.hpp"
#include "support/Tasks.hpp"

namespace quillstow::shell {

class FilingServices {
  public:
    // The Trash the tidy-up moves into on the home volume; other volumes use their own. The
    // copies go through `fileSystem`, the local disk unless given.
    explicit FilingServices(
        const std::filesystem::path& homeTrash = FreedesktopTrash::homeTrashOfEnvironment(),
        FileSystem* fileSystem = nullptr)
        : fileSystem_(fileSystem ? *fileSystem : localFileSystem_),
          trash_(homeTrash, ::getuid(), wallClock_) {}
    FilingServices(const FilingServices&) = delete;
    FilingServices& operator=(const FilingServices&) = delete;
    // A filing still under way is cancelled and waited for.
    ~FilingServices() { stopFilings(); }

    // Asks the filings under way to stop, as the program does when it quits; they end within a
    // second, and their copies go.
    void stopFilings() { tasks_.cancelAll(); }

    // A fresh model for each window that is opened.
    std::shared_ptr<PromoteViewModel> makeModel() {
        return PromoteViewModel::make({mainQueue_, tasks_, wallClock_, trash_, filer_});
    }

  private:
    QtMainQueue mainQueue_;
    LocalFileSystem localFileSystem_;
    FileSystem& fileSystem_;
    SystemWallClock wallClock_;
    MonotonicClock clock_;
    FreedesktopTrash trash_;
    std::shared_ptr<const ProjectFiler> filer_ = std::make_shared<const ProjectFiler>(
        fileSystem_, ProjectManifestWriter(), wallClock_, clock_);
    TaskRunner tasks_;  // last: it waits for the filings that use everything above
};

}  // namespace quillstow::shell
