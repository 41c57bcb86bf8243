// The first start and the small windows on the offscreen platform: the welcome flow 0.1 s after
// a first start (in virtual time) through to config.json, and never again after it; the
// smart-setup offer, which takes only a request that fits and changes what the next pass
// copies; the learn and About windows with the build's version.

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QtTest>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "../control/EngineHarness.hpp"
#include "Screenshots.hpp"
#include "TestTree.hpp"
#include "app/TrayApplication.hpp"
#include "shell/viewmodels/ProfileSuggestion.hpp"
#include "shell/views/ProfileSuggestionWindow.hpp"
#include "shell/views/WelcomeWindow.hpp"
#include "views/InfoWindows.hpp"

using namespace quillstow;
using namespace quillstow::shell;
namespace fs = std::filesystem;

using testing::saveShot;

namespace {

QStringList visibleLabels(QWidget& window) {
    QCoreApplication::processEvents();
    QStringList shown;
    for (QLabel* label : window.findChildren<QLabel*>())
        if (label->isVisible() && !label->text().isEmpty()) shown << label->text();
    return shown;
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

class FirstStartTest : public QObject {
    Q_OBJECT

  private slots:
    void aFirstStartLeadsThroughOnePairAndOnlyTheFirst();
    void smartSetupTakesOnlyARequestThatFits();
    void technicalLinesOfEachProfile_data();
    void technicalLinesOfEachProfile();
    void acceptingChangesWhatTheNextPassCopies();
    void aboutShowsTheBuildsVersionAndLearnReopensClosed();
};

void FirstStartTest::aFirstStartLeadsThroughOnePairAndOnlyTheFirst() {
    testing::TemporaryFolder settings;
    testing::TemporaryFolder folders;
    const fs::path source = folders.path() / "Thesis";
    const fs::path drive = folders.path() / "Drive";
    fs::create_directories(source);
    fs::create_directories(drive);
    testing::writeFile(folders.path() / "notes.txt", "a file, not a folder");
    {
        Start first(settings.path());
        first.queue.advance(0.05);
        QVERIFY(!first.tray.welcomeWindow());
        // A click before the window shows works as usual.
        const bool wasShown = first.tray.popover().isShown();
        first.tray.statusItemClicked();
        QCOMPARE(first.tray.popover().isShown(), !wasShown);
        first.tray.statusItemClicked();
        QCOMPARE(first.tray.popover().isShown(), wasShown);
        first.queue.advance(0.06);
        WelcomeWindow* welcome = first.welcome();
        QVERIFY(welcome && welcome->isVisible());
        saveShot(*welcome, "welcome-source.png");
        // Closed before the end: nothing stored.
        welcome->close();
    }
    QVERIFY(!configOf(settings.path())["appConfig"]["hasCompletedOnboarding"].get<bool>());

    {
        Start second(settings.path());
        second.queue.advance(0.1);
        WelcomeWindow* welcome = second.welcome();
        QVERIFY2(welcome && welcome->isVisible(), "shown again until the flow is finished");
        WelcomeModel& model = welcome->model();
        QVERIFY(!welcome->mainButton()->isEnabled());
        QVERIFY(!welcome->backButton()->isVisible());
        // A dropped file is ignored and the step stays; a dropped folder is taken.
        QSignalSpy dropped(&model, &WelcomeModel::droppedItemRead);
        model.dropItems({folders.path() / "notes.txt", source});
        QVERIFY(dropped.wait(5000));
        QVERIFY(!model.source());
        model.dropItems({source, folders.path() / "notes.txt"});
        QVERIFY(dropped.wait(5000));
        QCOMPARE(model.source(), std::optional(source));
        QVERIFY(welcome->mainButton()->isEnabled());
        QCOMPARE(model.step(), WelcomeStep::pickSource);
        saveShot(*welcome, "welcome-source-chosen.png");

        welcome->mainButton()->click();
        QCOMPARE(model.step(), WelcomeStep::pickDestination);
        QVERIFY(!welcome->mainButton()->isEnabled());
        QVERIFY2(visibleLabels(*welcome).contains("No external drives found."),
                 qPrintable(visibleLabels(*welcome).join(" | ")));
        // Back keeps what was chosen.
        welcome->backButton()->click();
        QCOMPARE(model.source(), std::optional(source));
        welcome->mainButton()->click();
        model.setDestination(drive);
        saveShot(*welcome, "welcome-destination.png");
        welcome->mainButton()->click();
        QCOMPARE(model.step(), WelcomeStep::pickOffsite);
        QVERIFY(welcome->mainButton()->isEnabled());
        saveShot(*welcome, "welcome-offsite.png");
        welcome->mainButton()->click();
        const QStringList confirm = visibleLabels(*welcome);
        QVERIFY2(confirm.contains("Ready to start.") && confirm.contains("Thesis") &&
                     confirm.filter("Offsite copy").isEmpty(),
                 qPrintable(confirm.join(" | ")));
        saveShot(*welcome, "welcome-confirm.png");

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
    {
        Start third(settings.path());
        third.queue.advance(1.0);
        QVERIFY(!third.tray.welcomeWindow());
        QCOMPARE(third.application.configStore().pairs().size(), 1u);
    }
}

void FirstStartTest::smartSetupTakesOnlyARequestThatFits() {
    testing::TemporaryFolder settings;
    Start start(settings.path());
    NotificationCenter& center = start.application.notificationCenter();
    const Uuid id = Uuid::random();
    const NotificationInfo fits{{"pairId", id},
                                {"pairName", std::string("Code")},
                                {"recommendedProfile", std::string("developer")},
                                {"approximateBytes", std::int64_t(3'400'000)}};
    // One key left out (no value) or of another kind: no window.
    const std::tuple<const char*, const char*, std::optional<NotificationValue>> spoiled[] = {
        {"no pair id", "pairId", std::nullopt},
        {"pair id as text", "pairId", std::string("x")},
        {"no pair name", "pairName", std::nullopt},
        {"no profile", "recommendedProfile", std::nullopt},
        {"profile not a raw value", "recommendedProfile", std::string("video")},
        {"profile as a number", "recommendedProfile", std::int64_t(2)},
        {"bytes as text", "approximateBytes", std::string("x")},
        {"no bytes", "approximateBytes", std::nullopt},
    };
    for (const auto& [name, key, value] : spoiled) {
        NotificationInfo info = fits;
        if (value) {
            info[key] = *value;
        } else {
            info.erase(key);
        }
        center.post("io.quillstow.profileSuggested", info);
        QVERIFY2(!start.tray.profileSuggestionWindow(), name);
    }
    center.post("io.quillstow.profileSuggested", fits);
    auto* window = qobject_cast<ProfileSuggestionWindow*>(start.tray.profileSuggestionWindow());
    QVERIFY(window);
    // A second offer while it shows brings the same window forward, with the first pair.
    NotificationInfo other = fits;
    other["pairName"] = std::string("Other");
    other["pairId"] = Uuid::random();
    center.post("io.quillstow.profileSuggested", other);
    QCOMPARE(start.tray.profileSuggestionWindow(), window);
    QCOMPARE(window->suggestion().pairId, id);
}

void FirstStartTest::technicalLinesOfEachProfile_data() {
    QTest::addColumn<int>("profile");
    QTest::addColumn<QStringList>("lines");
    QTest::newRow("standard") << int(BackupProfile::standard) << QStringList{"Profile: standard"};
    QTest::newRow("documents: nothing beyond the shared tables")
        << int(BackupProfile::documents) << QStringList{"Profile: documents"};
    QTest::newRow("music: sorted, under ten")
        << int(BackupProfile::music)
        << QStringList{"Profile: music", "Excluded folders: Bounces, Freeze Files, Movie Files",
                       "Excluded extensions: asd"};
    QTest::newRow("developer: ten, then how many more")
        << int(BackupProfile::developer)
        << QStringList{"Profile: developer",
                       "Excluded folders: .bundle, .cache, .env, .gradle, .mypy_cache, .next, "
                       ".nuxt, .pytest_cache, .swiftpm, .tox (+18 more)",
                       "Excluded extensions: class, dSYM, log, o, obj, pyc, pyo, swiftdoc, "
                       "swiftmodule"};
}

void FirstStartTest::technicalLinesOfEachProfile() {
    QFETCH(int, profile);
    QFETCH(QStringList, lines);
    QStringList made;
    for (const std::string& line : technicalLinesOf(BackupProfile(profile)))
        made << QString::fromStdString(line);
    QCOMPARE(made, lines);
}

void FirstStartTest::acceptingChangesWhatTheNextPassCopies() {
    testing::EngineHarness h;
    const BackupPair pair = h.makePair("Code");
    for (const char* file : {"src/main.c", "dist/bundle.js", "main.o", "venv/lib.py"})
        testing::writeFile(pair.sourceURL / file, "data");
    StatusManager manager(h.store, *h.services, h.queue, h.notifier);
    // The first pass, under the standard profile, copies everything.
    QVERIFY(h.finishRun());
    const fs::path mirror = testing::EngineHarness::mirrorOf(pair);
    QVERIFY(fs::exists(mirror / "dist/bundle.js"));
    const ProfileSuggestion suggestion{pair.id, "Code", BackupProfile::developer, 3'400'000};

    // Declining leaves the pair as it was.
    auto* declined = new ProfileSuggestionWindow(suggestion, [] { QFAIL("not accepted"); });
    declined->setAttribute(Qt::WA_DeleteOnClose);
    declined->show();
    declined->declineButton()->click();
    QCOMPARE(h.storedPair(pair.id)->profile, BackupProfile::standard);

    ProfileSuggestionWindow window(suggestion,
                                   [&] { acceptSuggestion(manager.configStore(), suggestion); });
    window.show();
    const QStringList shown = visibleLabels(window);
    QVERIFY2(shown.contains("Looks like a code project.") && shown.contains("Code · 3.4 MB"),
             qPrintable(shown.join(" | ")));
    QVERIFY(!window.findChild<QWidget*>("bullets")->isVisible());
    window.whatThisChangesButton()->click();
    QVERIFY(window.findChild<QWidget*>("bullets")->isVisible());
    QVERIFY(!window.findChild<QWidget*>("technical")->isVisible());
    window.technicalDetailsButton()->click();
    QVERIFY(window.findChild<QWidget*>("technical")->isVisible());
    saveShot(window, "smart-setup.png");
    window.acceptButton()->click();
    QVERIFY(!window.isVisible());
    QCOMPARE(h.storedPair(pair.id)->profile, BackupProfile::developer);
    QVERIFY(h.storedPair(pair.id)->didSuggestProfile);

    for (const char* file : {"src/util.c", "dist/chunk.js", "util.o", "venv/more.py"})
        testing::writeFile(pair.sourceURL / file, "data");
    manager.backupPairNow(pair.id);
    QVERIFY(h.finishRun());
    QVERIFY(fs::exists(mirror / "src/util.c"));
    for (const char* left : {"dist/chunk.js", "util.o", "venv/more.py"})
        QVERIFY2(!fs::exists(mirror / left), left);
    // What the earlier pass copied stays at the destination.
    QVERIFY(fs::exists(mirror / "main.o"));
    manager.stopAll();
    h.settle();
}

void FirstStartTest::aboutShowsTheBuildsVersionAndLearnReopensClosed() {
    testing::TemporaryFolder settings;
    Start start(settings.path());
    start.tray.openAbout();
    QWidget* about = start.tray.aboutWindow();
    QCOMPARE(about->findChild<QLabel*>("version")->text(),
             QString("Version " QUILLSTOW_VERSION " (Beta)"));
    QVERIFY(!about->findChild<QLabel*>("logo")->pixmap().isNull());
    saveShot(*about, "about.png");
    std::unique_ptr<QWidget> unversioned(makeAboutWindow(""));
    QCOMPARE(unversioned->findChild<QLabel*>("version")->text(), QString("Version 1.0 (Beta)"));

    start.tray.menuActions().openLearn();
    QWidget* learn = nullptr;
    for (QWidget* window : QApplication::topLevelWidgets())
        if (window->isVisible() && window->objectName() == "learnWindow") learn = window;
    QVERIFY(learn);
    QFrame* first = learn->findChildren<QFrame*>("row").first();
    QTest::mouseClick(first, Qt::LeftButton);
    QVERIFY(first->findChild<QLabel*>("explanation")->isVisible());
    saveShot(*learn, "learn.png");
    // Reopened, every topic starts closed.
    learn->close();
    start.tray.openLearn();
    for (QWidget* window : QApplication::topLevelWidgets())
        if (window->isVisible() && window->objectName() == "learnWindow") learn = window;
    for (QLabel* explanation : learn->findChildren<QLabel*>("explanation"))
        QVERIFY(!explanation->isVisible());
}

QTEST_MAIN(FirstStartTest)
#include "FirstStartTest.moc"
