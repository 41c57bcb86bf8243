#pragma once

// The tray application put together around the program: the tray icon and its menu, the
// popover, the small windows, and the flows that need a dialog. It starts after the program's
// settings and pairs, in this order: the view model (which observes the status of every pair),
// the popover, then the tray icon once a tray host is known; it stops the other way round
// before the program stops its pairs and saves.
//
// Main thread only.

#include <QMenu>
#include <QPointer>
#include <QSystemTrayIcon>
#include <memory>
#include <optional>

#include "app/Application.hpp"
#include "support/Tasks.hpp"
#include "tray/MenuActions.hpp"
#include "tray/PopoverController.hpp"
#include "tray/TrayHostWatch.hpp"
#include "tray/WorkspaceWatch.hpp"
#ifdef QUILLSTOW_UPDATE_CHECK
#include "app/UpdateService.hpp"
#endif
#include "viewmodels/ShellModel.hpp"

namespace quillstow::shell {

class FilingServices;
class PopoverView;

class TrayApplication final : public QObject {
    Q_OBJECT

  public:
    // `trayPatienceMs`: how long to wait for a StatusNotifierItem host before taking XEmbed.
    TrayApplication(Application& application, int trayPatienceMs = TrayHostWatch::defaultPatienceMs,
                    QObject* parent = nullptr);
    ~TrayApplication() override;

    // Waits for the tray, then shows the icon, or the popover as a window when there is none.
    // Until the first backup pair was set up, the welcome window follows 0.1 s later.
    void start();
    // Ends the observation and closes every window, before the program stops.
    void stop();

    void openPopover();
    // A left click on the icon: orders out the visible About, welcome and restore windows
    // first; only when none was visible does it toggle the popover.
    void statusItemClicked();
    void showMenu();
    void openAbout();
    void openLearn();
    // The restore and recovery windows of a pair in the settings; an unknown id opens nothing.
    void openRestore(const Uuid& id);
    void openRecovery(const Uuid& id);
    void openWelcome();
    // The smart-setup offer of a request with all four keys right; anything else is ignored.
    void openProfileSuggestion(const NotificationInfo& info);
    // "Redo Smart Setup…" of a row: the pair's source is measured off the main thread, then the
    // smart-setup window opens as after a first backup. An unknown id does nothing.
    void redoSmartSetup(const Uuid& id);

    // The add-backup window of the popover's "+": one at a time, brought forward when it is
    // already open.
    void openAddBackup();
    // "File a Finished Project…": one filing window at a time, with a fresh model each time.
    void openFiling();

    MenuActions menuActions();
    ShellModel& model() { return *model_; }
    PopoverController& popover() { return *popover_; }
    QMenu& menu() { return *menu_; }
    WorkspaceWatch& workspaceWatch() { return workspaceWatch_; }
    QSystemTrayIcon* trayIcon() const { return trayIcon_; }
    QWidget* aboutWindow() const { return about_; }
    QWidget* addBackupWindow() const { return addBackup_; }
    QWidget* filingWindow() const { return filing_; }
    QWidget* restoreWindow() const { return restore_; }
    QWidget* recoveryWindow() const { return recovery_; }
    QWidget* welcomeWindow() const { return welcome_; }
    QWidget* profileSuggestionWindow() const { return profileSuggestion_; }
#ifdef QUILLSTOW_UPDATE_CHECK
    // Made with the first menu, which tray hosts take at start-up.
    UpdateService& updater();
#endif

  private slots:
    // The server's ActionInvoked: a click on one of our notifications opens the popover.
    void onNotificationAction(uint serverId, const QString& action);
    void onScreenSaverActiveChanged(bool active);
    // The screens locking or another workspace: the popover under the icon closes.
    void closeAnchoredPopover();

  private:
    void createTrayIcon();
    void showWithoutTray();
    void rebuildMenu();
    void updateIcon();
    void listenForNotificationClicks();
    void listenForScreenLock();
    std::optional<QRect> iconGeometry() const;
    void observeRequests();
    // The one rule of the small windows: one of a kind, a visible one brought forward as it
    // is, a closed one replaced by a new one, placed under the icon where that is known.
    void showSingleton(QPointer<QWidget>& slot, const std::function<QWidget*()>& make);
    std::optional<BackupPair> findPair(const Uuid& id) const;
    void relinkFromMenu(const Uuid& id);
    void relinkFromRow(const Uuid& id);
    void relinkTo(const Uuid& id, const QString& folder);
    void removeFromMenu(const Uuid& id);
    void removeFromRow(const Uuid& id);
    void revealInFileManager(const Uuid& id);
    void toggleLaunchAtLogin();
    void setNotificationLevel(NotificationLevel level);

    Application& application_;
    SystemWallClock wallClock_;
    std::unique_ptr<ShellModel> model_;
    PopoverView* popoverView_;
    std::unique_ptr<PopoverController> popover_;
    std::unique_ptr<QMenu> menu_;
    TrayHostWatch hostWatch_;
    WorkspaceWatch workspaceWatch_;
    QSystemTrayIcon* trayIcon_ = nullptr;
    QPointer<QWidget> about_;
    QPointer<QWidget> learn_;
    QPointer<QWidget> addBackup_;
    QPointer<QWidget> filing_;
    std::unique_ptr<FilingServices> filingServices_;  // made with the first filing window
    QPointer<QWidget> welcome_;
    QPointer<QWidget> restore_;
    QPointer<QWidget> recovery_;
    QPointer<QWidget> profileSuggestion_;
    DelayedWork welcomeDue_;
    std::vector<Subscription> requests_;
#ifdef QUILLSTOW_UPDATE_CHECK
    void remindOfRelease(const Release& release);
    void reportUserCheck(UpdateService::Outcome outcome, const QString& detail);
    GentleReminderDelegate reminderDelegate_;
    std::unique_ptr<UpdateService> updater_;
    QString releasePage_;
#endif
    bool menuRebuildPending_ = false;
    // What the work of other threads reaches this object through: gone once it is.
    std::shared_ptr<int> aliveToken_ = std::make_shared<int>(0);
    TaskRunner smartSetupTasks_;  // after what its tasks use: it waits for them
    const Logger log_{"app"};
};

}  // namespace quillstow::shell
