#include "shell/app/DesktopServices.hpp"

#include <QDBusConnection>
#include <QDBusReply>
#include <QDBusVariant>
#include <QDesktopServices>
#include <QUrl>

#include "shell/viewmodels/Texts.hpp"
#include "support/AtomicFile.hpp"
#include "support/Error.hpp"

namespace quillstow::shell {

namespace {

// A service that doesn't answer (or is still being started) never holds the interface long.
constexpr int callTimeoutMs = 1000;

QDBusMessage callSessionBus(const char* service, const char* path, const char* interface,
                            const char* method, const QVariantList& arguments) {
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, method);
    call.setArguments(arguments);
    return QDBusConnection::sessionBus().call(call, QDBus::Block, callTimeoutMs);
}

// Answers whether a file manager took the call.
bool askFileManager(const char* method, const std::filesystem::path& item) {
    const QString url = QUrl::fromLocalFile(QString::fromStdString(item.string())).toString();
    const QDBusMessage reply =
        callSessionBus("org.freedesktop.FileManager1", "/org/freedesktop/FileManager1",
                       "org.freedesktop.FileManager1", method, {QStringList{url}, QString()});
    return reply.type() == QDBusMessage::ReplyMessage;
}

void openInDefaultApplication(const std::filesystem::path& folder) {
    QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(folder.string())));
}

}  // namespace

void showFolderInFileManager(const std::filesystem::path& folder) {
    if (!askFileManager("ShowFolders", folder)) openInDefaultApplication(folder);
}

void showItemInFileManager(const std::filesystem::path& item) {
    if (!askFileManager("ShowItems", item)) openInDefaultApplication(item.parent_path());
}

std::filesystem::path autostartEntryPath() {
    const char* config = std::getenv("XDG_CONFIG_HOME");
    const char* home = std::getenv("HOME");
    const std::filesystem::path base = config && *config
                                           ? std::filesystem::path(config)
                                           : std::filesystem::path(home ? home : "") / ".config";
    return base / "autostart" / (std::string(texts::applicationId) + ".desktop");
}

std::string autostartEntry(const std::string& program) {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Quillstow\n"
           "Comment=Back up your folders, automatically\n"
           "Exec=\"" +
           program +
           "\" --autostart\n"
           "Icon=io.quillstow.Quillstow\n"
           "StartupWMClass=Quillstow\n"
           "X-GNOME-Autostart-enabled=true\n"
           "NoDisplay=true\n";
}

void setLaunchAtLogin(bool enabled, const std::string& program) {
    const auto path = autostartEntryPath();
    std::error_code error;
    if (!enabled) {
        std::filesystem::remove(path, error);
        if (error) throw Failure(errors::posix(error.value()));
        return;
    }
    std::filesystem::create_directories(path.parent_path(), error);
    atomicfile::write(path, autostartEntry(program));
}

bool desktopPrefersReducedMotion() {
    const QDBusMessage reply =
        callSessionBus("org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
                       "org.freedesktop.portal.Settings", "Read",
                       {QString("org.gnome.desktop.interface"), QString("enable-animations")});
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return false;
    // The portal wraps the value in a variant, some versions twice.
    QVariant value = reply.arguments().first();
    while (value.canConvert<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    return value.isValid() && !value.toBool();
}

}  // namespace quillstow::shell
