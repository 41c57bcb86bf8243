#include "app/SingleInstance.hpp"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QVariantMap>

#include "viewmodels/Texts.hpp"

namespace quillstow::shell {

namespace {

constexpr const char* objectPath = "/io/quillstow/Quillstow";

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
    if (!bus.isConnected()) return Outcome::noBus;
    if (bus.registerService(texts::applicationId)) {
        activate_ = std::move(activate);
        new ApplicationAdaptor(this, [this] { activate_(); });
        bus.registerObject(objectPath, this);
        return Outcome::first;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(texts::applicationId, objectPath,
                                                       "org.freedesktop.Application", "Activate");
    call.setArguments({QVariantMap{}});
    bus.call(call, QDBus::Block, 2000);
    return Outcome::activatedOther;
}

}  // namespace quillstow::shell

#include "SingleInstance.moc"
