#pragma once

// The program without its tray: loads the user's settings, runs every pair on a plain run loop,
// and stops cleanly on SIGINT or SIGTERM: every pair is stopped and the settings and the log are
// written. What `quillstow` does where there is no display.
//
// Called once, on the main thread, before any other thread exists.

namespace quillstow {

// Runs until SIGINT or SIGTERM; the exit status.
int runHeadless();

}  // namespace quillstow
