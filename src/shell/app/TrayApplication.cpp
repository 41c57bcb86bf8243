#include "app/TrayApplication.hpp"

#include <QApplication>
#include <QCursor>
#include <QDBusConnection>
#include <QDesktopServices>
#include <QFileDialog>
#include <QMessageBox>
#include <QScreen>
#include <QTimer>

#include "app/DesktopServices.hpp"
#include "app/FilingServices.hpp"
#include "environment/CloudSyncDetector.hpp"
#include "shell/views/AddBackupWindow.hpp"
#include "shell/views/DeletedFilesWindow.hpp"
#include "shell/views/ProfileSuggestionWindow.hpp"
#include "shell/views/RestoreWindow.hpp"
#include "shell/views/WelcomeWindow.hpp"
#include "tray/PopoverPlacement.hpp"
#include "tray/StatusMenuBuilder.hpp"
#include "viewmodels/Texts.hpp"
#include "views/FilingWindow.hpp"
#include "views/Icons.hpp"
#include "views/InfoWindows.hpp"
#include "views/PopoverView.hpp"

namespace quillstow::shell {

namespace {

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

// Posted by a pair's "Restore Files…", with the pair's id as "object".
constexpr const char* showRestoreNotification = "quillstowShowRestore";
// Posted by the menu's "Add Folder…". Nothing observes it: that item closes the popover and
// nothing more, and the sheet opens from the popover's "+".
constexpr const char* showAddBackupNotification = "quillstowShowAddBackup";

// Where removable drives appear; the row's folder dialog starts there when it exists.
QString drivesFolder() {
    for (const char* folder : {"/media", "/run/media", "/mnt"})
        if (std::filesystem::is_directory(folder)) return folder;
    return QDir::homePath();
}

}  // namespace

TrayApplication::TrayApplication(Application& application, int trayPatienceMs, QObject* parent)
    : QObject(parent),
      application_(application),
      model_(std::make_unique<ShellModel>(application.statusManager(), wallClock_,
                                          desktopPrefersReducedMotion())),
      popoverView_(new PopoverView(*model_)),
      popover_(std::make_unique<PopoverController>(popoverView_, PopoverController::Style::window)),
      menu_(std::make_unique<QMenu>()),
      hostWatch_(trayPatienceMs)
#ifdef QUILLSTOW_UPDATE_CHECK
      ,
      reminderDelegate_(application.notificationCenter())
#endif
{
    connect(popoverView_, &PopoverView::addBackupRequested, this, &TrayApplication::openAddBackup);
    connect(popoverView_, &PopoverView::gearTapped, this, [this] {
        popover_->hide();
        QTimer::singleShot(0, this, &TrayApplication::showMenu);
    });
    connect(popoverView_, &PopoverView::relinkRequested, this, &TrayApplication::relinkFromRow);
    connect(popoverView_, &PopoverView::removeRequested, this, &TrayApplication::removeFromRow);
    connect(popoverView_, &PopoverView::revealRequested, this,
            &TrayApplication::revealInFileManager);
    connect(popoverView_, &PopoverView::restoreRequested, this, [this](const Uuid& id) {
        application_.notificationCenter().post(showRestoreNotification, {{"object", id}});
    });
    connect(popoverView_, &PopoverView::recoverRequested, this, &TrayApplication::openRecovery);
    connect(popoverView_, &PopoverView::redoSmartSetupRequested, this,
            &TrayApplication::redoSmartSetup);
    connect(model_.get(), &ShellModel::changed, this, [this] {
        // Coalesced: a pass changes many things at once.
        if (std::exchange(menuRebuildPending_, true)) return;
        QTimer::singleShot(0, this, [this] {
            menuRebuildPending_ = false;
            rebuildMenu();
            if (trayIcon_) trayIcon_->setToolTip(qt(model_->tooltip()));
        });
    });
    connect(model_.get(), &ShellModel::overallStatusChanged, this, &TrayApplication::updateIcon);
    connect(menu_.get(), &QMenu::aboutToShow, this, [this] {
        rebuildMenu();
        if (popover_) popover_->setMenuShowing(true);
    });
    connect(menu_.get(), &QMenu::aboutToHide, this, [this] {
        if (popover_) popover_->setMenuShowing(false);
    });
    connect(&workspaceWatch_, &WorkspaceWatch::switched, this,
            &TrayApplication::closeAnchoredPopover);
    connect(&hostWatch_, &TrayHostWatch::decided, this, [this](bool hasTray) {
        if (hasTray)
            createTrayIcon();
        else
            showWithoutTray();
    });
    rebuildMenu();
    listenForNotificationClicks();
    listenForScreenLock();
    observeRequests();
}

void TrayApplication::observeRequests() {
    NotificationCenter& center = application_.notificationCenter();
    requests_.push_back(center.observe(showRestoreNotification, [this](const auto& info) {
        const auto object = info.find("object");
        if (object == info.end()) return;
        if (const Uuid* id = std::get_if<Uuid>(&object->second)) openRestore(*id);
    }));
    requests_.push_back(center.observe(profileSuggestedNotificationName,
                                       [this](const auto& info) { openProfileSuggestion(info); }));
}

TrayApplication::~TrayApplication() {
    stop();
}

void TrayApplication::start() {
    hostWatch_.start();
    if (!application_.configStore().appConfig().hasCompletedOnboarding)
        welcomeDue_ = application_.mainQueue().postDelayed(0.1, [this] { openWelcome(); });
    // The setting wins over an entry removed by hand, as at every start.
    if (application_.configStore().appConfig().launchAtLogin &&
        !std::filesystem::exists(autostartEntryPath())) {
        try {
            setLaunchAtLogin(true, QCoreApplication::applicationFilePath().toStdString());
        } catch (const Failure& failure) {
            log_.error("Could not register launch-at-login: %{public}s",
                       failure.error().description);
        }
    }
}

void TrayApplication::stop() {
    if (!model_) return;
    requests_.clear();
    welcomeDue_.cancel();
#ifdef QUILLSTOW_UPDATE_CHECK
    updater_.reset();
#endif
    if (trayIcon_) trayIcon_->hide();
    // A filing under way stops now, while the rest shuts down; it is waited for at the end.
    if (filingServices_) filingServices_->stopFilings();
    smartSetupTasks_.cancelAll();
    smartSetupTasks_.waitUntilIdle();
    for (QPointer<QWidget>* window : {&about_, &addBackup_, &filing_, &learn_, &restore_,
                                      &recovery_, &welcome_, &profileSuggestion_})
        delete window->data();
    popover_.reset();
    model_.reset();
}

void TrayApplication::createTrayIcon() {
    popover_->setStyle(PopoverController::styleForPlatform(true));
    trayIcon_ = new QSystemTrayIcon(this);
    trayIcon_->setContextMenu(menu_.get());
    updateIcon();
    trayIcon_->setToolTip(qt(model_->tooltip()));
    connect(trayIcon_, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason != QSystemTrayIcon::Trigger) return;
                if (QGuiApplication::keyboardModifiers() & Qt::ControlModifier)
                    showMenu();
                else
                    statusItemClicked();
            });
    trayIcon_->show();
    log_.info("Tray icon shown");
}

void TrayApplication::showWithoutTray() {
    popover_->setStyle(PopoverController::Style::window);
    popover_->show(std::nullopt);
    try {
        application_.desktopNotifications().deliver(
            {"no-system-tray", texts::noTrayTitle, texts::noTrayBody});
    } catch (const Failure& failure) {
        log_.error("Failed to deliver notification: %{public}s", failure.error().description);
    }
}

void TrayApplication::updateIcon() {
    if (!trayIcon_ || !model_) return;
    trayIcon_->setIcon(themedSymbolIcon(model_->iconName()));
}

void TrayApplication::rebuildMenu() {
    if (!model_) return;
    MenuOptions options;
#ifdef QUILLSTOW_UPDATE_CHECK
    options.withUpdateCheck = true;
    options.autoChecksForUpdates = updater().automaticallyChecksForUpdates();
#endif
    buildMenu(*menu_, model_->menu(), menuActions(), options);
}

#ifdef QUILLSTOW_UPDATE_CHECK
UpdateService& TrayApplication::updater() {
    if (!updater_) {
        updater_ = std::make_unique<UpdateService>(
            UpdateService::Settings{QUrl(QUILLSTOW_UPDATE_FEED_URL), QUILLSTOW_VERSION},
            application_.userDefaults(), application_.mainQueue(), wallClock_, reminderDelegate_,
            [this](const Release& release) { remindOfRelease(release); });
        connect(updater_.get(), &UpdateService::checked, this,
                [this](UpdateService::Outcome outcome, const QString& detail, bool byUser) {
                    if (byUser) reportUserCheck(outcome, detail);
                });
    }
    return *updater_;
}

void TrayApplication::remindOfRelease(const Release& release) {
    releasePage_ = qt(release.releasePage);
    try {
        application_.desktopNotifications().deliver(
            {texts::updateNotificationId, texts::updateAvailableTitle(release.version),
             texts::updateAvailableBody, texts::openReleasePageKey, texts::openReleasePage});
    } catch (const Failure& failure) {
        log_.error("Failed to deliver notification: %{public}s", failure.error().description);
    }
}

void TrayApplication::reportUserCheck(UpdateService::Outcome outcome, const QString& detail) {
    // The user asked: an answer either way. A newer release was told by its notification.
    if (outcome == UpdateService::Outcome::newer) return;
    const bool failed = outcome == UpdateService::Outcome::failed;
    auto* alert = new QMessageBox(failed ? QMessageBox::Warning : QMessageBox::Information,
                                  failed ? texts::updateCheckFailed : texts::upToDate,
                                  failed ? detail : qt(texts::upToDateDetail(QUILLSTOW_VERSION)));
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->open();
}
#endif

void TrayApplication::listenForScreenLock() {
    // The screen saver starting or the screens going to sleep close the popover.
    for (const char* service : {"org.freedesktop.ScreenSaver", "org.gnome.ScreenSaver"}) {
        const QString path = QString("/") + QString(service).replace('.', '/');
        QDBusConnection::sessionBus().connect("", path, service, "ActiveChanged", this,
                                              SLOT(onScreenSaverActiveChanged(bool)));
    }
}

void TrayApplication::onScreenSaverActiveChanged(bool active) {
    if (active) closeAnchoredPopover();
}

void TrayApplication::closeAnchoredPopover() {
    if (popover_ && popover_->style() == PopoverController::Style::anchored) popover_->hide();
}

void TrayApplication::listenForNotificationClicks() {
    // Servers broadcast ActionInvoked; only the ids of our own notifications count.
    QDBusConnection::sessionBus().connect("", "/org/freedesktop/Notifications",
                                          "org.freedesktop.Notifications", "ActionInvoked", this,
                                          SLOT(onNotificationAction(uint, QString)));
}

void TrayApplication::onNotificationAction(uint serverId, const QString& action) {
    if (!application_.desktopNotifications().hasShown(serverId)) return;
    if (action == "default") openPopover();
#ifdef QUILLSTOW_UPDATE_CHECK
    if (action == texts::openReleasePageKey && !releasePage_.isEmpty())
        QDesktopServices::openUrl(QUrl(releasePage_));
#endif
}

std::optional<QRect> TrayApplication::iconGeometry() const {
    if (!trayIcon_) return std::nullopt;
    const QRect geometry = trayIcon_->geometry();
    if (geometry.isEmpty()) return std::nullopt;
    return geometry;
}

void TrayApplication::openPopover() {
    if (popover_) popover_->show(iconGeometry());
}

void TrayApplication::statusItemClicked() {
    if (!popover_) return;
    bool clearedAWindow = false;
    for (QWidget* window : {about_.data(), welcome_.data(), restore_.data()}) {
        if (window && window->isVisible()) {
            window->hide();
            clearedAWindow = true;
        }
    }
    if (popover_->isShown())
        popover_->hide();
    else if (!clearedAWindow)
        openPopover();
}

void TrayApplication::showMenu() {
    rebuildMenu();
    menu_->popup(QCursor::pos());
}

void TrayApplication::openAddBackup() {
    showSingleton(addBackup_, [this] {
        StatusManager& manager = application_.statusManager();
        auto* window = new AddBackupWindow(manager, manager.volumeMonitor());
        // A window serves one run of the flow.
        window->setAttribute(Qt::WA_DeleteOnClose);
        return window;
    });
}

void TrayApplication::openFiling() {
    showSingleton(filing_, [this] {
        if (!filingServices_) filingServices_ = std::make_unique<FilingServices>();
        auto* window = new FilingWindow(filingServices_->makeModel());
        // A window serves one run of the flow.
        window->setAttribute(Qt::WA_DeleteOnClose);
        return window;
    });
}

void TrayApplication::showSingleton(QPointer<QWidget>& slot,
                                    const std::function<QWidget*()>& make) {
    closeAnchoredPopover();
    if (slot && slot->isVisible()) {
        slot->raise();
        slot->activateWindow();
        return;
    }
    // A window closed or ordered out is kept until a new one of its kind takes its place.
    if (slot) slot->deleteLater();
    slot = make();
    if (!slot) return;
    if (const auto icon = iconGeometry()) {
        if (QScreen* screen = QGuiApplication::screenAt(icon->center()))
            slot->move(
                placePopover(icon, QCursor::pos(), slot->size(), screen->availableGeometry()));
    } else if (QScreen* screen = QGuiApplication::primaryScreen()) {
        // Where the icon's place is unknown, the window stands in the middle of the screen.
        QRect frame(QPoint(), slot->size());
        frame.moveCenter(screen->availableGeometry().center());
        slot->move(frame.topLeft());
    }
    slot->show();
    slot->raise();
    slot->activateWindow();
}

void TrayApplication::openAbout() {
    showSingleton(about_, [] { return makeAboutWindow(QUILLSTOW_VERSION); });
}

void TrayApplication::openLearn() {
    showSingleton(learn_, [] { return makeLearnWindow(); });
}

void TrayApplication::openRestore(const Uuid& id) {
    const auto pair = findPair(id);
    if (!pair) return;
    showSingleton(restore_, [&pair] { return new RestoreWindow(*pair); });
}

void TrayApplication::openRecovery(const Uuid& id) {
    const auto pair = findPair(id);
    if (!pair) return;
    showSingleton(recovery_, [this, &pair] {
        return new DeletedFilesWindow(*pair, application_.configStore().pairs());
    });
}

void TrayApplication::openWelcome() {
    showSingleton(welcome_, [this] {
        StatusManager& manager = application_.statusManager();
        return new WelcomeWindow(manager, manager.volumeMonitor());
    });
}

void TrayApplication::openProfileSuggestion(const NotificationInfo& info) {
    const auto suggestion = profileSuggestionOf(info);
    if (!suggestion) return;
    showSingleton(profileSuggestion_, [this, &suggestion] {
        return new ProfileSuggestionWindow(*suggestion, [this, accepted = *suggestion] {
            acceptSuggestion(application_.statusManager().configStore(), accepted);
        });
    });
}

std::optional<BackupPair> TrayApplication::findPair(const Uuid& id) const {
    for (const BackupPair& pair : application_.configStore().pairs())
        if (pair.id == id) return pair;
    return std::nullopt;
}

void TrayApplication::relinkTo(const Uuid& id, const QString& folder) {
    if (folder.isEmpty() || !model_) return;
    if (const auto refused = model_->relinkPair(id, folder.toStdString())) {
        QMessageBox::warning(popoverView_, texts::couldNotChangeDestination, qt(*refused));
    }
}

void TrayApplication::relinkFromMenu(const Uuid& id) {
    const auto pair = findPair(id);
    if (!pair) return;
    QFileDialog dialog(nullptr, qt(texts::chooseWhereMessage(pair->name)));
    dialog.setObjectName("relinkPanel");
    dialog.setFileMode(QFileDialog::Directory);
    // The menu's panel picks an existing folder; only the row's may make a new one.
    dialog.setOptions(QFileDialog::ShowDirsOnly | QFileDialog::ReadOnly);
    dialog.setLabelText(QFileDialog::Accept, texts::chooseNewDestination);
    if (dialog.exec() == QDialog::Accepted && !dialog.selectedFiles().isEmpty())
        relinkTo(id, dialog.selectedFiles().first());
}

void TrayApplication::relinkFromRow(const Uuid& id) {
    const auto pair = findPair(id);
    if (!pair) return;
    QFileDialog dialog(popoverView_, qt(texts::chooseWhereMessage(pair->name)), drivesFolder());
    dialog.setObjectName("relinkPanel");
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    dialog.setLabelText(QFileDialog::Accept, texts::chooseDestination);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return;
    const QString folder = dialog.selectedFiles().first();
    if (const auto provider = CloudSyncDetector::provider(folder.toStdString())) {
        QMessageBox alert(
            QMessageBox::Information,
            qt(texts::syncedWithMessage(std::string(CloudSyncDetector::nameOf(*provider)))),
            qt(CloudSyncDetector::warning(*provider)), QMessageBox::NoButton, popoverView_);
        alert.addButton(texts::chooseAnotherFolder, QMessageBox::RejectRole);
        QAbstractButton* useAnyway = alert.addButton(texts::useAnyway, QMessageBox::AcceptRole);
        alert.exec();
        if (alert.clickedButton() != useAnyway) return;
    }
    relinkTo(id, folder);
}

void TrayApplication::removeFromMenu(const Uuid& id) {
    const auto pair = findPair(id);
    if (!pair || !model_) return;
    QMessageBox alert(QMessageBox::Information, qt(texts::stopBackingUpMessage(pair->name)),
                      texts::existingFilesStay);
    QAbstractButton* stop = alert.addButton(texts::stopBackup, QMessageBox::AcceptRole);
    alert.addButton(texts::cancel, QMessageBox::RejectRole);
    alert.exec();
    if (alert.clickedButton() == stop) model_->removePair(id);
}

void TrayApplication::removeFromRow(const Uuid& id) {
    const auto pair = findPair(id);
    if (!pair || !model_) return;
    QMessageBox alert(QMessageBox::Information, qt(texts::removeMessage(pair->name)),
                      texts::removeInformative, QMessageBox::NoButton, popoverView_);
    QAbstractButton* remove = alert.addButton(texts::remove, QMessageBox::DestructiveRole);
    alert.addButton(texts::cancel, QMessageBox::RejectRole);
    alert.exec();
    if (alert.clickedButton() == remove) model_->removePair(id);
}

void TrayApplication::revealInFileManager(const Uuid& id) {
    if (const auto pair = findPair(id)) showFolderInFileManager(pair->destinationURL);
}

void TrayApplication::toggleLaunchAtLogin() {
    ConfigStore& store = application_.configStore();
    AppConfig config = store.appConfig();
    config.launchAtLogin = !config.launchAtLogin;
    store.setAppConfig(config);
    store.save();
    try {
        setLaunchAtLogin(config.launchAtLogin,
                         QCoreApplication::applicationFilePath().toStdString());
    } catch (const Failure& failure) {
        log_.error("Launch-at-login toggle error: %{public}s", failure.error().description);
    }
}

void TrayApplication::setNotificationLevel(NotificationLevel level) {
    ConfigStore& store = application_.configStore();
    AppConfig config = store.appConfig();
    const NotificationLevel before = config.notificationLevel;
    config.notificationLevel = level;
    store.setAppConfig(config);
    store.save();
    if (asksNotificationPermission(before, level))
        application_.notificationManager().requestPermission();
}

void TrayApplication::redoSmartSetup(const Uuid& id) {
    const auto pair = findPair(id);
    if (!pair) return;
    // The whole source is read on a task, handed back to the main thread, where the request
    // opens the window as the engine's own would. The quit stops the reading and waits for it.
    smartSetupTasks_.start(
        [this, pair = *pair, alive = std::weak_ptr<int>(aliveToken_)](std::stop_token stop) {
            const ProfileSuggestion suggestion = measureSuggestion(pair, stop);
            if (stop.stop_requested()) return;
            QMetaObject::invokeMethod(
                qApp,
                [this, alive, suggestion] {
                    if (alive.lock())
                        application_.notificationCenter().post(profileSuggestedNotificationName,
                                                               requestOf(suggestion));
                },
                Qt::QueuedConnection);
        });
}

MenuActions TrayApplication::menuActions() {
    StatusManager& manager = application_.statusManager();
    ConfigStore& store = application_.configStore();
    return MenuActions{
        .openPopover = [this] { openPopover(); },
        .backupAllNow = [&manager] { manager.backupAllNow(); },
        .backupPairNow = [&manager](const Uuid& id) { manager.backupPairNow(id); },
        .togglePausePair = [&manager](const Uuid& id) { manager.togglePausePair(id); },
        .relinkPair = [this](const Uuid& id) { relinkFromMenu(id); },
        .revealInFileManager = [this](const Uuid& id) { revealInFileManager(id); },
        .restorePair =
            [this](const Uuid& id) {
                application_.notificationCenter().post(showRestoreNotification, {{"object", id}});
            },
        .recoverDeletedFiles = [this](const Uuid& id) { openRecovery(id); },
        .removePair = [this](const Uuid& id) { removeFromMenu(id); },
        .addFolder =
            [this] {
                if (popover_) popover_->hide();
                application_.notificationCenter().post(showAddBackupNotification, {});
            },
        .openPromote = [this] { openFiling(); },
        .setBackupInterval =
            [&store, &manager](BackupInterval interval) {
                AppConfig config = store.appConfig();
                config.backupInterval = interval;
                store.setAppConfig(config);
                manager.rescheduleTimer();
            },
        .setNotificationLevel = [this](NotificationLevel level) { setNotificationLevel(level); },
        .toggleLaunchAtLogin = [this] { toggleLaunchAtLogin(); },
        .toggleTrashReminders =
            [&store] {
                AppConfig config = store.appConfig();
                config.trashReminderEnabled = !config.trashReminderEnabled;
                store.setAppConfig(config);
                store.save();
            },
#ifdef QUILLSTOW_UPDATE_CHECK
        .toggleAutoUpdate =
            [this] {
                updater().setAutomaticallyChecksForUpdates(
                    !updater().automaticallyChecksForUpdates());
            },
        .checkForUpdates = [this] { updater().checkForUpdates(); },
#else
        .toggleAutoUpdate = nullptr,
        .checkForUpdates = nullptr,
#endif
        .clearHistory =
            [&store] {
                store.setEvents({});
                store.save();
            },
        .openLearn = [this] { openLearn(); },
        .openAbout = [this] { openAbout(); },
        .quit = [] { QCoreApplication::quit(); },
    };
}

}  // namespace quillstow::shell
