#include "app/TestHooks.hpp"

#include <QAbstractButton>
#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QMenu>
#include <QSaveFile>
#include <QTimer>

#include "app/TrayApplication.hpp"

namespace quillstow::shell {

namespace {

void dumpMenu(const QMenu& menu, const QString& indent, QStringList& lines) {
    for (const QAction* action : menu.actions()) {
        if (action->isSeparator()) continue;
        lines << indent + "item: " + action->text();
        if (action->menu()) dumpMenu(*action->menu(), indent + "  ", lines);
    }
}

void dumpWidget(const QWidget& widget, QStringList& lines) {
    for (const QWidget* child : widget.findChildren<QWidget*>()) {
        if (!child->isVisible()) continue;
        if (const auto* label = qobject_cast<const QLabel*>(child);
            label && !label->text().isEmpty())
            lines << "  label: " + label->text();
        if (const auto* button = qobject_cast<const QAbstractButton*>(child);
            button && !button->text().isEmpty())
            lines << "  button: " + button->text();
    }
}

QStringList visibleTexts(TrayApplication& tray, int menuOpenings) {
    QStringList lines;
    for (const QWidget* window : QApplication::topLevelWidgets()) {
        if (!window->isVisible()) continue;
        if (const auto* menu = qobject_cast<const QMenu*>(window)) {
            lines << "menu:";
            dumpMenu(*menu, "  ", lines);
            continue;
        }
        lines << "window: " + window->objectName() + " " + window->windowTitle();
        dumpWidget(*window, lines);
    }
    lines << QString("tray: %1")
                 .arg(tray.trayIcon() && tray.trayIcon()->isVisible() ? "shown" : "none");
    // A StatusNotifierItem host draws the menu itself: what it was given, and how often asked.
    lines << QString("tray menu opened: %1").arg(menuOpenings);
    dumpMenu(tray.menu(), "  tray ", lines);
    return lines;
}

void runCommand(TrayApplication& tray, const QStringList& words) {
    const QString command = words.value(0);
    const auto id = Uuid::parse(words.value(1).toStdString());
    if (command == "close-windows") {
        for (QWidget* window : QApplication::topLevelWidgets())
            if (window->isVisible() && window != tray.popover().window()) window->close();
    }
    if (command == "about") tray.openAbout();
    if (command == "learn") tray.openLearn();
    if (command == "welcome") tray.openWelcome();
    if (command == "restore" && id) tray.openRestore(*id);
    if (command == "recover" && id) tray.openRecovery(*id);
    if (command == "smart-setup" && id && words.size() == 5) {
        tray.openProfileSuggestion({{"pairId", *id},
                                    {"pairName", words[2].toStdString()},
                                    {"recommendedProfile", words[3].toStdString()},
                                    {"approximateBytes", std::int64_t(words[4].toLongLong())}});
    }
}

void runCommands(TrayApplication& tray, const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite)) return;
    const QString commands = QString::fromUtf8(file.readAll());
    file.resize(0);
    for (const QString& line : commands.split('\n', Qt::SkipEmptyParts))
        runCommand(tray, line.split(' ', Qt::SkipEmptyParts));
}

}  // namespace

void installTestHooks(TrayApplication& tray) {
    const QString commands = qEnvironmentVariable("QUILLSTOW_TEST_COMMANDS");
    if (!commands.isEmpty()) {
        auto* timer = new QTimer(&tray);
        timer->setInterval(200);
        QObject::connect(timer, &QTimer::timeout, &tray,
                         [&tray, commands] { runCommands(tray, commands); });
        timer->start();
    }
    const QString path = qEnvironmentVariable("QUILLSTOW_WIDGET_DUMP");
    if (path.isEmpty()) return;
    auto openings = std::make_shared<int>(0);
    QObject::connect(&tray.menu(), &QMenu::aboutToShow, &tray, [openings] { ++*openings; });
    auto* timer = new QTimer(&tray);
    timer->setInterval(200);
    QObject::connect(timer, &QTimer::timeout, &tray, [&tray, path, openings] {
        QSaveFile file(path);
        if (!file.open(QIODevice::WriteOnly)) return;
        file.write(visibleTexts(tray, *openings).join('\n').toUtf8() + '\n');
        file.commit();
    });
    timer->start();
}

}  // namespace quillstow::shell
