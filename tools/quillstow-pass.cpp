// quillstow-pass: runs one backup pass from the command line, as the engine would, and prints
// its result as JSON.
//
//   quillstow-pass [--profile NAME] [--trash DIR] SOURCE DESTINATION
//
// Exit status 0 with the result; 2 with the error when a check before the first file fails;
// 64 for a usage error. Ctrl-C cancels the pass, which then reports what it did.

#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <iostream>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "control/BackupEngine.hpp"
#include "copy/FileCopier.hpp"
#include "model/BackupProfile.hpp"
#include "platform/LinuxUserActivity.hpp"
#include "platform/ProcRunningEditors.hpp"
#include "support/Paths.hpp"

namespace {

using namespace quillstow;

constexpr int usageStatus = 64;
constexpr int internalErrorStatus = 70;

constexpr const char* usage =
    "usage: quillstow-pass [--profile NAME] [--trash DIR] [--bandwidth MODE] SOURCE DESTINATION\n"
    "\n"
    "Mirrors SOURCE into DESTINATION once and prints the result as JSON.\n"
    "  --profile NAME  standard (the default), film, photography, music, developer, documents\n"
    "  --trash DIR     root of the deletion archive; {parent of DESTINATION}/.Quillstow-Trash\n"
    "                  by default\n"
    "  --bandwidth MODE  auto (the default: slower while you work), quiet, full\n";

struct Arguments {
    BackupProfile profile = BackupProfile::standard;
    BandwidthMode bandwidth = BandwidthMode::automatic;
    std::optional<std::filesystem::path> trash;
    std::filesystem::path source;
    std::filesystem::path destination;
};

[[noreturn]] void failUsage(const std::string& message) {
    std::cerr << "quillstow-pass: " << message << "\n\n" << usage;
    std::exit(usageStatus);
}

// An argument as an absolute path; an empty one, or one that can't be made absolute (the
// working folder is gone), is a usage error.
std::filesystem::path absolutePath(const std::string& argument, const char* what) {
    if (argument.empty()) failUsage(std::string(what) + " can't be an empty path.");
    try {
        return std::filesystem::absolute(argument);
    } catch (const std::filesystem::filesystem_error& error) {
        failUsage(std::string(what) + ": " + error.what());
    }
}

Arguments parseArguments(int argc, char** argv) {
    Arguments arguments;
    std::vector<std::string> positional;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            std::cout << usage;
            std::exit(0);
        } else if (argument == "--profile" || argument == "--trash" || argument == "--bandwidth") {
            if (i + 1 >= argc) failUsage(argument + " needs a value.");
            const std::string value = argv[++i];
            if (argument == "--trash") {
                arguments.trash = absolutePath(value, "The archive folder");
                continue;
            }
            if (argument == "--bandwidth") {
                const auto mode = coding::caseNamed(bandwidthModeNames, value);
                if (!mode) failUsage("There is no bandwidth mode \"" + value + "\".");
                arguments.bandwidth = *mode;
                continue;
            }
            const auto profile = coding::caseNamed(backupProfileNames, value);
            if (!profile) failUsage("There is no profile \"" + value + "\".");
            arguments.profile = *profile;
        } else if (argument.starts_with("--")) {
            failUsage("Unknown option " + argument + ".");
        } else {
            positional.push_back(argument);
        }
    }
    if (positional.size() != 2) failUsage("Give a source and a destination folder.");
    arguments.source = absolutePath(positional[0], "The source");
    arguments.destination = absolutePath(positional[1], "The destination");
    return arguments;
}

// Turns SIGINT and SIGTERM into a stop request. The signals are blocked in every thread and
// taken here with sigwait, so nothing runs inside a signal handler.
class InterruptWatcher {
  public:
    InterruptWatcher() {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        sigaddset(&signals_, SIGUSR1);
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        thread_ = std::thread([this] {
            int received = 0;
            while (sigwait(&signals_, &received) == 0 && received != SIGUSR1) {
                stop_.request_stop();
            }
        });
    }
    ~InterruptWatcher() {
        pthread_kill(thread_.native_handle(), SIGUSR1);
        thread_.join();
    }

    std::stop_token token() const { return stop_.get_token(); }

  private:
    sigset_t signals_{};
    std::stop_source stop_;
    std::thread thread_;
};

}  // namespace

int main(int argc, char** argv) {
    const Arguments arguments = parseArguments(argc, argv);
    // DESTINATION is a pair's mirror: its parent stands for the location the user chose.
    const std::filesystem::path trash = arguments.trash.value_or(
        archiveRootAt(paths::standardized(arguments.destination).parent_path()));

    InterruptWatcher interrupts;
    LocalFileSystem fileSystem;
    ProcRunningEditors editors;
    SystemWallClock wallClock;
    MonotonicClock clock;
    LinuxUserActivity activity;
    Sleeper sleeper;
    ActivityGate gate(activity, sleeper);
    gate.setBandwidthMode(arguments.bandwidth);
    FileCopier copier(fileSystem, editors, wallClock, clock, gate);

    // As the engine runs a pass: one plan from one walk of each tree; what an interrupted pass
    // left is swept first, once the path rules accept the two folders.
    const PassPlan plan = copier.planPass(arguments.source, arguments.destination,
                                          filterForProfile(arguments.profile));
    copier.removeStaleTemporaries(plan);
    try {
        const BackupResult result = copier.scanAndCopy(plan, trash, nullptr, interrupts.token());
        std::cout << json::write(toJson(result)) << "\n";
        return 0;
    } catch (const FileOperationFailure& failure) {
        std::cout << json::write(toJson(failure.error())) << "\n";
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "quillstow-pass: " << error.what() << "\n";
        return internalErrorStatus;
    }
}
