#pragma once

// Asks GVFS to mount a location again by running "gio mount <uri>" (from the package
// libglib2.0-bin), as a file manager would, with the credentials GVFS keeps. It never asks the
// user: gio runs with no standard input and in a session of its own, without a terminal, so a
// share that wants a password just fails. It is killed at its time limit. Where gio is missing
// it says so in the log, once.
//
// Any thread; each call blocks until gio ends, at most for the time limit.

#include <atomic>
#include <string>
#include <vector>

#include "environment/Gvfs.hpp"

namespace quillstow {

// How a program run to its end, or to its time limit, ended.
struct ProgramOutcome {
    enum class Ending { exited, killedAtTimeLimit, endedBySignal, missing, failedToStart };
    Ending ending = Ending::failedToStart;
    int exitStatus = -1;  // when it exited
};

// Runs a program found on the PATH with standard input, output and error on /dev/null, in a
// session of its own, and kills it if it runs past `timeLimit` seconds.
ProgramOutcome runWithTimeLimit(const std::vector<std::string>& arguments, double timeLimit);

class GioMounter final : public GvfsMounter {
  public:
    static constexpr double defaultTimeLimit = 20.0;

    // `program` replaces gio, for tests.
    explicit GioMounter(std::string program = "gio", double timeLimit = defaultTimeLimit);

    bool mount(const std::string& uri) const override;

  private:
    const std::string program_;
    const double timeLimit_;
    mutable std::atomic<bool> hasToldMissing_{false};
};

}  // namespace quillstow
