#pragma once

// Running the project's programs from tests.

#include <sys/types.h>

#include <string>
#include <vector>

namespace quillstow::testing {

struct ProcessResult {
    int exitStatus = -1;  // -1 when it ended by a signal
    std::string output;   // standard output
};

// Runs a program to its end, standard error passed through.
ProcessResult runProcess(const std::vector<std::string>& arguments);

// Starts a program with standard output and error sent to /dev/null.
pid_t startProcess(const std::vector<std::string>& arguments);

}  // namespace quillstow::testing
