#pragma once

// For the test that looks at the program as a person would: with QUILLSTOW_WIDGET_DUMP set to
// a file, the texts of every visible window and menu are written there a few times a second,
// so that a script can tell what is on the screen without reading pixels. With
// QUILLSTOW_TEST_COMMANDS set to a file, each line a script writes there opens a window as the
// user's click would ("about", "learn", "welcome", "restore ID", "recover ID",
// "smart-setup ID NAME PROFILE BYTES"); the file is emptied once read.
//
// Main thread only.

namespace quillstow::shell {

class TrayApplication;

void installTestHooks(TrayApplication& tray);

}  // namespace quillstow::shell
