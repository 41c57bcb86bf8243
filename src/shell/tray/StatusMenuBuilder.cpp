#include "tray/StatusMenuBuilder.hpp"

#include <QActionGroup>

#include "viewmodels/Texts.hpp"
#include "views/Icons.hpp"

namespace quillstow::shell {

namespace {

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

QAction* addItem(QMenu& menu, const QString& title, std::function<void()> action) {
    QAction* item = menu.addAction(title);
    // The item owns its callback; a missing one leaves the item without effect.
    QObject::connect(item, &QAction::triggered, item, [action = std::move(action)] {
        if (action) action();
    });
    return item;
}

QAction* addCheck(QMenu& menu, const QString& title, bool checked, std::function<void()> action) {
    QAction* item = addItem(menu, title, std::move(action));
    item->setCheckable(true);
    item->setChecked(checked);
    return item;
}

void addDisabled(QMenu& menu, const QString& title) {
    menu.addAction(title)->setEnabled(false);
}

void addPairMenu(QMenu& menu, const MenuPairItem& pair, const MenuActions& actions) {
    QMenu* submenu = menu.addMenu(qt(pair.title));
    const Uuid id = pair.id;
    auto withId = [id](const MenuActions::PairAction& action) {
        return [action, id] {
            if (action) action(id);
        };
    };
    addItem(*submenu, texts::backUpNow, withId(actions.backupPairNow))->setEnabled(pair.isEnabled);
    addItem(*submenu, pair.isEnabled ? texts::pause : texts::resume,
            withId(actions.togglePausePair));
    addItem(*submenu, texts::changeDestination, withId(actions.relinkPair));
    addItem(*submenu, texts::showInFileManager, withId(actions.revealInFileManager));
    addItem(*submenu, texts::restoreFiles, withId(actions.restorePair));
    addItem(*submenu, texts::recoverDeletedFiles, withId(actions.recoverDeletedFiles));
    submenu->addSeparator();
    addItem(*submenu, texts::removeThisBackup, withId(actions.removePair))
        ->setIcon(destructiveIcon());
}

void addRecentActivity(QMenu& menu, const MenuState& state, const MenuActions& actions) {
    QMenu* submenu = menu.addMenu(texts::recentActivity);
    if (state.recentEvents.empty()) {
        addDisabled(*submenu, texts::noActivityYet);
        return;
    }
    for (const MenuEventLine& line : state.recentEvents) {
        QAction* item = submenu->addAction(qt(line.title));
        item->setEnabled(false);
        if (line.isAlarm) item->setIcon(QIcon::fromTheme("dialog-error"));
    }
    submenu->addSeparator();
    addItem(*submenu, texts::clearHistory, actions.clearHistory);
}

void addSettings(QMenu& menu, const MenuState& state, const MenuActions& actions,
                 const MenuOptions& options) {
    QMenu* submenu = menu.addMenu(texts::settings);
    QMenu* frequency = submenu->addMenu(texts::backupFrequency);
    for (BackupInterval interval : {BackupInterval::thirtyMinutes, BackupInterval::hourly,
                                    BackupInterval::fourHours, BackupInterval::manual}) {
        addCheck(*frequency, qt(texts::intervalTitle(interval)),
                 state.settings.backupInterval == interval,
                 [setInterval = actions.setBackupInterval, interval] {
                     if (setInterval) setInterval(interval);
                 });
    }
    QMenu* notifications = submenu->addMenu(texts::notifications);
    for (NotificationLevel level : {NotificationLevel::errorsOnly, NotificationLevel::dailySummary,
                                    NotificationLevel::everyBackup, NotificationLevel::nothing}) {
        addCheck(*notifications, qt(texts::notificationLevelTitle(level)),
                 state.settings.notificationLevel == level,
                 [setLevel = actions.setNotificationLevel, level] {
                     if (setLevel) setLevel(level);
                 });
    }
    submenu->addSeparator();
    addCheck(*submenu, texts::launchAtLogin, state.settings.launchAtLogin,
             actions.toggleLaunchAtLogin);
    addCheck(*submenu, texts::trashCleanupReminders, state.settings.trashReminderEnabled,
             actions.toggleTrashReminders);
    if (options.withUpdateCheck) {
        addCheck(*submenu, texts::autoCheckForUpdates, options.autoChecksForUpdates,
                 actions.toggleAutoUpdate);
        addItem(*submenu, texts::checkForUpdatesNow, actions.checkForUpdates);
    }
}

}  // namespace

void buildMenu(QMenu& menu, const MenuState& state, const MenuActions& actions,
               const MenuOptions& options) {
    // Submenus and actions are children of the menu: clearing deletes the old ones.
    for (QAction* action : menu.actions()) {
        menu.removeAction(action);
        if (action->parent() == &menu) action->deleteLater();
    }
    for (QMenu* submenu : menu.findChildren<QMenu*>(Qt::FindDirectChildrenOnly))
        submenu->deleteLater();

    // Hosts that open the menu on any click still reach the popover through the first item.
    addItem(menu, texts::openQuillstow, actions.openPopover);
    addItem(menu, texts::backUpAllNow, actions.backupAllNow);
    menu.addSeparator();
    if (state.pairs.empty()) addDisabled(menu, texts::noBackupsConfigured);
    for (const MenuPairItem& pair : state.pairs)
        addPairMenu(menu, pair, actions);
    menu.addSeparator();
    addItem(menu, texts::addFolder, actions.addFolder);
    addItem(menu, texts::fileAFinishedProject, actions.openPromote);
    menu.addSeparator();
    addRecentActivity(menu, state, actions);
    addSettings(menu, state, actions, options);
    menu.addSeparator();
    addItem(menu, texts::howQuillstowWorks, actions.openLearn);
    addItem(menu, texts::aboutQuillstow, actions.openAbout);
    addItem(menu, texts::quitQuillstow, actions.quit)->setShortcut(QKeySequence("Ctrl+Q"));
}

}  // namespace quillstow::shell
