// The tray application on the offscreen platform: the icon and tooltip of every status, the
// click rule with the About window open, the popover's rows following a real engine in virtual
// time, Pause All and Resume All, the menu's items and marks, and where the popover goes.

#include <xcb/xcb.h>

#include <QApplication>
#include <QDBusConnection>
#include <QFileDialog>
#include <QMenu>
#include <QPushButton>
#include <QToolButton>
#include <QtTest>
#include <filesystem>
#include <fstream>

#include "../control/EngineHarness.hpp"
#include "PrivateBus.hpp"
#include "Screenshots.hpp"
#include "TestTree.hpp"
#include "app/DesktopServices.hpp"
#include "app/QtMainQueue.hpp"
#include "app/SingleInstance.hpp"
#include "app/TrayApplication.hpp"
#include "shell/viewmodels/AddBackupModel.hpp"
#include "tray/PopoverPlacement.hpp"
#include "tray/StatusMenuBuilder.hpp"
#include "tray/WorkspaceWatch.hpp"
#include "viewmodels/ProfileSuggestion.hpp"
#include "viewmodels/ShellModel.hpp"
#include "viewmodels/Texts.hpp"
#include "views/FilingWindow.hpp"
#include "views/Icons.hpp"
#include "views/PairRowView.hpp"
#include "views/PopoverView.hpp"

using namespace quillstow;
using namespace quillstow::shell;
using Case = BackupStatus::Case;

using testing::saveShot;

namespace {

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

// Every action of a menu and its submenus by title, for clicking through it.
QAction* findAction(QMenu& menu, const QString& title) {
    for (QAction* action : menu.actions()) {
        if (action->text() == title) return action;
        if (action->menu())
            if (QAction* inner = findAction(*action->menu(), title)) return inner;
    }
    return nullptr;
}

// Whether most of an icon's coloured pixels are red: the mark of a destructive item.
bool isMostlyRed(const QIcon& icon) {
    const QImage image = icon.pixmap(16, 16).toImage();
    int red = 0, other = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor colour = image.pixelColor(x, y);
            if (colour.alpha() < 128 || colour.saturation() < 80) continue;
            (colour.hue() < 20 || colour.hue() > 340 ? red : other)++;
        }
    }
    return red > 10 && red > 4 * other;
}

// A status manager over real folders in virtual time, and the shell's model over it.
struct ShellHarness {
    testing::EngineHarness h;
    std::unique_ptr<StatusManager> manager;
    std::unique_ptr<ShellModel> model;

    void start() {
        manager = std::make_unique<StatusManager>(h.store, *h.services, h.queue, h.notifier);
        model = std::make_unique<ShellModel>(*manager, h.wallClock, false);
    }
    ~ShellHarness() {
        model.reset();
        if (manager) manager->stopAll();
        h.settle();
        manager.reset();
    }
    BackupEngine& engine(const Uuid& id) { return *manager->engines().at(id); }
};

// A tray application over a real program with a pair of each name, as the user adds them.
struct TrayHarness {
    testing::TemporaryFolder settings;
    testing::TemporaryFolder folders;
    QtMainQueue mainQueue;
    Application application{mainQueue, settings.path()};
    std::vector<BackupPair> pairs;
    std::unique_ptr<TrayApplication> tray;

    explicit TrayHarness(std::initializer_list<const char*> names = {"Work"}) {
        for (const char* name : names) {
            testing::writeFile(folders.path() / name / "notes.txt", std::string(1000, 'x'));
            pairs.push_back(newPairOf(folders.path() / name, folders.path() / "Drive", std::nullopt,
                                      SystemWallClock().now()));
            if (application.statusManager().addPair(pairs.back())) qFatal("the pair was refused");
        }
        tray = std::make_unique<TrayApplication>(application, 0);
    }
    ~TrayHarness() {
        tray->stop();
        application.stopEverything();
    }
    PopoverView& view() { return *qobject_cast<PopoverView*>(tray->popover().window()); }
};

}  // namespace

class ShellTest : public QObject {
    Q_OBJECT

  private slots:
    void placesThePopover_data();
    void placesThePopover();
    void eachStatusShowsItsIconMarkAndRow_data();
    void eachStatusShowsItsIconMarkAndRow();
    void timeAgoLadders_data();
    void timeAgoLadders();
    void aClickWithTheAboutWindowOpenOnlyClosesIt();
    void theMenuOpensOneFilingWindowWithAFreshFlowEachTime();
    void aRestoreRequestOpensTheWindowOfThatPairOnly();
    void thePopoverHidesWhenTheFocusLeavesItButNotForItsOwnDialogs();
    void launchAtLoginWritesAndRemovesTheAutostartEntry();
    void popoverRowsFollowAnEngineThroughAPassAndAnError();
    void pauseAllFlipsToResumeAllAndBack();
    void theEmptyStateAsksForAFirstFolder();
    void everyMenuItemCallsItsActionAndTheMarksFollowTheState();
    void theMenuListsTheFiveNewestEventsAndSaysWhenAPairIsGone();
    void onlyTheRowsRelinkDialogCanCreateFolders();
    void theRowsMenuRedoesTheSmartSetupAndMarksRemoveInRed();
    void aRightClickKeepsThePopoverOpenAndAnotherWorkspaceClosesIt();
    void aWorkspaceSwitchIsAChangeOfTheCurrentDesktop();
    void onlyNotificationsComingOnAskForPermission();
    void aSecondStartActivatesTheFirstOverTheLocalSocket();
    void aSecondStartActivatesTheFirstOverTheSessionBus();
};

void ShellTest::placesThePopover_data() {
    QTest::addColumn<std::optional<QRect>>("icon");
    QTest::addColumn<QPoint>("cursor");
    QTest::addColumn<QRect>("available");
    QTest::addColumn<QPoint>("expected");
    const QRect screen(0, 28, 1280, 772);  // a panel of 28 at the top
    const auto row = [](const char* name, std::optional<QRect> icon, QPoint cursor, QRect available,
                        QPoint expected) {
        QTest::newRow(name) << icon << cursor << available << expected;
    };
    row("centred under a known icon", QRect(600, 2, 24, 24), {10, 10}, screen, {462, 30});
    row("icon unknown: under the pointer", std::nullopt, {700, 14}, screen, {550, 28});
    row("off the right edge moves left", QRect(1250, 2, 24, 24), {}, screen, {980, 30});
    row("off the left edge moves right", QRect(0, 2, 24, 24), {}, screen, {0, 30});
    row("panel at the bottom: above the icon", QRect(600, 776, 24, 24), {}, {0, 0, 1280, 772},
        {462, 412});
    row("below a short screen: moved up onto it", QRect(600, 200, 24, 24), {}, {0, 0, 1280, 500},
        {462, 0});
}

void ShellTest::placesThePopover() {
    QFETCH(std::optional<QRect>, icon);
    QFETCH(QPoint, cursor);
    QFETCH(QRect, available);
    QFETCH(QPoint, expected);
    QCOMPARE(placePopover(icon, cursor, QSize(300, 360), available), expected);
}

// The status of one pair as the tray, the menu and the popover row show it.
void ShellTest::eachStatusShowsItsIconMarkAndRow_data() {
    QTest::addColumn<QString>("status");
    QTest::addColumn<int>("lastBackupAgo");  // seconds; -1: never backed up
    QTest::addColumn<QString>("icon");
    QTest::addColumn<QString>("mark");
    QTest::addColumn<QString>("row");
    QTest::addColumn<bool>("offersDetail");
    QTest::addColumn<bool>("working");
    const auto row = [](const char* name, QString status, int ago, QString icon, QString mark,
                        QString text, bool offersDetail, bool working) {
        QTest::newRow(name) << status << ago << icon + "-symbolic" << mark << text << offersDetail
                            << working;
    };
    const QString drive = "externaldrive.", done = drive + "badge.checkmark";
    const QString busy = "arrow.triangle.2.circlepath";
    row("idle, never backed up", "idle", -1, done, "●", "Up to date", false, false);
    row("idle, an hour ago", "idle", 3600, done, "●", "✓ 1h ago", false, false);
    row("completed, no date yet", "completed", -1, done, "●", "✓ Done", false, false);
    row("completed a minute ago", "completed", 60, done, "●", "✓ 1m ago", false, false);
    row("syncing at 0.999", "syncing", -1, busy, "↑", "↑ 99%", false, true);
    row("scanning", "scanning", -1, busy, "↑", "Scanning…", false, true);
    row("queued", "queued", -1, busy, "◷", "Queued", false, true);
    row("error", "error", -1, drive + "badge.exclamationmark", "⚠", "⚠ Error", true, false);
    row("unreachable", "unreachable", -1, drive + "trianglebadge.exclamationmark", "⚠",
        "Reconnecting…", true, false);
    row("paused", "paused", -1, drive + "badge.minus", "○", "Paused", false, false);
}

void ShellTest::eachStatusShowsItsIconMarkAndRow() {
    QFETCH(QString, status);
    QFETCH(int, lastBackupAgo);
    QFETCH(QString, icon);
    QFETCH(QString, mark);
    QFETCH(QString, row);
    QFETCH(bool, offersDetail);
    QFETCH(bool, working);
    ShellHarness s;
    BackupPair pair = s.h.makePair("Work");
    pair.isEnabled = false;  // stays paused: the test sets the status
    if (lastBackupAgo >= 0)
        pair.lastBackupAt = s.h.wallClock.now() - std::chrono::seconds(lastBackupAgo);
    s.h.store->updatePair(pair);
    s.start();
    QSignalSpy iconChanges(s.model.get(), &ShellModel::overallStatusChanged);
    const std::map<QString, BackupStatus> statuses{
        {"idle", BackupStatus::idle()},
        {"completed", BackupStatus::completed(3, 1.5)},
        {"syncing", BackupStatus::syncing(0.999, "a.txt")},
        {"scanning", BackupStatus::scanning()},
        {"queued", BackupStatus::queued()},
        {"error", BackupStatus::error(BackupError::timedOut())},
        {"unreachable", BackupStatus::destinationUnreachable()},
        {"paused", BackupStatus::paused()},
    };
    s.engine(pair.id).setStatus(statuses.at(status));
    QCOMPARE(qt(s.model->iconName()), icon);
    QCOMPARE(s.model->tooltip(), s.manager->statusText());
    QVERIFY(!themedSymbolIcon(s.model->iconName()).pixmap(22, 22).isNull());
    QCOMPARE(qt(s.model->menu().pairs.at(0).title), mark + "  Work");
    const PairRowState shown = s.model->popover().rows.at(0);
    QCOMPARE(qt(shown.statusText), row);
    QCOMPARE(shown.offersErrorDetail, offersDetail);
    QCOMPARE(shown.isWorking, working);
    // The icon is set again only when the one status really changes.
    const int changes = status == "paused" ? 0 : 1;
    QCOMPARE(iconChanges.count(), changes);
    s.engine(pair.id).setStatus(statuses.at(status));
    QCOMPARE(iconChanges.count(), changes);
}

void ShellTest::timeAgoLadders_data() {
    QTest::addColumn<double>("seconds");
    QTest::addColumn<QString>("shortText");
    QTest::addColumn<QString>("abbreviated");
    const auto row = [](const char* name, double seconds, QString shortText, QString abbreviated) {
        QTest::newRow(name) << seconds << shortText << abbreviated;
    };
    constexpr double day = 86400;
    row("now", 0, "Just now", "0 sec. ago");
    row("59 seconds", 59, "Just now", "59 sec. ago");
    row("60 seconds", 60, "1m ago", "1 min. ago");
    row("just under an hour", 3599.9, "59m ago", "59 min. ago");
    row("an hour", 3600, "1h ago", "1 hr. ago");
    row("just under a day", day - 1, "23h ago", "23 hr. ago");
    row("a day", day, "1d ago", "1 day ago");
    row("two days", 2 * day, "2d ago", "2 days ago");
    row("just under a week", 7 * day - 1, "6d ago", "6 days ago");
    row("a week", 7 * day, "7d ago", "1 wk. ago");
    row("30 days: still weeks", 30 * day, "30d ago", "4 wk. ago");
    row("31 days: a month", 31 * day, "31d ago", "1 mo. ago");
    row("a day short of a year", 364 * day, "364d ago", "11 mo. ago");
    row("a year", 365 * day, "365d ago", "1 yr. ago");
    row("three years", 3 * 365 * day, "1095d ago", "3 yr. ago");
}

void ShellTest::timeAgoLadders() {
    QFETCH(double, seconds);
    QFETCH(QString, shortText);
    QFETCH(QString, abbreviated);
    QCOMPARE(qt(texts::shortTimeAgo(seconds)), shortText);
    QCOMPARE(qt(texts::abbreviatedTimeAgo(seconds)), abbreviated);
}

void ShellTest::aClickWithTheAboutWindowOpenOnlyClosesIt() {
    TrayHarness t({});
    TrayApplication& tray = *t.tray;
    tray.openAbout();
    QVERIFY(tray.aboutWindow() && tray.aboutWindow()->isVisible());
    tray.statusItemClicked();
    QVERIFY(!tray.aboutWindow()->isVisible());
    QVERIFY(!tray.popover().isShown());
    tray.statusItemClicked();
    QVERIFY(tray.popover().isShown());
    tray.statusItemClicked();
    QVERIFY(!tray.popover().isShown());

    // The menu's "Add Folder…" closes the popover and posts its request, which nothing
    // observes; the popover's "+" opens one add-backup window.
    tray.statusItemClicked();
    int requests = 0;
    const Subscription observer = t.application.notificationCenter().observe(
        "quillstowShowAddBackup", [&requests](const NotificationInfo&) { ++requests; });
    tray.menuActions().addFolder();
    QCOMPARE(requests, 1);
    QVERIFY(!tray.popover().isShown());
    QVERIFY(!tray.addBackupWindow());
    auto* plus = t.view().findChild<QToolButton*>("Add backup");
    plus->click();
    QWidget* addBackup = tray.addBackupWindow();
    QVERIFY(addBackup && addBackup->isVisible());
    plus->click();
    QCOMPARE(tray.addBackupWindow(), addBackup);
    addBackup->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!tray.addBackupWindow());
}

void ShellTest::theMenuOpensOneFilingWindowWithAFreshFlowEachTime() {
    TrayHarness t({});
    TrayApplication& tray = *t.tray;
    tray.menuActions().openPromote();
    auto* filing = qobject_cast<FilingWindow*>(tray.filingWindow());
    QVERIFY(filing && filing->isVisible());
    // Typed into and asked for again: the same window, as it stands.
    filing->model().chooseArchive(t.folders.path());
    tray.menuActions().openPromote();
    QCOMPARE(tray.filingWindow(), filing);
    QVERIFY(filing->model().archiveRoot());
    // The icon's click clears away only the About, welcome and restore windows.
    tray.statusItemClicked();
    QVERIFY(filing->isVisible());
    QVERIFY(tray.popover().isShown());

    filing->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!tray.filingWindow());
    tray.menuActions().openPromote();
    filing = qobject_cast<FilingWindow*>(tray.filingWindow());
    QVERIFY(filing && filing->isVisible());
    QVERIFY2(!filing->model().archiveRoot(), "a window opened again starts a new flow");
}

void ShellTest::aRestoreRequestOpensTheWindowOfThatPairOnly() {
    TrayHarness t({"Work", "Photos"});
    TrayApplication& tray = *t.tray;
    NotificationCenter& center = t.application.notificationCenter();
    center.post("quillstowShowRestore", {{"object", Uuid::random()}});
    center.post("quillstowShowRestore", {{"object", std::string("not an id")}});
    center.post("quillstowShowRestore", {});
    QVERIFY(!tray.restoreWindow());

    // Through the popover row's "Restore Files…", which posts the request.
    emit t.view().restoreRequested(t.pairs[0].id);
    QWidget* restore = tray.restoreWindow();
    QVERIFY(restore && restore->isVisible());
    QCOMPARE(restore->windowTitle(), QString("Restore — Work"));
    // A second pair's request while it shows brings the same window forward.
    center.post("quillstowShowRestore", {{"object", t.pairs[1].id}});
    QCOMPARE(tray.restoreWindow(), restore);
    QCOMPARE(restore->windowTitle(), QString("Restore — Work"));

    // A click orders the window out and leaves the popover shut; the next one opens it.
    tray.statusItemClicked();
    QVERIFY(!restore->isVisible());
    QVERIFY(!tray.popover().isShown());
    tray.statusItemClicked();
    QVERIFY(tray.popover().isShown());

    // Ordered out, the window is replaced by one for the pair asked for now.
    tray.menuActions().restorePair(t.pairs[1].id);
    QVERIFY(tray.restoreWindow() && tray.restoreWindow()->isVisible());
    QCOMPARE(tray.restoreWindow()->windowTitle(), QString("Restore — Photos"));

    // "Recover Deleted Files…" of the row and of the menu, by the same rule.
    tray.menuActions().recoverDeletedFiles(Uuid::random());
    QVERIFY(!tray.recoveryWindow());
    emit t.view().recoverRequested(t.pairs[0].id);
    QVERIFY(tray.recoveryWindow() && tray.recoveryWindow()->isVisible());
    QCOMPARE(tray.recoveryWindow()->windowTitle(), QString("Recover Deleted Files — Work"));
}

void ShellTest::thePopoverHidesWhenTheFocusLeavesItButNotForItsOwnDialogs() {
    auto* content = new QWidget;
    content->resize(300, 360);
    PopoverController popover(content, PopoverController::Style::anchored);
    QWidget other;
    other.show();
    QWidget dialog(content, Qt::Dialog);
    popover.show(QRect(600, 2, 24, 24));
    dialog.show();
    QVERIFY(popover.isShown());
    // Focus elsewhere before it ever reached the popover: it stays.
    popover.onFocusWindowChanged(other.windowHandle());
    QVERIFY(popover.isShown());
    popover.onFocusWindowChanged(content->windowHandle());
    popover.onFocusWindowChanged(dialog.windowHandle());
    QVERIFY(popover.isShown());
    popover.onFocusWindowChanged(other.windowHandle());
    QVERIFY(!popover.isShown());
    // As a window (no tray, Wayland) it is the user's to close.
    popover.setStyle(PopoverController::Style::window);
    popover.show(std::nullopt);
    popover.onFocusWindowChanged(content->windowHandle());
    popover.onFocusWindowChanged(other.windowHandle());
    QVERIFY(popover.isShown());
}

void ShellTest::launchAtLoginWritesAndRemovesTheAutostartEntry() {
    testing::TemporaryFolder config;
    const QByteArray before = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString(config.path().string()));
    const auto entry = config.path() / "autostart" / "io.quillstow.Quillstow.desktop";
    QCOMPARE(autostartEntryPath(), entry);
    setLaunchAtLogin(true, "/opt/quill stow/quillstow");
    const std::string text = testing::readFile(entry);
    QVERIFY2(text.find("Exec=\"/opt/quill stow/quillstow\" --autostart\n") != std::string::npos,
             text.c_str());
    QVERIFY(text.find("Icon=io.quillstow.Quillstow\n") != std::string::npos);
    setLaunchAtLogin(false, "/opt/quill stow/quillstow");
    QVERIFY(!std::filesystem::exists(entry));
    setLaunchAtLogin(false, "/opt/quill stow/quillstow");  // already gone: nothing to do
    qputenv("XDG_CONFIG_HOME", before);
}

void ShellTest::popoverRowsFollowAnEngineThroughAPassAndAnError() {
    ShellHarness s;
    const BackupPair pair = s.h.makePair("Work");
    testing::writeFile(pair.sourceURL / "notes.txt", std::string(100, 'x'));
    s.start();
    PopoverView view(*s.model);
    view.show();
    QStringList seen;
    auto record = [&] {
        if (view.rows().empty()) return;
        const QString text = view.rows()[0]->findChild<QToolButton*>("status")->text();
        if (seen.isEmpty() || seen.last() != text) seen << text;
    };
    record();
    QObject::connect(s.model.get(), &ShellModel::changed, &view, record);
    QVERIFY(s.h.runUntilSettling());
    QVERIFY(s.h.finishRun());
    QVERIFY2(seen.contains("Queued"), qPrintable(seen.join(" | ")));
    QVERIFY2(seen.filter(QRegularExpression("^↑ \\d+%$")).size() >= 1,
             qPrintable(seen.join(" | ")));
    QVERIFY2(seen.last().startsWith("✓ "), qPrintable(seen.join(" | ")));

    std::filesystem::remove_all(pair.sourceURL);
    s.manager->backupPairNow(pair.id);
    QVERIFY(s.h.runUntil([&] { return s.engine(pair.id).status().kind() == Case::error; }));
    QCOMPARE(seen.last(), QString("⚠ Error"));
    auto* row = view.rows()[0];
    auto* status = row->findChild<QToolButton*>("status");
    QVERIFY(!row->isShowingErrorDetail());
    status->click();
    QVERIFY(row->isShowingErrorDetail());
    saveShot(view, "popover-error.png");
}

void ShellTest::pauseAllFlipsToResumeAllAndBack() {
    ShellHarness s;
    s.h.makePair("Work");
    s.h.makePair("Photos");
    s.start();
    PopoverView view(*s.model);
    QCOMPARE(view.pauseAllButton()->text(), QString("Pause All"));
    view.pauseAllButton()->click();
    QCOMPARE(view.pauseAllButton()->text(), QString("Resume All"));
    for (const auto& [id, engine] : s.manager->engines())
        QCOMPARE(engine->status().kind(), Case::paused);
    view.pauseAllButton()->click();
    QVERIFY(s.h.runUntil([&] { return view.pauseAllButton()->text() == "Pause All"; }));
}

void ShellTest::theEmptyStateAsksForAFirstFolder() {
    ShellHarness s;
    s.start();
    PopoverView view(*s.model);
    view.show();
    QCoreApplication::processEvents();
    QStringList shown;
    for (QLabel* label : view.findChildren<QLabel*>())
        if (label->isVisible()) shown << label->text();
    QVERIFY2(shown.contains("Nothing's being backed up yet."), qPrintable(shown.join(" | ")));
    QVERIFY(shown.contains("Click + to add your first folder."));
    QCOMPARE(view.pauseAllButton()->text(), QString("Resume All"));
    saveShot(view, "popover-empty.png");
}

void ShellTest::everyMenuItemCallsItsActionAndTheMarksFollowTheState() {
    ShellHarness s;
    const BackupPair work = s.h.makePair("Work");
    BackupPair photos = s.h.makePair("Photos");
    photos.isEnabled = false;
    s.h.store->updatePair(photos);
    AppConfig config = s.h.store->appConfig();
    config.backupInterval = BackupInterval::fourHours;
    config.notificationLevel = NotificationLevel::everyBackup;
    config.launchAtLogin = false;
    config.trashReminderEnabled = true;
    s.h.store->setAppConfig(config);
    s.start();
    s.engine(work.id).setStatus(BackupStatus::error(BackupError::timedOut()));

    QStringList called;
    auto note = [&](const QString& what) { return [&called, what] { called << what; }; };
    auto notePair = [&](const QString& what) {
        return [&called, what](const Uuid& id) { called << what + " " + qt(id.text()); };
    };
    MenuActions actions{
        .openPopover = note("popover"),
        .backupAllNow = note("all"),
        .backupPairNow = notePair("backup"),
        .togglePausePair = notePair("pause"),
        .relinkPair = notePair("relink"),
        .revealInFileManager = notePair("reveal"),
        .restorePair = notePair("restore"),
        .recoverDeletedFiles = notePair("recover"),
        .removePair = notePair("remove"),
        .addFolder = note("add"),
        .openPromote = note("promote"),
        .setBackupInterval = [&](BackupInterval i) { called << qt(texts::intervalTitle(i)); },
        .setNotificationLevel =
            [&](NotificationLevel l) { called << qt(texts::notificationLevelTitle(l)); },
        .toggleLaunchAtLogin = note("login"),
        .toggleTrashReminders = note("trash"),
        .toggleAutoUpdate = note("auto-update"),
        .checkForUpdates = note("check"),
        .clearHistory = note("clear"),
        .openLearn = note("learn"),
        .openAbout = note("about"),
        .quit = note("quit"),
    };
    QMenu menu;
    buildMenu(menu, s.model->menu(), actions);
    const auto titlesOf = [](QMenu& menu) {
        QStringList titles;
        for (QAction* action : menu.actions())
            if (!action->isSeparator()) titles << action->text();
        return titles;
    };
    QCOMPARE(titlesOf(menu),
             (QStringList{"Open Quillstow", "Back Up All Now", "⚠  Work", "○  Photos",
                          "Add Folder…", "File a Finished Project…", "Recent Activity", "Settings",
                          "How Quillstow Works", "About Quillstow", "Quit Quillstow"}));

    const QString workId = qt(work.id.text());
    const QString photosId = qt(photos.id.text());
    const std::vector<std::pair<QString, QString>> clicks{
        {"Open Quillstow", "popover"},
        {"Back Up All Now", "all"},
        {"Add Folder…", "add"},
        {"File a Finished Project…", "promote"},
        {"How Quillstow Works", "learn"},
        {"About Quillstow", "about"},
        {"Quit Quillstow", "quit"},
        {"Every 30 Minutes", "Every 30 Minutes"},
        {"Manual Only", "Manual Only"},
        {"Never", "Never"},
        {"Daily Summary + Errors", "Daily Summary + Errors"},
        {"Launch at Login", "login"},
        {"Trash Cleanup Reminders", "trash"},
        // The first pair's submenu comes first: these are Work's.
        {"Back Up Now", "backup " + workId},
        {"Pause", "pause " + workId},
        {"Change Destination…", "relink " + workId},
        {"Show in File Manager", "reveal " + workId},
        {"Restore Files…", "restore " + workId},
        {"Recover Deleted Files…", "recover " + workId},
        {"Remove This Backup…", "remove " + workId},
    };
    for (const auto& [title, expected] : clicks) {
        called.clear();
        QAction* action = findAction(menu, title);
        QVERIFY2(action, qPrintable(title));
        action->trigger();
        QCOMPARE(called, QStringList{expected});
    }
    QMenu* workMenu = findAction(menu, "⚠  Work")->menu();
    QCOMPARE(titlesOf(*workMenu),
             (QStringList{"Back Up Now", "Pause", "Change Destination…", "Show in File Manager",
                          "Restore Files…", "Recover Deleted Files…", "Remove This Backup…"}));
    QVERIFY2(isMostlyRed(findAction(*workMenu, "Remove This Backup…")->icon()),
             "the destructive item is marked in red");
    QVERIFY(findAction(*workMenu, "Pause")->icon().isNull());
    QMenu* photosMenu = findAction(menu, "○  Photos")->menu();
    QVERIFY(!findAction(*photosMenu, "Back Up Now")->isEnabled());
    called.clear();
    findAction(*photosMenu, "Resume")->trigger();
    QCOMPARE(called, QStringList{"pause " + photosId});

    // The checks follow the settings; the update items exist only with the update check.
    buildMenu(menu, s.model->menu(), actions);
    const std::pair<const char*, bool> checks[] = {
        {"Every 4 Hours", true}, {"Every Hour", false},      {"Every Backup", true},
        {"Errors Only", false},  {"Launch at Login", false}, {"Trash Cleanup Reminders", true},
    };
    for (const auto& [title, checked] : checks)
        QVERIFY2(findAction(menu, title)->isChecked() == checked, title);
    QVERIFY(!findAction(menu, "Check for Updates Now"));
    QVERIFY(!findAction(menu, "No activity yet")->isEnabled());
    QVERIFY(!findAction(menu, "Clear History"));
    buildMenu(menu, s.model->menu(), actions,
              {.withUpdateCheck = true, .autoChecksForUpdates = true});
    QVERIFY(findAction(menu, "Auto-check for Updates")->isChecked());
    called.clear();
    findAction(menu, "Check for Updates Now")->trigger();
    QCOMPARE(called, QStringList{"check"});
}

void ShellTest::theMenuListsTheFiveNewestEventsAndSaysWhenAPairIsGone() {
    ShellHarness s;
    const BackupPair work = s.h.makePair("Work");
    const Date now = s.h.wallClock.now();
    auto event = [&](BackupEvent::EventType type, int minutesAgo, std::int64_t files,
                     std::optional<std::string> message, Uuid pairId) {
        BackupEvent e;
        e.id = Uuid::random();
        e.pairId = pairId;
        e.timestamp = now - std::chrono::minutes(minutesAgo);
        e.type = type;
        e.filesAffected = files;
        e.message = std::move(message);
        s.h.store->addEvent(e);
    };
    using Type = BackupEvent::EventType;
    event(Type::backup, 60 * 24 * 3, 9, std::nullopt, work.id);  // the sixth: not shown
    event(Type::backup, 120, 1, std::nullopt, work.id);
    event(Type::error, 60, 0, "The drive is full", work.id);
    event(Type::volumeLost, 30, 0, std::nullopt, work.id);
    event(Type::integrityChecked, 5, 0, std::nullopt, Uuid::random());
    event(Type::verificationFailed, 0, 2, std::nullopt, work.id);
    s.start();
    const MenuState state = s.model->menu();
    std::vector<std::string> lines;
    for (const MenuEventLine& line : state.recentEvents)
        lines.push_back(line.title);
    QCOMPARE(lines, (std::vector<std::string>{
                        "⚠ Work — 2 files (0 sec. ago)",
                        "🛡 (Deleted) — Health Check (5 min. ago)",
                        "⏏ Work — Drive Disconnected (30 min. ago)",
                        "✗ Work — The drive is full (1 hr. ago)",
                        "✓ Work — 1 file (2 hr. ago)",
                    }));
    QVERIFY(state.recentEvents[0].isAlarm);
    QVERIFY(!state.recentEvents[1].isAlarm);
    QVERIFY(state.recentEvents[3].isAlarm);
}

// Runs `inspect` on the modal dialog or popup menu that `open` brings up, which must close it.
template <typename Widget>
void whileOpen(const std::function<void()>& open, const std::function<void(Widget&)>& inspect) {
    bool seen = false;
    QTimer::singleShot(0, [&] {
        QWidget* shown = QApplication::activeModalWidget();
        if (!shown) shown = QApplication::activePopupWidget();
        if (auto* widget = qobject_cast<Widget*>(shown)) {
            seen = true;
            inspect(*widget);
        }
        if (shown) shown->close();
    });
    open();
    QVERIFY2(seen, "nothing opened");
}

void ShellTest::onlyTheRowsRelinkDialogCanCreateFolders() {
    TrayHarness t;
    t.tray->popover().setStyle(PopoverController::Style::anchored);
    struct Seen {
        QString accept;
        bool readOnly = false;
    };
    const auto look = [](Seen& seen) {
        return [&seen](QFileDialog& dialog) {
            seen = {dialog.labelText(QFileDialog::Accept),
                    dialog.testOption(QFileDialog::ReadOnly)};
            QCOMPARE(dialog.fileMode(), QFileDialog::Directory);
            QCOMPARE(dialog.windowTitle(), QString("Choose where \"Work\" should be backed up to"));
        };
    };
    Seen menu, row;
    whileOpen<QFileDialog>([&] { t.tray->menuActions().relinkPair(t.pairs[0].id); }, look(menu));
    whileOpen<QFileDialog>([&] { emit t.view().relinkRequested(t.pairs[0].id); }, look(row));
    QCOMPARE(menu.accept, QString("Choose New Destination"));
    QVERIFY2(menu.readOnly, "the menu's dialog can't create folders");
    QCOMPARE(row.accept, QString("Choose Destination"));
    QVERIFY2(!row.readOnly, "the row's dialog can");
}

void ShellTest::theRowsMenuRedoesTheSmartSetupAndMarksRemoveInRed() {
    TrayHarness t;
    t.tray->popover().setStyle(PopoverController::Style::anchored);
    t.view().refresh();
    QCOMPARE(t.view().rows().size(), 1u);
    PairRowView* row = t.view().rows()[0];
    QStringList items;
    QIcon removeIcon;
    whileOpen<QMenu>([&] { emit row->customContextMenuRequested(QPoint(5, 5)); },
                     [&](QMenu& menu) {
                         for (QAction* action : menu.actions()) {
                             items << (action->isSeparator() ? "-" : action->text());
                             if (action->text() == "Remove This Backup…")
                                 removeIcon = action->icon();
                             if (action->text() == "Redo Smart Setup…") action->trigger();
                         }
                     });
    QCOMPARE(items, (QStringList{"Back Up Now", "Pause", "-", "Change Destination…",
                                 "Show in File Manager", "Restore Files…", "Recover Deleted Files…",
                                 "Redo Smart Setup…", "-", "Remove This Backup…"}));
    QVERIFY(isMostlyRed(removeIcon));
    // The source is read off the main thread; then the window opens as after a first backup.
    QTRY_VERIFY(t.tray->profileSuggestionWindow());
    const auto measured = measureSuggestion(t.pairs[0]);
    QCOMPARE(measured.approximateBytes, 1000);
    QCOMPARE(measured.recommended, BackupProfile::standard);
    // A quit during the reading: no further folder is gone into.
    testing::writeFile(t.pairs[0].sourceURL / "Later/more.txt", std::string(500, 'x'));
    std::stop_source quit;
    quit.request_stop();
    QCOMPARE(measureSuggestion(t.pairs[0], quit.get_token()).approximateBytes, 1000);
    QCOMPARE(measureSuggestion(t.pairs[0]).approximateBytes, 1500);
}

void ShellTest::aRightClickKeepsThePopoverOpenAndAnotherWorkspaceClosesIt() {
    TrayHarness t;
    t.tray->popover().setStyle(PopoverController::Style::anchored);
    PopoverController& popover = t.tray->popover();
    t.tray->openPopover();
    popover.onFocusWindowChanged(popover.window()->windowHandle());
    t.tray->showMenu();
    QVERIFY(t.tray->menu().isVisible());
    popover.onFocusWindowChanged(t.tray->menu().windowHandle());
    QVERIFY2(popover.isShown(), "the menu shows in front of the popover");
    t.tray->menu().close();
    // A tray host draws the menu itself and takes the focus while it shows.
    emit t.tray->menu().aboutToShow();
    popover.onFocusWindowChanged(nullptr);
    QVERIFY2(popover.isShown(), "the host's menu shows in front of the popover");
    emit t.tray->menu().aboutToHide();
    popover.onFocusWindowChanged(nullptr);
    QVERIFY2(!popover.isShown(), "the menu closed and the focus went elsewhere");
    t.tray->openPopover();
    emit t.tray->workspaceWatch().switched();
    QVERIFY(!popover.isShown());
    // As a window of its own (no tray, Wayland), it stays on its workspace.
    popover.setStyle(PopoverController::Style::window);
    t.tray->openPopover();
    emit t.tray->workspaceWatch().switched();
    QVERIFY(popover.isShown());
}

void ShellTest::aWorkspaceSwitchIsAChangeOfTheCurrentDesktop() {
    constexpr std::uint32_t currentDesktop = 301, otherAtom = 302;
    struct Case {
        const char* name;
        std::uint8_t type;
        std::uint32_t atom;
        bool isSwitch;
    };
    const Case cases[] = {
        {"the current desktop changed", XCB_PROPERTY_NOTIFY, currentDesktop, true},
        {"sent by the window manager", XCB_PROPERTY_NOTIFY | 0x80, currentDesktop, true},
        {"another property", XCB_PROPERTY_NOTIFY, otherAtom, false},
        {"another event", XCB_CLIENT_MESSAGE, currentDesktop, false},
    };
    for (const Case& c : cases) {
        xcb_property_notify_event_t event{};
        event.response_type = c.type;
        event.atom = c.atom;
        QVERIFY2(WorkspaceWatch::isWorkspaceSwitch(&event, currentDesktop) == c.isSwitch, c.name);
    }
    xcb_property_notify_event_t event{};
    event.response_type = XCB_PROPERTY_NOTIFY;
    QVERIFY2(!WorkspaceWatch::isWorkspaceSwitch(&event, XCB_ATOM_NONE), "no atom: no X11");
}

void ShellTest::onlyNotificationsComingOnAskForPermission() {
    using Level = NotificationLevel;
    struct Case {
        Level before, chosen;
        bool asks;
    };
    const Case cases[] = {
        {Level::nothing, Level::errorsOnly, true},
        {Level::nothing, Level::everyBackup, true},
        {Level::nothing, Level::nothing, false},
        {Level::errorsOnly, Level::everyBackup, false},
        {Level::dailySummary, Level::nothing, false},
    };
    for (const Case& c : cases) {
        QVERIFY2(asksNotificationPermission(c.before, c.chosen) == c.asks,
                 qPrintable(qt(texts::notificationLevelTitle(c.before)) + " to " +
                            qt(texts::notificationLevelTitle(c.chosen))));
    }
}

void ShellTest::aSecondStartActivatesTheFirstOverTheLocalSocket() {
    testing::TemporaryFolder runtime;
    const QString socket =
        QString::fromStdString((runtime.path() / "io.quillstow.Quillstow").native());
    // A socket left behind by an instance that died: the next start takes it over.
    testing::writeFile(runtime.path() / "io.quillstow.Quillstow", "");
    int activations = 0;
    SingleInstance first, second;
    QCOMPARE(first.claimLocally(socket, [&activations] { ++activations; }),
             SingleInstance::Outcome::first);
    QCOMPARE(second.claimLocally(socket, [] {}), SingleInstance::Outcome::activatedOther);
    QTRY_COMPARE(activations, 1);
}

void ShellTest::aSecondStartActivatesTheFirstOverTheSessionBus() {
    const testing::PrivateBus bus([](sd_bus*) {});
    if (bus.address().empty()) QSKIP(bus.whyNot().c_str());
    const QString address = QString::fromStdString(bus.address());
    int activations = 0;
    {
        SingleInstance first, second;
        QDBusConnection one = QDBusConnection::connectToBus(address, "first");
        QDBusConnection two = QDBusConnection::connectToBus(address, "second");
        QVERIFY(one.isConnected() && two.isConnected());
        QCOMPARE(first.claimOnBus(one, [&activations] { ++activations; }),
                 SingleInstance::Outcome::first);
        QCOMPARE(second.claimOnBus(two, [] {}), SingleInstance::Outcome::activatedOther);
        QCOMPARE(activations, 1);
    }
    QDBusConnection::disconnectFromBus("first");
    QDBusConnection::disconnectFromBus("second");
}

QTEST_MAIN(ShellTest)
#include "ShellTest.moc"
