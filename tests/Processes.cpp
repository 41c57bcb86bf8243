#include "Processes.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace quillstow::testing {

namespace {

// Forks and runs the program with standard output on `output`, and standard error too when
// `quiet`.
pid_t spawn(const std::vector<std::string>& arguments, int output, bool quiet) {
    std::vector<char*> argv;
    for (const auto& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("fork");
    if (child == 0) {
        ::dup2(output, STDOUT_FILENO);
        if (quiet) ::dup2(output, STDERR_FILENO);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    return child;
}

}  // namespace

ProcessResult runProcess(const std::vector<std::string>& arguments) {
    int output[2];
    if (::pipe2(output, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    const pid_t child = spawn(arguments, output[1], false);
    ::close(output[1]);
    ProcessResult result;
    char buffer[4096];
    for (ssize_t count; (count = ::read(output[0], buffer, sizeof buffer)) > 0;)
        result.output.append(buffer, std::size_t(count));
    ::close(output[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

pid_t startProcess(const std::vector<std::string>& arguments) {
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    const pid_t child = spawn(arguments, null, true);
    ::close(null);
    return child;
}

}  // namespace quillstow::testing
