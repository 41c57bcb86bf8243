#pragma once

// Builds the tray menu afresh from what the menu shows and the callbacks of its items. It
// holds no state: the menu is cleared and filled again each time it opens and whenever the
// program's state changes, since some tray hosts cache the menu they were given.
//
// Main thread only.

#include <QMenu>

#include "tray/MenuActions.hpp"
#include "viewmodels/MenuState.hpp"

namespace quillstow::shell {

struct MenuOptions {
    // The update items, only in a build with the update check.
    bool withUpdateCheck = false;
    bool autoChecksForUpdates = false;
};

// Replaces everything in `menu`.
void buildMenu(QMenu& menu, const MenuState& state, const MenuActions& actions,
               const MenuOptions& options = {});

}  // namespace quillstow::shell
