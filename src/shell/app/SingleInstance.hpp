#pragma once

// One Quillstow per session: the first instance owns the application id on the session bus and
// exports org.freedesktop.Application there; a second start calls Activate on it, which shows
// the first one's popover, and exits. Without a session bus the same happens over a local
// socket in the runtime folder: the first listens, a later one connects and says "activate".
//
// Main thread only.

#include <QDBusConnection>
#include <QObject>
#include <functional>

class QLocalServer;

namespace quillstow::shell {

class SingleInstance final : public QObject {
    Q_OBJECT

  public:
    enum class Outcome { first, activatedOther };

    // Over the session bus where there is one, else over the local socket. `activate` runs on
    // every later start.
    Outcome claim(std::function<void()> activate);
    Outcome claimOnBus(QDBusConnection bus, std::function<void()> activate);
    // A socket left behind by an instance that died is taken over.
    Outcome claimLocally(const QString& socketPath, std::function<void()> activate);

    // "$XDG_RUNTIME_DIR/io.quillstow.Quillstow".
    static QString localSocketPath();

  private:
    void listen(const QString& socketPath);

    std::function<void()> activate_;
    QLocalServer* server_ = nullptr;
};

}  // namespace quillstow::shell
