#include "Processes.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace quillstow::testing {

namespace {

std::vector<char*> argv(const std::vector<std::string>& arguments) {
    std::vector<char*> pointers;
    for (const auto& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ProcessResult runProcess(const std::vector<std::string>& arguments) {
    int output[2];
    if (::pipe2(output, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    auto pointers = argv(arguments);
    const pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("fork");
    if (child == 0) {
        ::dup2(output[1], STDOUT_FILENO);
        ::execv(pointers[0], pointers.data());
        ::_exit(127);
    }
    ::close(output[1]);
    ProcessResult result;
    char buffer[4096];
    for (ssize_t count; (count = ::read(output[0], buffer, sizeof buffer)) > 0;) {
        result.output.append(buffer, std::size_t(count));
    }
    ::close(output[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

pid_t startProcess(const std::vector<std::string>& arguments) {
    auto pointers = argv(arguments);
    const pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("fork");
    if (child == 0) {
        const int null = ::open("/dev/null", O_WRONLY);
        ::dup2(null, STDOUT_FILENO);
        ::dup2(null, STDERR_FILENO);
        ::execv(pointers[0], pointers.data());
        ::_exit(127);
    }
    return child;
}

}  // namespace quillstow::testing
