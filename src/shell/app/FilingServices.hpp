#pragma once

// What the filing window's model needs from the program, made once and kept by the tray
// application: the file system, clocks, the desktop's Trash, the filer, and the task runner its
// filings run on. A window closed mid-filing never stops the copy; the program quitting does:
// the filing is cancelled, which removes its unfinished copy, and waited for, so nothing
// half-filed is left under the project's name and nothing the filing uses goes before it.
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
    // The Trash the tidy-up moves into on the home volume; other volumes use their own.
    explicit FilingServices(
        const std::filesystem::path& homeTrash = FreedesktopTrash::homeTrashOfEnvironment())
        : trash_(homeTrash, ::getuid(), wallClock_) {}
    FilingServices(const FilingServices&) = delete;
    FilingServices& operator=(const FilingServices&) = delete;
    // A filing still under way is cancelled, which removes its copy again, and waited for.
    ~FilingServices() { tasks_.cancelAll(); }

    // A fresh model for each window that is opened.
    std::shared_ptr<PromoteViewModel> makeModel() {
        return PromoteViewModel::make({mainQueue_, tasks_, wallClock_, trash_, filer_});
    }

  private:
    QtMainQueue mainQueue_;
    LocalFileSystem fileSystem_;
    SystemWallClock wallClock_;
    MonotonicClock clock_;
    FreedesktopTrash trash_;
    std::shared_ptr<const ProjectFiler> filer_ = std::make_shared<const ProjectFiler>(
        fileSystem_, ProjectManifestWriter(), wallClock_, clock_);
    TaskRunner tasks_;  // last: it waits for the filings that use everything above
};

}  // namespace quillstow::shell
