#include "platform/LinuxUserActivity.hpp"

#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>

#include <cstdlib>
#include <memory>

#include "platform/DBus.hpp"

namespace quillstow {

namespace {

constexpr double nobodyThere = 1e9;

constexpr DBusConnection::Target mutterIdleMonitor{"org.gnome.Mutter.IdleMonitor",
                                                   "/org/gnome/Mutter/IdleMonitor/Core",
                                                   "org.gnome.Mutter.IdleMonitor"};
constexpr DBusConnection::Target screenSaver{
    "org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver"};

std::optional<double> x11IdleSeconds() {
    const char* display = std::getenv("DISPLAY");
    if (!display || !*display) return std::nullopt;
    // A display of its own per reading: a long-lived connection whose server goes away would
    // take the process with it.
    Display* connection = XOpenDisplay(nullptr);
    if (!connection) return std::nullopt;
    std::optional<double> idle;
    int eventBase = 0, errorBase = 0;
    if (XScreenSaverQueryExtension(connection, &eventBase, &errorBase)) {
        if (XScreenSaverInfo* info = XScreenSaverAllocInfo()) {
            if (XScreenSaverQueryInfo(connection, DefaultRootWindow(connection), info)) {
                idle = double(info->idle) / 1000.0;
            }
            XFree(info);
        }
    }
    XCloseDisplay(connection);
    return idle;
}

const MonotonicClock& monotonicClock() {
    static const MonotonicClock clock;
    return clock;
}

}  // namespace

LinuxUserActivity::LinuxUserActivity()
    : LinuxUserActivity(
          [] {
              std::shared_ptr<DBusConnection> session =
                  DBusConnection::open(DBusConnection::Bus::session);
              std::vector<IdleSource> sources;
              if (session) {
                  sources.push_back([session]() -> std::optional<double> {
                      const auto milliseconds =
                          session->callForUint64(mutterIdleMonitor, "GetIdletime");
                      if (!milliseconds) return std::nullopt;
                      return double(*milliseconds) / 1000.0;
                  });
                  sources.push_back([session]() -> std::optional<double> {
                      const auto seconds =
                          session->callForUint32(screenSaver, "GetSessionIdleTime");
                      if (!seconds) return std::nullopt;
                      return double(*seconds);
                  });
              }
              sources.push_back(x11IdleSeconds);
              return sources;
          }(),
          monotonicClock()) {}

LinuxUserActivity::LinuxUserActivity(std::vector<IdleSource> sources, const Clock& clock)
    : sources_(std::move(sources)), clock_(clock) {}

double LinuxUserActivity::secondsSinceLastUserInput() const {
    std::lock_guard lock(mutex_);
    const double now = clock_.now();
    if (readAt_ && now - *readAt_ < readingLifetime) return idleAtRead_ + (now - *readAt_);
    double idle = nobodyThere;
    for (const auto& source : sources_) {
        if (const auto seconds = source()) {
            idle = *seconds;
            break;
        }
    }
    readAt_ = now;
    idleAtRead_ = idle;
    return idle;
}

}  // namespace quillstow
