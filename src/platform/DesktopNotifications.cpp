#include "platform/DesktopNotifications.hpp"

#include <systemd/sd-bus.h>

#include "support/Logger.hpp"

namespace quillstow {

namespace {

constexpr DBusConnection::Target notifications{"org.freedesktop.Notifications",
                                               "/org/freedesktop/Notifications",
                                               "org.freedesktop.Notifications"};
constexpr const char* applicationName = "Quillstow";
// The application id: the name of our .desktop file and of our icon in the hicolor theme.
constexpr const char* applicationId = "io.quillstow.Quillstow";
// The freedesktop sound theme's name for the default sound of a message.
constexpr const char* defaultSound = "message-new-instant";
constexpr std::int32_t serverDecidesTimeout = -1;

[[noreturn]] void fail(const std::string& why) {
    throw Failure(Error{"DBus", 1, why});
}

}  // namespace

DesktopNotifications::DesktopNotifications(MainQueue& mainQueue, Scheduler& timer,
                                           const WallClock& clock)
    : DesktopNotifications(mainQueue, timer, clock,
                           DBusConnection::open(DBusConnection::Bus::session)) {}

DesktopNotifications::DesktopNotifications(MainQueue& mainQueue, Scheduler& timer,
                                           const WallClock& clock,
                                           std::unique_ptr<DBusConnection> sessionBus)
    : mainQueue_(mainQueue),
      timer_(timer),
      clock_(clock),
      bus_(std::move(sessionBus)),
      self_(std::make_shared<DesktopNotifications*>(this)) {}

DesktopNotifications::~DesktopNotifications() {
    for (const auto& [identifier, work] : pending_)
        work.cancel();
}

void DesktopNotifications::deliver(const UserNotification& notification) {
    if (!bus_) fail("There is no session bus to show notifications on.");
    const auto shown = serverIds_.find(notification.identifier);
    const std::uint32_t replaces = shown == serverIds_.end() ? 0 : shown->second;
    std::uint32_t serverId = 0;
    const auto failure = bus_->call(
        notifications, "Notify",
        [&](sd_bus_message* message) {
            // A server without actions ignores the default one; a click elsewhere opens us.
            int status =
                sd_bus_message_append(message, "susss", applicationName, replaces, applicationId,
                                      notification.title.c_str(), notification.body.c_str());
            if (status < 0) return status;
            status = notification.actionKey.empty()
                         ? sd_bus_message_append(message, "as", 2, "default", "Open Quillstow")
                         : sd_bus_message_append(message, "as", 4, "default", "Open Quillstow",
                                                 notification.actionKey.c_str(),
                                                 notification.actionLabel.c_str());
            if (status < 0) return status;
            return sd_bus_message_append(message, "a{sv}i", 2, "sound-name", "s", defaultSound,
                                         "desktop-entry", "s", applicationId, serverDecidesTimeout);
        },
        [&](sd_bus_message* reply) { return sd_bus_message_read(reply, "u", &serverId); });
    if (failure) fail(*failure);
    serverIds_[notification.identifier] = serverId;
}

bool DesktopNotifications::hasShown(std::uint32_t serverId) const {
    for (const auto& [identifier, shown] : serverIds_)
        if (shown == serverId) return true;
    return false;
}

void DesktopNotifications::schedule(const UserNotification& notification, Date at) {
    removePending(notification.identifier);
    const double seconds = std::chrono::duration<double>(at - clock_.now()).count();
    std::weak_ptr<DesktopNotifications*> weak = self_;
    MainQueue& mainQueue = mainQueue_;
    pending_[notification.identifier] =
        timer_.postDelayed(seconds, [weak, notification, &mainQueue] {
            mainQueue.post([weak, notification] {
                const auto self = weak.lock();
                if (!self) return;
                (*self)->pending_.erase(notification.identifier);
                try {
                    (*self)->deliver(notification);
                } catch (const Failure& failure) {
                    Logger("app").error("Failed to deliver notification: %{public}s",
                                        failure.error().description);
                }
            });
        });
}

void DesktopNotifications::removePending(const std::string& identifier) {
    const auto found = pending_.find(identifier);
    if (found == pending_.end()) return;
    found->second.cancel();
    pending_.erase(found);
}

}  // namespace quillstow
