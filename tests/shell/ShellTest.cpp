// The tray application on the offscreen platform: the icon and row of every status, which window
// a click or a request opens, when the popover hides, the menu's items and marks, the popover
// following a real engine in virtual time, one instance per session, the update reminder, and the
// small decisions behind them as tables.

#include <xcb/xcb.h>

#include <QApplication>
#include <QDBusConnection>
#include <QLabel>
#include <QMenu>
#include <QToolButton>
#include <QtTest>
#include <filesystem>

#include "../control/EngineHarness.hpp"
#include "PrivateBus.hpp"
#include "Screenshots.hpp"
#include "TestTree.hpp"
#include "app/DesktopServices.hpp"
#include "app/QtMainQueue.hpp"
#include "app/SingleInstance.hpp"
#include "app/TrayApplication.hpp"
#include "app/UpdateFeed.hpp"
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

namespace {

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

// An action of a menu or of its submenus by title.
QAction* findAction(QMenu& menu, const QString& title) {
    for (QAction* action : menu.actions()) {
        if (action->text() == title) return action;
        if (action->menu())
            if (QAction* inner = findAction(*action->menu(), title)) return inner;
    }
    return nullptr;
}

// Runs `inspect` on the modal dialog or popup menu that `open` brings up, then closes it.
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
        tray->popover().setStyle(PopoverController::Style::anchored);
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
    void eachStatusShowsItsIconMarkAndRow();
    void theTraysSmallDecisions();
    void eachWindowOpensOnceAndAClickClearsOnlyTheSmallOnes();
    void thePopoverHidesWhenTheFocusOrTheWorkspaceLeavesIt();
    void popoverRowsFollowAnEngineAndPauseAllFlips();
    void everyMenuItemCallsItsActionAndTheMarksFollowTheState();
    void theRowsMenuRedoesTheSmartSetup();
    void launchAtLoginWritesAndRemovesTheAutostartEntry();
    void aSecondStartActivatesTheFirst();
    void theUpdateFeedIsTrustedOnlyOverSecureAddresses();
};

// The status of one pair as the tray's icon, the menu and the popover row show it.
void ShellTest::eachStatusShowsItsIconMarkAndRow() {
    const QString drive = "externaldrive.", done = drive + "badge.checkmark";
    const QString busy = "arrow.triangle.2.circlepath";
    const struct {
        BackupStatus status;
        int lastBackupAgo;  // seconds; -1: never backed up
        QString icon, mark, row;
        bool offersDetail, working;
    } cases[] = {
        {BackupStatus::idle(), -1, done, "●", "Up to date", false, false},
        {BackupStatus::completed(3, 1.5), -1, done, "●", "✓ Done", false, false},
        {BackupStatus::completed(3, 1.5), 60, done, "●", "✓ 1m ago", false, false},
        {BackupStatus::syncing(0.999, "a.txt"), -1, busy, "↑", "↑ 99%", false, true},
        {BackupStatus::scanning(), -1, busy, "↑", "Scanning…", false, true},
        {BackupStatus::queued(), -1, busy, "◷", "Queued", false, true},
        {BackupStatus::error(BackupError::timedOut()), -1, drive + "badge.exclamationmark", "⚠",
         "⚠ Error", true, false},
        {BackupStatus::destinationUnreachable(), -1, drive + "trianglebadge.exclamationmark", "⚠",
         "Reconnecting…", true, false},
        {BackupStatus::paused(), -1, drive + "badge.minus", "○", "Paused", false, false},
    };
    for (const auto& c : cases) {
        ShellHarness s;
        BackupPair pair = s.h.makePair("Work");
        pair.isEnabled = false;  // stays paused: the test sets the status
        if (c.lastBackupAgo >= 0)
            pair.lastBackupAt = s.h.wallClock.now() - std::chrono::seconds(c.lastBackupAgo);
        s.h.store->updatePair(pair);
        s.start();
        QSignalSpy iconChanges(s.model.get(), &ShellModel::overallStatusChanged);
        s.engine(pair.id).setStatus(c.status);
        const PairRowState shown = s.model->popover().rows.at(0);
        QCOMPARE(qt(shown.statusText), c.row);
        QCOMPARE(qt(s.model->iconName()), c.icon + "-symbolic");
        QVERIFY(!themedSymbolIcon(s.model->iconName()).pixmap(22, 22).isNull());
        QCOMPARE(qt(s.model->menu().pairs.at(0).title), c.mark + "  Work");
        QVERIFY(shown.offersErrorDetail == c.offersDetail && shown.isWorking == c.working);
        // The icon is set again only when the one status really changes.
        const int changes = c.status.kind() == Case::paused ? 0 : 1;
        s.engine(pair.id).setStatus(c.status);
        QCOMPARE(iconChanges.count(), changes);
    }
}

void ShellTest::theTraysSmallDecisions() {
    // Where the popover goes, on a screen with a panel of 28 at the top unless said otherwise.
    const QRect screen(0, 28, 1280, 772);
    const struct {
        const char* name;
        std::optional<QRect> icon;
        QPoint cursor;
        QRect available;
        QPoint expected;
    } placements[] = {
        {"centred under a known icon", QRect(600, 2, 24, 24), {10, 10}, screen, {462, 30}},
        {"icon unknown: under the pointer", std::nullopt, {700, 14}, screen, {550, 28}},
        {"off the right edge moves left", QRect(1250, 2, 24, 24), {}, screen, {980, 30}},
        {"off the left edge moves right", QRect(0, 2, 24, 24), {}, screen, {0, 30}},
        {"panel at the bottom", QRect(600, 776, 24, 24), {}, {0, 0, 1280, 772}, {462, 412}},
        {"below a short screen", QRect(600, 200, 24, 24), {}, {0, 0, 1280, 500}, {462, 0}},
    };
    for (const auto& c : placements)
        QVERIFY2(placePopover(c.icon, c.cursor, QSize(300, 360), c.available) == c.expected,
                 c.name);

    // A workspace switch is a change of the current desktop; without its atom there is no X11.
    constexpr std::uint32_t desktop = 301;
    const struct {
        const char* name;
        std::uint8_t type;
        std::uint32_t atom, watched;
        bool isSwitch;
    } events[] = {
        {"the current desktop changed", XCB_PROPERTY_NOTIFY, desktop, desktop, true},
        {"sent by the window manager", XCB_PROPERTY_NOTIFY | 0x80, desktop, desktop, true},
        {"another event", XCB_CLIENT_MESSAGE, desktop, desktop, false},
        {"no atom", XCB_PROPERTY_NOTIFY, XCB_ATOM_NONE, XCB_ATOM_NONE, false},
    };
    for (const auto& c : events) {
        xcb_property_notify_event_t event{};
        event.response_type = c.type;
        event.atom = c.atom;
        QVERIFY2(WorkspaceWatch::isWorkspaceSwitch(&event, c.watched) == c.isSwitch, c.name);
    }

    // A line of the menu's recent activity; a pair that was removed has no name.
    using Type = BackupEvent::EventType;
    const std::string work = "Work";
    const struct {
        Type type;
        std::int64_t files;
        const char* message;
        const std::string* pair;
        int secondsAgo;
        const char* title;
        bool isAlarm;
    } lines[] = {
        {Type::verificationFailed, 2, nullptr, &work, 0, "⚠ Work — 2 files (0 sec. ago)", true},
        {Type::integrityChecked, 0, nullptr, nullptr, 300,
         "🛡 (Deleted) — Health Check (5 min. ago)", false},
        {Type::volumeLost, 0, nullptr, &work, 1800, "⏏ Work — Drive Disconnected (30 min. ago)",
         false},
        {Type::error, 0, "The drive is full", &work, 3600, "✗ Work — The drive is full (1 hr. ago)",
         true},
        {Type::backup, 1, nullptr, &work, 7 * 86400, "✓ Work — 1 file (1 wk. ago)", false},
    };
    const Date now = SystemWallClock().now();
    for (const auto& c : lines) {
        BackupEvent event;
        event.timestamp = now - std::chrono::seconds(c.secondsAgo);
        event.type = c.type;
        event.filesAffected = c.files;
        if (c.message) event.message = c.message;
        const MenuEventLine line = eventLine(event, c.pair, now);
        QCOMPARE(qt(line.title), QString(c.title));
        QCOMPARE(line.isAlarm, c.isAlarm);
    }
}

void ShellTest::eachWindowOpensOnceAndAClickClearsOnlyTheSmallOnes() {
    TrayHarness t({"Work", "Photos"});
    TrayApplication& tray = *t.tray;
    NotificationCenter& center = t.application.notificationCenter();
    // With the About window open, a click only closes it; the next ones toggle the popover.
    tray.openAbout();
    tray.statusItemClicked();
    QVERIFY(!tray.aboutWindow()->isVisible() && !tray.popover().isShown());
    tray.statusItemClicked();
    QVERIFY(tray.popover().isShown());

    // The popover's "+" opens one add-backup window.
    auto* plus = t.view().findChild<QToolButton*>("Add backup");
    plus->click();
    QWidget* addBackup = tray.addBackupWindow();
    QVERIFY(addBackup && addBackup->isVisible());
    plus->click();
    QCOMPARE(tray.addBackupWindow(), addBackup);
    addBackup->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!tray.addBackupWindow());

    // Asked for again, the filing window is the same, as it stands, and a click leaves it;
    // closed and opened again, it starts a new flow.
    tray.menuActions().openPromote();
    auto* filing = qobject_cast<FilingWindow*>(tray.filingWindow());
    filing->model().chooseArchive(t.folders.path());
    tray.menuActions().openPromote();
    QCOMPARE(tray.filingWindow(), filing);
    tray.statusItemClicked();
    QVERIFY(filing->isVisible() && filing->model().archiveRoot() && tray.popover().isShown());
    filing->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    tray.menuActions().openPromote();
    filing = qobject_cast<FilingWindow*>(tray.filingWindow());
    QVERIFY(filing && filing->isVisible() && !filing->model().archiveRoot());

    // A restore request names a pair that exists, or nothing opens.
    center.post("quillstowShowRestore", {{"object", Uuid::random()}});
    center.post("quillstowShowRestore", {{"object", std::string("not an id")}});
    QVERIFY(!tray.restoreWindow());
    emit t.view().restoreRequested(t.pairs[0].id);
    QWidget* restore = tray.restoreWindow();
    QVERIFY(restore && restore->isVisible());
    // A second pair's request while it shows brings the same window forward.
    center.post("quillstowShowRestore", {{"object", t.pairs[1].id}});
    QCOMPARE(tray.restoreWindow(), restore);
    QCOMPARE(restore->windowTitle(), QString("Restore — Work"));
    // A click orders it out and leaves the popover shut; then another pair's window replaces it.
    tray.statusItemClicked();
    QVERIFY(!restore->isVisible() && !tray.popover().isShown());
    tray.menuActions().restorePair(t.pairs[1].id);
    QCOMPARE(tray.restoreWindow()->windowTitle(), QString("Restore — Photos"));
    tray.menuActions().recoverDeletedFiles(Uuid::random());
    QVERIFY(!tray.recoveryWindow());
    emit t.view().recoverRequested(t.pairs[0].id);
    QCOMPARE(tray.recoveryWindow()->windowTitle(), QString("Recover Deleted Files — Work"));
}

void ShellTest::thePopoverHidesWhenTheFocusOrTheWorkspaceLeavesIt() {
    auto* content = new QWidget;
    content->resize(300, 360);
    PopoverController popover(content, PopoverController::Style::anchored);
    QWidget other;
    other.show();
    QWidget dialog(content, Qt::Dialog);
    popover.show(QRect(600, 2, 24, 24));
    dialog.show();
    // Focus elsewhere before it ever reached the popover, or on its own dialog: it stays.
    popover.onFocusWindowChanged(other.windowHandle());
    popover.onFocusWindowChanged(content->windowHandle());
    popover.onFocusWindowChanged(dialog.windowHandle());
    QVERIFY(popover.isShown());
    popover.onFocusWindowChanged(other.windowHandle());
    QVERIFY(!popover.isShown());

    // The tray's menu, its own or one a tray host draws with the focus, shows in front of it.
    TrayHarness t;
    PopoverController& tray = t.tray->popover();
    t.tray->openPopover();
    tray.onFocusWindowChanged(tray.window()->windowHandle());
    t.tray->showMenu();
    tray.onFocusWindowChanged(t.tray->menu().windowHandle());
    QVERIFY(tray.isShown());
    t.tray->menu().close();
    emit t.tray->menu().aboutToShow();
    tray.onFocusWindowChanged(nullptr);
    QVERIFY(tray.isShown());
    emit t.tray->menu().aboutToHide();
    tray.onFocusWindowChanged(nullptr);
    QVERIFY(!tray.isShown());
    t.tray->openPopover();
    emit t.tray->workspaceWatch().switched();
    QVERIFY(!tray.isShown());
    // As a window of its own (no tray, Wayland) it is the user's to close.
    tray.setStyle(PopoverController::Style::window);
    t.tray->openPopover();
    tray.onFocusWindowChanged(tray.window()->windowHandle());
    tray.onFocusWindowChanged(other.windowHandle());
    emit t.tray->workspaceWatch().switched();
    QVERIFY(tray.isShown());
}

void ShellTest::popoverRowsFollowAnEngineAndPauseAllFlips() {
    {
        ShellHarness nothing;
        nothing.start();
        PopoverView empty(*nothing.model);
        empty.show();
        QCoreApplication::processEvents();
        QStringList shown;
        for (QLabel* label : empty.findChildren<QLabel*>())
            if (label->isVisible()) shown << label->text();
        QVERIFY2(shown.contains("Nothing's being backed up yet.") &&
                     shown.contains("Click + to add your first folder."),
                 qPrintable(shown.join(" | ")));
        testing::look(empty, "popover-empty");
    }
    ShellHarness s;
    const BackupPair pair = s.h.makePair("Work");
    testing::writeFile(pair.sourceURL / "notes.txt", std::string(100, 'x'));
    s.start();
    PopoverView view(*s.model);
    view.show();
    QStringList seen;
    const auto record = [&] {
        const QString text = view.rows()[0]->findChild<QToolButton*>("status")->text();
        if (seen.isEmpty() || seen.last() != text) seen << text;
    };
    QObject::connect(s.model.get(), &ShellModel::changed, &view, record);
    QVERIFY(s.h.runUntilSettling());
    QVERIFY(s.h.finishRun());
    QVERIFY2(seen.contains("Queued") && !seen.filter(QRegularExpression("^↑ \\d+%$")).isEmpty() &&
                 seen.last().startsWith("✓ "),
             qPrintable(seen.join(" | ")));

    std::filesystem::remove_all(pair.sourceURL);
    s.manager->backupPairNow(pair.id);
    QVERIFY(s.h.runUntil([&] { return s.engine(pair.id).status().kind() == Case::error; }));
    QCOMPARE(seen.last(), QString("⚠ Error"));
    PairRowView* row = view.rows()[0];
    row->findChild<QToolButton*>("status")->click();
    QVERIFY(row->isShowingErrorDetail());
    testing::look(view, "popover-error");

    view.pauseAllButton()->click();
    QCOMPARE(view.pauseAllButton()->text(), QString("Resume All"));
    for (const auto& [id, engine] : s.manager->engines())
        QCOMPARE(engine->status().kind(), Case::paused);
    view.pauseAllButton()->click();
    QVERIFY(s.h.runUntil([&] { return view.pauseAllButton()->text() == "Pause All"; }));
}

void ShellTest::everyMenuItemCallsItsActionAndTheMarksFollowTheState() {
    MenuState state;
    state.pairs = {{Uuid::random(), "⚠  Work", true}, {Uuid::random(), "○  Photos", false}};
    state.settings.backupInterval = BackupInterval::fourHours;
    state.settings.notificationLevel = NotificationLevel::everyBackup;
    state.settings.launchAtLogin = false;
    state.settings.trashReminderEnabled = true;
    // Each item of a pair acts on that pair; the others only call what they are given.
    QStringList called;
    const auto note = [&called](const QString& what) {
        return [&called, what](const Uuid& id) { called << what + " " + qt(id.text()); };
    };
    MenuActions actions;
    actions.backupPairNow = note("backup");
    actions.togglePausePair = note("pause");
    actions.relinkPair = note("relink");
    actions.revealInFileManager = note("reveal");
    actions.restorePair = note("restore");
    actions.recoverDeletedFiles = note("recover");
    actions.removePair = note("remove");
    actions.setBackupInterval = [&](BackupInterval i) { called << qt(texts::intervalTitle(i)); };
    QMenu menu;
    buildMenu(menu, state, actions);
    // The marks follow the settings; the update items are there only with the update check.
    const std::pair<const char*, bool> checks[] = {
        {"Every 4 Hours", true}, {"Every Hour", false},      {"Every Backup", true},
        {"Errors Only", false},  {"Launch at Login", false}, {"Trash Cleanup Reminders", true},
    };
    for (const auto& [title, checked] : checks)
        QVERIFY2(findAction(menu, title)->isChecked() == checked, title);
    QVERIFY(!findAction(menu, "No activity yet")->isEnabled());
    QVERIFY(!findAction(menu, "Check for Updates Now"));
    QVERIFY(!findAction(*findAction(menu, "○  Photos")->menu(), "Back Up Now")->isEnabled());
    buildMenu(menu, state, actions, {.withUpdateCheck = true, .autoChecksForUpdates = true});
    QVERIFY(findAction(menu, "Auto-check for Updates")->isChecked());
    const QString work = qt(state.pairs[0].id.text());
    const std::pair<QString, QString> clicks[] = {
        {"Every 30 Minutes", "Every 30 Minutes"},
        // The first pair's submenu comes first: these are Work's.
        {"Back Up Now", "backup " + work},
        {"Pause", "pause " + work},
        {"Change Destination…", "relink " + work},
        {"Show in File Manager", "reveal " + work},
        {"Restore Files…", "restore " + work},
        {"Recover Deleted Files…", "recover " + work},
        {"Remove This Backup…", "remove " + work},
        {"Resume", "pause " + qt(state.pairs[1].id.text())},
    };
    for (const auto& [title, expected] : clicks) {
        called.clear();
        QAction* action = findAction(menu, title);
        QVERIFY2(action, qPrintable(title));
        action->trigger();
        QCOMPARE(called, QStringList{expected});
    }
}

void ShellTest::theRowsMenuRedoesTheSmartSetup() {
    TrayHarness t;
    t.view().refresh();
    PairRowView* row = t.view().rows().at(0);
    QStringList items;
    whileOpen<QMenu>([&] { emit row->customContextMenuRequested(QPoint(5, 5)); },
                     [&](QMenu& menu) {
                         for (QAction* action : menu.actions())
                             items << (action->isSeparator() ? "-" : action->text());
                         findAction(menu, "Redo Smart Setup…")->trigger();
                     });
    QCOMPARE(items, (QStringList{"Back Up Now", "Pause", "-", "Change Destination…",
                                 "Show in File Manager", "Restore Files…", "Recover Deleted Files…",
                                 "Redo Smart Setup…", "-", "Remove This Backup…"}));
    // The source is read off the main thread; then the window opens as after a first backup.
    QTRY_VERIFY(t.tray->profileSuggestionWindow());
    QCOMPARE(measureSuggestion(t.pairs[0]).recommended, BackupProfile::standard);
    // A quit during the reading: no further folder is gone into.
    testing::writeFile(t.pairs[0].sourceURL / "Later/more.txt", std::string(500, 'x'));
    std::stop_source quit;
    quit.request_stop();
    QCOMPARE(measureSuggestion(t.pairs[0], quit.get_token()).approximateBytes, 1000);
    QCOMPARE(measureSuggestion(t.pairs[0]).approximateBytes, 1500);
}

void ShellTest::launchAtLoginWritesAndRemovesTheAutostartEntry() {
    testing::TemporaryFolder config;
    const QByteArray before = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString(config.path().string()));
    const auto entry = config.path() / "autostart" / "io.quillstow.Quillstow.desktop";
    QCOMPARE(autostartEntryPath(), entry);
    setLaunchAtLogin(true, "/opt/quill stow/quillstow");
    const std::string text = testing::readFile(entry);
    QVERIFY2(text.find("Exec=\"/opt/quill stow/quillstow\" --autostart\n") != std::string::npos &&
                 text.find("Icon=io.quillstow.Quillstow\n") != std::string::npos,
             text.c_str());
    setLaunchAtLogin(false, "/opt/quill stow/quillstow");
    QVERIFY(!std::filesystem::exists(entry));
    setLaunchAtLogin(false, "/opt/quill stow/quillstow");  // already gone: nothing to do
    qputenv("XDG_CONFIG_HOME", before);
}

void ShellTest::aSecondStartActivatesTheFirst() {
    // Over the local socket; one left behind by an instance that died is taken over.
    testing::TemporaryFolder runtime;
    testing::writeFile(runtime.path() / "io.quillstow.Quillstow", "");
    const QString socket = qt((runtime.path() / "io.quillstow.Quillstow").native());
    int activations = 0;
    SingleInstance first, second;
    QCOMPARE(first.claimLocally(socket, [&activations] { ++activations; }),
             SingleInstance::Outcome::first);
    QCOMPARE(second.claimLocally(socket, [] {}), SingleInstance::Outcome::activatedOther);
    QTRY_COMPARE(activations, 1);

    // Over the session bus.
    const testing::PrivateBus bus([](sd_bus*) {});
    if (bus.address().empty()) QSKIP(bus.whyNot().c_str());
    {
        SingleInstance onBus, again;
        QDBusConnection one = QDBusConnection::connectToBus(qt(bus.address()), "first");
        QDBusConnection two = QDBusConnection::connectToBus(qt(bus.address()), "second");
        QCOMPARE(onBus.claimOnBus(one, [&activations] { ++activations; }),
                 SingleInstance::Outcome::first);
        QCOMPARE(again.claimOnBus(two, [] {}), SingleInstance::Outcome::activatedOther);
        QCOMPARE(activations, 2);
    }
    QDBusConnection::disconnectFromBus("first");
    QDBusConnection::disconnectFromBus("second");
}

void ShellTest::theUpdateFeedIsTrustedOnlyOverSecureAddresses() {
    const struct {
        const char* url;
        bool loopbackAllowed, allowed;
    } addresses[] = {
        {"https://quillstow.io:8443/f", false, true},
        {"http://quillstow.io/feed.json", true, false},
        {"http://127.0.0.1:8080/f", false, false},
        {"http://127.0.0.1:8080/f", true, true},
        {"http://[::1]:8080/f", true, true},
        {"http://127.0.0.1.evil.io/f", true, false},
        {"http://127.0.0.1@evil.io/f", true, false},
        {"file:///etc/passwd", true, false},
        {"https:///feed", false, false},
    };
    for (const auto& c : addresses)
        QVERIFY2(isAllowedFeedAddress(c.url, c.loopbackAllowed) == c.allowed, c.url);

    QCOMPARE(parseReleaseFeed("{\"version\": \"0.2.0\", \"releasePage\": \"https://q.io/r\"}"),
             std::optional(Release{"0.2.0", "https://q.io/r"}));
    for (const char* bad : {"[]", "not json", "{\"version\": \"0.2.0\"}",
                            "{\"version\": 2, \"releasePage\": \"https://q.io/r\"}",
                            "{\"version\": \"\", \"releasePage\": \"https://q.io/r\"}",
                            "{\"version\": \"0.2.0\", \"releasePage\": \"http://q.io/r\"}",
                            "{\"version\": \"0.2.0\", \"releasePage\": \"javascript:alert(1)\"}"})
        QVERIFY2(!parseReleaseFeed(bad), bad);

    const struct {
        const char *a, *b;
        int order;
    } versions[] = {
        {"1.2", "1.2.0", 0},    {"0.10.0", "0.9.0", 1}, {"1.0", "0.99.99", 1},
        {"0.0.9", "0.1.0", -1}, {"1.0-rc1", "1.0", -1}, {"1.0-rc2", "1.0-rc1", 1},
    };
    for (const auto& c : versions) {
        QVERIFY2(compareVersions(c.a, c.b) == c.order, c.a);
        QVERIFY2(compareVersions(c.b, c.a) == -c.order, c.a);
    }
}

QTEST_MAIN(ShellTest)
#include "ShellTest.moc"
