#include "app/SingleInstance.hpp"

#include <QDBusAbstractAdaptor>
#include <QDBusMessage>
#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QVariantMap>

#include "support/Logger.hpp"
#include "viewmodels/Texts.hpp"

namespace quillstow::shell {

namespace {

constexpr const char* objectPath = "/io/quillstow/Quillstow";
constexpr char activateLine[] = "activate\n";
// How long a second start waits for the first before it gives up and exits.
constexpr int patienceMs = 2000;

}  // namespace

// org.freedesktop.Application on our object: every way in opens the popover.
class ApplicationAdaptor final : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

  public:
    ApplicationAdaptor(QObject* parent, std::function<void()> activate)
        : QDBusAbstractAdaptor(parent), activate_(std::move(activate)) {}

  public slots:
    void Activate(const QVariantMap&) { activate_(); }
    void Open(const QStringList&, const QVariantMap&) { activate_(); }
    void ActivateAction(const QString&, const QVariantList&, const QVariantMap&) { activate_(); }

  private:
    std::function<void()> activate_;
};

SingleInstance::Outcome SingleInstance::claim(std::function<void()> activate) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected()) return claimOnBus(bus, std::move(activate));
    return claimLocally(localSocketPath(), std::move(activate));
}

SingleInstance::Outcome SingleInstance::claimOnBus(QDBusConnection bus,
                                                   std::function<void()> activate) {
    if (bus.registerService(texts::applicationId)) {
        activate_ = std::move(activate);
        new ApplicationAdaptor(this, [this] { activate_(); });
        bus.registerObject(objectPath, this);
        return Outcome::first;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(texts::applicationId, objectPath,
                                                       "org.freedesktop.Application", "Activate");
    call.setArguments({QVariantMap{}});
    // Events run while waiting: the first instance may be this very process.
    bus.call(call, QDBus::BlockWithGui, patienceMs);
    return Outcome::activatedOther;
}

QString SingleInstance::localSocketPath() {
    return QDir(QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation))
        .filePath(texts::applicationId);
}

SingleInstance::Outcome SingleInstance::claimLocally(const QString& socketPath,
                                                     std::function<void()> activate) {
    QLocalSocket other;
    other.connectToServer(socketPath);
    if (other.waitForConnected(patienceMs)) {
        other.write(activateLine);
        other.waitForBytesWritten(patienceMs);
        other.disconnectFromServer();
        return Outcome::activatedOther;
    }
    // Nobody listens there, or an instance died and left its socket behind.
    activate_ = std::move(activate);
    QLocalServer::removeServer(socketPath);
    listen(socketPath);
    return Outcome::first;
}

void SingleInstance::listen(const QString& socketPath) {
    delete server_;
    // The runtime folder is the user's alone.
    server_ = new QLocalServer(this);
    connect(server_, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = server_->nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                while (socket->canReadLine())
                    if (socket->readLine() == activateLine && activate_) activate_();
            });
        }
    });
    // Without it the program still runs; only a second start can't find it.
    if (!server_->listen(socketPath))
        Logger("app").error("Could not listen for a second start at %{public}s: %{public}s",
                            socketPath.toStdString(), server_->errorString().toStdString());
}

}  // namespace quillstow::shell

#include "SingleInstance.moc"
