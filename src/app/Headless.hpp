#pragma once

// The program without its tray: loads the user's settings, runs every pair on a plain run loop,
// and stops cleanly on SIGINT or SIGTERM: every pair is stopped and the settings and the log are
// written. What `quillstow` does where there is no display.
//
// Called once, on the main thread, before any other thread exists.

namespace quillstow {

// Runs until SIGINT or SIGTERM; the exit status.
int runHeadless();

// The program's usage, on standard output when asked for (status 0), else on standard error
// (status 64, a usage error).
int printUsage(bool asked);

}  // namespace quillstow
