// The first start and the small windows on the offscreen platform: the welcome flow 0.1 s after
// a first start (in virtual time) through to config.json, and never again after it; the
// smart-setup offer, which takes only a request that fits and changes what the next pass
// copies; the learn and About windows with the build's version.

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QtTest>
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

namespace {

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

class FirstStartTest : public QObject {
    Q_OBJECT

  private slots:
    void aFirstStartLeadsThroughOnePairAndOnlyTheFirst();
    void smartSetupTakesOnlyARequestThatFits();
    void acceptingChangesWhatTheNextPassCopies();
    void aboutShowsTheBuildsVersionAndLearnReopensClosed();
};

void FirstStartTest::aFirstStartLeadsThroughOnePairAndOnlyTheFirst() {
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
        welcome->backButton()->click();  // keeps what was chosen
        QCOMPARE(model.source(), std::optional(source));
        welcome->mainButton()->click();
        model.setDestination(drive);
        look(*welcome, "welcome-destination");
        welcome->mainButton()->click();
        QCOMPARE(model.step(), WelcomeStep::pickOffsite);
        look(*welcome, "welcome-offsite");
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
    const std::tuple<const char*, std::optional<NotificationValue>> spoiled[] = {
        {"pairId", std::nullopt},
        {"pairId", std::string("x")},
        {"pairName", std::nullopt},
        {"recommendedProfile", std::nullopt},
        {"recommendedProfile", std::string("video")},
        {"recommendedProfile", std::int64_t(2)},
        {"approximateBytes", std::string("x")},
        {"approximateBytes", std::nullopt},
    };
    for (const auto& [key, value] : spoiled) {
        NotificationInfo info = fits;
        if (value) {
            info[key] = *value;
        } else {
            info.erase(key);
        }
        center.post("io.quillstow.profileSuggested", info);
        QVERIFY2(!start.tray.profileSuggestionWindow(), key);
    }
    center.post("io.quillstow.profileSuggested", fits);
    QWidget* window = start.tray.profileSuggestionWindow();
    QVERIFY(window);
    // A second offer while it shows brings the same window forward, with the first pair.
    NotificationInfo other = fits;
    other["pairId"] = Uuid::random();
    center.post("io.quillstow.profileSuggested", other);
    QCOMPARE(start.tray.profileSuggestionWindow(), window);
    QCOMPARE(qobject_cast<ProfileSuggestionWindow*>(window)->suggestion().pairId, id);
}

void FirstStartTest::acceptingChangesWhatTheNextPassCopies() {
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
    // Declining leaves the pair as it was.
    {
        ProfileSuggestionWindow declined(suggestion, [] { QFAIL("not accepted"); });
        declined.show();
        declined.declineButton()->click();
        QCOMPARE(h.storedPair(pair.id)->profile, BackupProfile::standard);
    }
    ProfileSuggestionWindow window(suggestion,
                                   [&] { acceptSuggestion(manager.configStore(), suggestion); });
    window.show();
    QVERIFY(visibleLabels(window).contains("Code · 3.4 MB"));
    window.whatThisChangesButton()->click();
    window.technicalDetailsButton()->click();
    QVERIFY(window.findChild<QWidget*>("bullets")->isVisible() &&
            window.findChild<QWidget*>("technical")->isVisible());
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
}

void FirstStartTest::aboutShowsTheBuildsVersionAndLearnReopensClosed() {
    testing::TemporaryFolder settings;
    Start start(settings.path());
    start.tray.openAbout();
    QWidget* about = start.tray.aboutWindow();
    QCOMPARE(about->findChild<QLabel*>("version")->text(),
             QString("Version " QUILLSTOW_VERSION " (Beta)"));
    QVERIFY(!about->findChild<QLabel*>("logo")->pixmap().isNull());
    look(*about, "about");
    const std::unique_ptr<QWidget> unversioned(makeAboutWindow(""));
    QCOMPARE(unversioned->findChild<QLabel*>("version")->text(), QString("Version 1.0 (Beta)"));

    const auto learn = [] {
        for (QWidget* window : QApplication::topLevelWidgets())
            if (window->isVisible() && window->objectName() == "learnWindow") return window;
        return static_cast<QWidget*>(nullptr);
    };
    start.tray.menuActions().openLearn();
    QFrame* topic = learn()->findChildren<QFrame*>("row").first();
    QTest::mouseClick(topic, Qt::LeftButton);
    QVERIFY(topic->findChild<QLabel*>("explanation")->isVisible());
    look(*learn(), "learn");
    // Reopened, every topic starts closed.
    learn()->close();
    start.tray.openLearn();
    for (QLabel* explanation : learn()->findChildren<QLabel*>("explanation"))
        QVERIFY(!explanation->isVisible());
}

QTEST_MAIN(FirstStartTest)
#include "FirstStartTest.moc"
