// The tray application on the offscreen platform: the icon and row of every status, which window
// a click or a request opens, the menu's marks and pair items, the popover following a real
// engine in virtual time, one instance per session, the update feed's addresses, the welcome
// flow of a first start (in virtual time) through to config.json, and the smart-setup offer,
// which changes what the next pass copies.

#include <QApplication>
#include <QLabel>
#include <QMenu>
#include <QToolButton>
#include <QtTest>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "../control/EngineHarness.hpp"
#include "Screenshots.hpp"
#include "TestTree.hpp"
#include "app/DesktopServices.hpp"
#include "app/QtMainQueue.hpp"
#include "app/SingleInstance.hpp"
#include "app/TrayApplication.hpp"
#include "app/UpdateFeed.hpp"
#include "shell/viewmodels/AddBackupModel.hpp"
#include "shell/views/ProfileSuggestionWindow.hpp"
#include "shell/views/WelcomeWindow.hpp"
#include "tray/PopoverPlacement.hpp"
#include "tray/StatusMenuBuilder.hpp"
#include "viewmodels/ProfileSuggestion.hpp"
#include "viewmodels/ShellModel.hpp"
#include "viewmodels/Texts.hpp"
#include "views/Icons.hpp"
#include "views/PairRowView.hpp"
#include "views/PopoverView.hpp"

using namespace quillstow;
using namespace quillstow::shell;
using Case = BackupStatus::Case;
namespace fs = std::filesystem;

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

QStringList visibleLabels(QWidget& window) {
    QCoreApplication::processEvents();
    QStringList shown;
    for (QLabel* label : window.findChildren<QLabel*>())
        if (label->isVisible() && !label->text().isEmpty()) shown << label->text();
    return shown;
}

// Saves a window's picture once its rows are laid out, and checks that nothing is cut off.
void look(QWidget& window, const QString& name) {
    QCoreApplication::processEvents();
    testing::look(window, name);
}

// The program as it starts: its settings folder, in virtual time, with the tray around it.
struct Start {
    ManualClock clock;
    VirtualMainQueue queue{clock};
    Application application;
    TrayApplication tray;

    explicit Start(const fs::path& settings) : application(queue, settings), tray(application, 0) {
        tray.start();
    }
    ~Start() {
        tray.stop();
        application.stopEverything();
        queue.runPending();
        application.save();
    }
    WelcomeWindow* welcome() const { return qobject_cast<WelcomeWindow*>(tray.welcomeWindow()); }
};

nlohmann::json configOf(const fs::path& settings) {
    return nlohmann::json::parse(testing::readFile(settings / "config.json"));
}

}  // namespace

class ShellTest : public QObject {
    Q_OBJECT

  private slots:
    void eachStatusShowsItsIconMarkAndRow();
    void placesThePopover();
    void eachWindowOpensOnceAndAClickClearsOnlyTheSmallOnes();
    void popoverRowsFollowAnEngineThroughAPassAndAnError();
    void everyMenuItemCallsItsActionAndTheMarksFollowTheState();
    void launchAtLoginWritesAndRemovesTheAutostartEntry();
    void aSecondStartActivatesTheFirst();
    void theUpdateFeedIsTrustedOnlyOverSecureAddresses();
    void aFirstStartLeadsThroughOnePairAndOnlyTheFirst();
    void acceptingChangesWhatTheNextPassCopies();
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

// Where the popover goes, on a screen with a panel of 28 at the top unless said otherwise.
void ShellTest::placesThePopover() {
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

    // A restore request names a pair that exists, or nothing opens.
    center.post("quillstowShowRestore", {{"object", Uuid::random()}});
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

void ShellTest::popoverRowsFollowAnEngineThroughAPassAndAnError() {
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

// Over the local socket; one left behind by an instance that died is taken over.
void ShellTest::aSecondStartActivatesTheFirst() {
    testing::TemporaryFolder runtime;
    testing::writeFile(runtime.path() / "io.quillstow.Quillstow", "");
    const QString socket = qt((runtime.path() / "io.quillstow.Quillstow").native());
    int activations = 0;
    SingleInstance first, second;
    QCOMPARE(first.claimLocally(socket, [&activations] { ++activations; }),
             SingleInstance::Outcome::first);
    QCOMPARE(second.claimLocally(socket, [] {}), SingleInstance::Outcome::activatedOther);
    QTRY_COMPARE(activations, 1);
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
}

void ShellTest::aFirstStartLeadsThroughOnePairAndOnlyTheFirst() {
    testing::TemporaryFolder settings, folders;
    const fs::path source = folders.path() / "Thesis", drive = folders.path() / "Drive";
    fs::create_directories(source);
    fs::create_directories(drive);
    {
        Start first(settings.path());
        first.queue.advance(0.05);
        QVERIFY(!first.tray.welcomeWindow());
        first.queue.advance(0.06);
        QVERIFY(first.welcome() && first.welcome()->isVisible());
        look(*first.welcome(), "welcome-source");
        first.welcome()->close();  // before the end: nothing stored
    }
    QVERIFY(!configOf(settings.path())["appConfig"]["hasCompletedOnboarding"].get<bool>());
    {
        Start second(settings.path());
        second.queue.advance(0.1);
        WelcomeWindow* welcome = second.welcome();
        QVERIFY2(welcome && welcome->isVisible(), "shown again until the flow is finished");
        WelcomeModel& model = welcome->model();
        QVERIFY(!welcome->mainButton()->isEnabled() && !welcome->backButton()->isVisible());
        QSignalSpy dropped(&model, &WelcomeModel::droppedItemRead);
        model.dropItems({source});
        QVERIFY(dropped.wait(5000));
        QVERIFY(welcome->mainButton()->isEnabled());
        look(*welcome, "welcome-source-chosen");
        welcome->mainButton()->click();
        QCOMPARE(model.step(), WelcomeStep::pickDestination);
        QVERIFY(!welcome->mainButton()->isEnabled());
        QVERIFY(visibleLabels(*welcome).contains("No external drives found."));
        model.setDestination(drive);
        welcome->mainButton()->click();
        QCOMPARE(model.step(), WelcomeStep::pickOffsite);
        welcome->mainButton()->click();
        const QStringList confirm = visibleLabels(*welcome);
        QVERIFY2(confirm.contains("Ready to start.") && confirm.contains("Thesis") &&
                     confirm.filter("Offsite copy").isEmpty(),
                 qPrintable(confirm.join(" | ")));
        look(*welcome, "welcome-confirm");
        welcome->mainButton()->click();
        QVERIFY(!welcome->isVisible());
        // The settings are written on their own thread: wait for the disk.
        second.application.configStore().flush();
        const auto config = configOf(settings.path());
        QVERIFY(config["appConfig"]["hasCompletedOnboarding"].get<bool>());
        QCOMPARE(config["pairs"].size(), 1u);
        QCOMPARE(config["pairs"][0]["name"].get<std::string>(), std::string("Thesis"));
        // The flow's pair is like any other: it has its engine at once.
        QCOMPARE(second.application.statusManager().engines().size(), 1u);
    }
    Start third(settings.path());
    third.queue.advance(1.0);
    QVERIFY(!third.tray.welcomeWindow());
}

void ShellTest::acceptingChangesWhatTheNextPassCopies() {
    testing::EngineHarness h;
    const BackupPair pair = h.makePair("Code");
    for (const char* file : {"src/main.c", "dist/bundle.js", "main.o"})
        testing::writeFile(pair.sourceURL / file, "data");
    StatusManager manager(h.store, *h.services, h.queue, h.notifier);
    // The first pass, under the standard profile, copies everything.
    QVERIFY(h.finishRun());
    const fs::path mirror = testing::EngineHarness::mirrorOf(pair);
    QVERIFY(fs::exists(mirror / "dist/bundle.js"));
    const ProfileSuggestion suggestion{pair.id, "Code", BackupProfile::developer, 3'400'000};
    ProfileSuggestionWindow window(suggestion,
                                   [&] { acceptSuggestion(manager.configStore(), suggestion); });
    window.show();
    QVERIFY(visibleLabels(window).contains("Code · 3.4 MB"));
    look(window, "smart-setup");
    window.acceptButton()->click();
    QVERIFY(!window.isVisible());
    QCOMPARE(h.storedPair(pair.id)->profile, BackupProfile::developer);
    QVERIFY(h.storedPair(pair.id)->didSuggestProfile);

    for (const char* file : {"src/util.c", "dist/chunk.js", "util.o"})
        testing::writeFile(pair.sourceURL / file, "data");
    manager.backupPairNow(pair.id);
    QVERIFY(h.finishRun());
    QVERIFY(fs::exists(mirror / "src/util.c"));
    QVERIFY(!fs::exists(mirror / "dist/chunk.js") && !fs::exists(mirror / "util.o"));
    // What the earlier pass copied stays at the destination.
    QVERIFY(fs::exists(mirror / "main.o") && fs::exists(mirror / "dist/bundle.js"));
    manager.stopAll();
    h.settle();

    // The measuring behind an offer: a quit during the reading goes into no further folder.
    testing::writeFile(pair.sourceURL / "Later/more.txt", std::string(500, 'x'));
    std::stop_source quit;
    quit.request_stop();
    QVERIFY(measureSuggestion(h.storedPair(pair.id).value(), quit.get_token()).approximateBytes <
            measureSuggestion(h.storedPair(pair.id).value()).approximateBytes);
}

QTEST_MAIN(ShellTest)
#include "ShellTest.moc"
