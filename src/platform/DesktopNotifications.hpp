#pragma once

// Notifications of the desktop: org.freedesktop.Notifications on the session bus. Our
// identifiers map to the server's ids, so that a notification shown again under its identifier
// (the daily summary) replaces the one on screen. A notification for later waits for its time
// on a timer of the program's own, which counts through suspend, and "remove pending" cancels
// that timer.
//
// Main thread only.

#include <map>
#include <memory>

#include "control/NotificationManager.hpp"
#include "platform/DBus.hpp"
#include "support/MainQueue.hpp"

namespace quillstow {

class DesktopNotifications final : public NotificationDelivery {
  public:
    // The session bus; a desktop without one has no notifications, and each delivery fails.
    DesktopNotifications(MainQueue& mainQueue, Scheduler& timer, const WallClock& clock);
    DesktopNotifications(MainQueue& mainQueue, Scheduler& timer, const WallClock& clock,
                         std::unique_ptr<DBusConnection> sessionBus);
    DesktopNotifications(const DesktopNotifications&) = delete;
    DesktopNotifications& operator=(const DesktopNotifications&) = delete;
    ~DesktopNotifications() override;

    void deliver(const UserNotification& notification) override;
    void schedule(const UserNotification& notification, Date at) override;
    void removePending(const std::string& identifier) override;

    // Whether the server's id is of a notification of ours, for whoever hears the server's
    // ActionInvoked signal.
    bool hasShown(std::uint32_t serverId) const;

  private:
    MainQueue& mainQueue_;
    Scheduler& timer_;
    const WallClock& clock_;
    std::unique_ptr<DBusConnection> bus_;
    std::map<std::string, std::uint32_t> serverIds_;
    std::map<std::string, DelayedWork> pending_;
    // What a timer that fires after this object has gone finds empty.
    std::shared_ptr<DesktopNotifications*> self_;
};

}  // namespace quillstow
