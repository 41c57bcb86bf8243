#pragma once

// The callbacks of the tray menu, in the order of its items. The app controller fills them;
// the menu builder only calls them. A callback with a pair's id ignores an id it can't find.
//
// Main thread only.

#include <functional>

#include "model/AppConfig.hpp"
#include "support/Uuid.hpp"

namespace quillstow::shell {

struct MenuActions {
    using Action = std::function<void()>;
    using PairAction = std::function<void(const Uuid&)>;

    Action openPopover;
    Action backupAllNow;
    PairAction backupPairNow;
    PairAction togglePausePair;
    PairAction relinkPair;
    PairAction revealInFileManager;
    PairAction restorePair;
    PairAction recoverDeletedFiles;
    PairAction removePair;
    Action addFolder;
    Action openPromote;
    std::function<void(BackupInterval)> setBackupInterval;
    std::function<void(NotificationLevel)> setNotificationLevel;
    Action toggleLaunchAtLogin;
    Action toggleTrashReminders;
    Action toggleAutoUpdate;
    Action checkForUpdates;
    Action clearHistory;
    Action openLearn;
    Action openAbout;
    Action quit;
};

}  // namespace quillstow::shell
