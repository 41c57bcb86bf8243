#include "app/Headless.hpp"

#include <pthread.h>
#include <signal.h>

#include <cstdio>
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

namespace quillstow {

int runHeadless() {
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

int printUsage(bool asked) {
    std::fprintf(asked ? stdout : stderr,
                 "usage: quillstow [--autostart]\n\n"
                 "Backs up every pair of the settings in %s, as long as it runs,\n"
                 "from the system tray; without a display, headless.\n"
                 "Stops from the tray's menu, on Ctrl-C or on SIGTERM.\n",
                 defaultSettingsFolder().c_str());
    return asked ? 0 : 64;
}

}  // namespace quillstow
