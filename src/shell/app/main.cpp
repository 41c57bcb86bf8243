// quillstow: the tray application. Where there is no display it is the headless program, which
// backs up every pair as long as it runs. A second start in the same session opens the first
// one's popover and exits.

#include <sys/signalfd.h>
#include <unistd.h>

#include <QApplication>
#include <QSocketNotifier>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "app/Headless.hpp"
#include "app/QtMainQueue.hpp"
#include "app/SingleInstance.hpp"
#include "app/TestHooks.hpp"
#include "app/TrayApplication.hpp"
#include "viewmodels/Texts.hpp"
#include "views/Icons.hpp"

namespace {

using namespace quillstow;

bool hasDisplay() {
    for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        const char* value = std::getenv(variable);
        if (value && *value) return true;
    }
    const char* platform = std::getenv("QT_QPA_PLATFORM");
    return platform && *platform;
}

sigset_t terminationSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

// SIGINT and SIGTERM end the event loop, read from a signalfd on the main thread.
void quitOnTermination(QApplication& app) {
    const sigset_t blocked = terminationSignals();
    const int fd = signalfd(-1, &blocked, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd < 0) return;
    auto* notifier = new QSocketNotifier(fd, QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [fd] {
        signalfd_siginfo info{};
        while (::read(fd, &info, sizeof info) > 0) {
        }
        QCoreApplication::quit();
    });
}

}  // namespace

int main(int argc, char** argv) {
    // --autostart marks a start at login; it starts the same way.
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--autostart") == 0) continue;
        return printUsage(std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0);
    }
    if (!hasDisplay()) return runHeadless();

    // Blocked before any other thread exists, so that every thread inherits the mask.
    const sigset_t blocked = terminationSignals();
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    QApplication app(argc, argv);
    QApplication::setApplicationName(shell::texts::applicationName);
    QApplication::setApplicationVersion(QUILLSTOW_VERSION);
    QApplication::setDesktopFileName(shell::texts::applicationId);
    QApplication::setQuitOnLastWindowClosed(false);
    shell::ensureIconResources();
    QApplication::setWindowIcon(
        QIcon::fromTheme(shell::texts::applicationId, QIcon(":/icons/io.quillstow.Quillstow.svg")));
    quitOnTermination(app);

    shell::SingleInstance instance;
    shell::TrayApplication* tray = nullptr;
    if (instance.claim([&tray] {
            if (tray) tray->openPopover();
        }) == shell::SingleInstance::Outcome::activatedOther)
        return 0;

    const Logger log("app");
    shell::QtMainQueue mainQueue;
    Application application(mainQueue, defaultSettingsFolder());
    log.notice("Started with %{public}d backup pair(s)",
               int(application.configStore().pairs().size()));
    const char* patience = std::getenv("QUILLSTOW_TRAY_PATIENCE_MS");
    shell::TrayApplication trayApplication(
        application, patience ? std::atoi(patience) : shell::TrayHostWatch::defaultPatienceMs);
    tray = &trayApplication;
    shell::installTestHooks(trayApplication);
    trayApplication.start();
    const int status = app.exec();

    // The end, in order: the observation and the windows, every pair, then the settings.
    log.notice("Stopping");
    tray = nullptr;
    trayApplication.stop();
    application.stopEverything();
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
    application.save();
    return status;
}
