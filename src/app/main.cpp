// quillstow: the program without its tray. Loads the user's settings, runs every pair on a plain
// run loop, and stops cleanly on SIGINT or SIGTERM: every pair is stopped and the settings and
// the log are written.

#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <cstring>
#include <thread>

#include "app/Application.hpp"
#include "support/RunLoop.hpp"

namespace {

using namespace quillstow;

// Takes SIGINT and SIGTERM on a thread of its own, so nothing runs inside a signal handler,
// and asks the run loop to end.
class TerminationWatcher {
  public:
    explicit TerminationWatcher(RunLoop& loop) {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        sigaddset(&signals_, SIGUSR1);
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        thread_ = std::thread([this, &loop] {
            int received = 0;
            while (sigwait(&signals_, &received) == 0) {
                if (received == SIGUSR1) return;
                loop.quit();
            }
        });
    }
    ~TerminationWatcher() {
        pthread_kill(thread_.native_handle(), SIGUSR1);
        thread_.join();
    }

  private:
    sigset_t signals_{};
    std::thread thread_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1) {
        const bool help = std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0;
        std::fprintf(help ? stdout : stderr,
                     "usage: quillstow\n\n"
                     "Backs up every pair of the settings in %s, as long as it runs.\n"
                     "Stops on Ctrl-C or SIGTERM.\n",
                     defaultSettingsFolder().c_str());
        return help ? 0 : 64;
    }
    RunLoop loop;
    // Blocked before any other thread exists, so that every thread inherits the mask.
    TerminationWatcher termination(loop);
    const Logger log("app");
    Application application(loop, defaultSettingsFolder());
    log.notice("Started with %{public}d backup pair(s)",
               int(application.configStore().pairs().size()));
    loop.run();
    log.notice("Stopping");
    application.stopEverything();
    loop.runPending();
    application.save();
    return 0;
}
