#include "platform/GioMounter.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "support/Logger.hpp"

extern char** environ;

namespace quillstow {

namespace {

using Ending = ProgramOutcome::Ending;
using Deadline = std::chrono::steady_clock::time_point;

// Whether the child ended by the deadline. A pidfd wakes us when it ends; where the kernel has
// none, we look every few milliseconds.
bool endsBy(pid_t child, Deadline deadline) {
    const int pidfd = int(::syscall(SYS_pidfd_open, child, 0));
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (pidfd >= 0) {
            pollfd ended{pidfd, POLLIN, 0};
            const int ready = ::poll(&ended, 1, int(std::max<long>(left.count(), 0)));
            if (ready < 0 && errno == EINTR) continue;
            ::close(pidfd);
            return ready > 0;
        }
        siginfo_t info{};
        if (::waitid(P_PID, id_t(child), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            info.si_pid == child) {
            return true;
        }
        if (left.count() <= 0) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

ProgramOutcome reap(pid_t child, bool wasKilled) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (wasKilled) return {Ending::killedAtTimeLimit, -1};
    if (WIFEXITED(status)) return {Ending::exited, WEXITSTATUS(status)};
    return {Ending::endedBySignal, -1};
}

}  // namespace

ProgramOutcome runWithTimeLimit(const std::vector<std::string>& arguments, double timeLimit) {
    if (arguments.empty()) return {};
    std::vector<char*> argv;
    for (const auto& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // No terminal to prompt on, no signal mask or ignored signal of ours.
    sigset_t none, usual;
    sigemptyset(&none);
    sigemptyset(&usual);
    for (const int signal : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGCHLD})
        sigaddset(&usual, signal);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t child = -1;
    const int failure =
        ::posix_spawnp(&child, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failure == ENOENT) return {Ending::missing, -1};
    if (failure != 0) return {Ending::failedToStart, -1};

    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(timeLimit));
    const bool ended = endsBy(child, deadline);
    if (!ended) ::kill(child, SIGKILL);
    return reap(child, !ended);
}

GioMounter::GioMounter(std::string program, double timeLimit)
    : program_(std::move(program)), timeLimit_(timeLimit) {}

bool GioMounter::mount(const std::string& uri) const {
    const auto outcome = runWithTimeLimit({program_, "mount", uri}, timeLimit_);
    if (outcome.ending == Ending::missing && !hasToldMissing_.exchange(true)) {
        Logger("BackupEngine")
            .error(
                "Can't ask GVFS to mount a network share again: the %{public}s command is "
                "missing (it comes with the package libglib2.0-bin)",
                program_);
    }
    return outcome.ending == Ending::exited && outcome.exitStatus == 0;
}

}  // namespace quillstow
