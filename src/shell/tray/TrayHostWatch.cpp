#include "tray/TrayHostWatch.hpp"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QSystemTrayIcon>

namespace quillstow::shell {

namespace {

constexpr int pollIntervalMs = 250;

}  // namespace

TrayHostWatch::TrayHostWatch(int patienceMs, QObject* parent)
    : QObject(parent), remainingPolls_(patienceMs / pollIntervalMs) {
    poll_.setInterval(pollIntervalMs);
    connect(&poll_, &QTimer::timeout, this, &TrayHostWatch::poll);
}

void TrayHostWatch::start() {
    poll();
    if (!isDecided_) poll_.start();
}

bool TrayHostWatch::hasStatusNotifierHost() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()) return false;
    if (!bus.interface()->isServiceRegistered("org.kde.StatusNotifierWatcher")) return false;
    QDBusMessage get =
        QDBusMessage::createMethodCall("org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher",
                                       "org.freedesktop.DBus.Properties", "Get");
    get.setArguments(
        {QString("org.kde.StatusNotifierWatcher"), QString("IsStatusNotifierHostRegistered")});
    const QDBusMessage reply = bus.call(get, QDBus::Block, 500);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return false;
    return reply.arguments().first().value<QDBusVariant>().variant().toBool();
}

void TrayHostWatch::poll() {
    if (isDecided_) return;
    const bool hasSessionBus = QDBusConnection::sessionBus().isConnected();
    bool hasTray = false;
    if (hasStatusNotifierHost()) {
        hasTray = true;
    } else if (hasSessionBus && remainingPolls_-- > 0) {
        return;
    } else {
        // Out of patience, or no bus to wait on: an XEmbed tray, if there is one.
        hasTray = QSystemTrayIcon::isSystemTrayAvailable();
    }
    isDecided_ = true;
    poll_.stop();
    emit decided(hasTray);
}

}  // namespace quillstow::shell
