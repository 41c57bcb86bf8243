#pragma once

// For the test that looks at the program as a person would: with QUILLSTOW_WIDGET_DUMP set to
// a file, the texts of every visible window and menu are written there a few times a second,
// so that a script can tell what is on the screen without reading pixels.
//
// Main thread only.

namespace quillstow::shell {

class TrayApplication;

void installTestHooks(TrayApplication& tray);

}  // namespace quillstow::shell
