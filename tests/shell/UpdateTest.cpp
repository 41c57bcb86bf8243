// The update reminder: the feed, the comparison of versions, the addresses it may read and
// when it checks, as tables; in a build with the update check, a local feed on the loopback
// address in virtual time; and the menu, which has update items only in such a build.

#include <QMenu>
#include <QtTest>
#ifdef QUILLSTOW_UPDATE_CHECK
#include <QTcpServer>
#include <QTcpSocket>
#endif

#include "TestTree.hpp"
#include "app/QtMainQueue.hpp"
#include "app/TrayApplication.hpp"
#include "app/UpdateFeed.hpp"
#ifdef QUILLSTOW_UPDATE_CHECK
#include "app/UpdateService.hpp"
#include "support/VirtualMainQueue.hpp"
#endif

using namespace quillstow;
using namespace quillstow::shell;

namespace {

#ifdef QUILLSTOW_UPDATE_CHECK
// Answers every request with one feed, and counts the requests.
class LocalFeed final : public QObject {
  public:
    explicit LocalFeed(QByteArray feed) : feed_(std::move(feed)) {
        server_.listen(QHostAddress::LocalHost);
        connect(&server_, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = server_.nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    if (!socket->readAll().contains("\r\n\r\n")) return;
                    ++requests;
                    socket->write(
                        "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
                        "Connection: close\r\nContent-Length: " +
                        QByteArray::number(feed_.size()) + "\r\n\r\n" + feed_);
                    socket->disconnectFromHost();
                });
            }
        });
    }
    QUrl url() const {
        return QUrl(QString("http://127.0.0.1:%1/feed.json").arg(server_.serverPort()));
    }
    int requests = 0;

  private:
    QTcpServer server_;
    QByteArray feed_;
};

QByteArray feedOf(const char* version) {
    return QByteArray("{\"version\": \"") + version +
           "\", \"releasePage\": \"https://quillstow.io/releases/" + version + "\"}";
}

// The service over a local feed, in virtual time, counting reminders and notifications.
struct Checker {
    explicit Checker(const char* feedVersion, bool allowLoopbackHttp = true)
        : feed(feedOf(feedVersion)),
          service({feed.url(), "0.1.0", allowLoopbackHttp}, defaults, queue, wallClock, delegate,
                  [this](const Release& release) { reminders.push_back(release); }) {
        active = center.observe(updateReminderActiveNotification,
                                [this](const auto&) { notes << "active"; });
        cleared = center.observe(updateReminderClearedNotification,
                                 [this](const auto&) { notes << "cleared"; });
    }
    bool waitForCheck() {
        QSignalSpy spy(&service, &UpdateService::checked);
        return spy.wait(5000);
    }

    LocalFeed feed;
    ManualClock clock;
    VirtualMainQueue queue{clock};
    ManualWallClock wallClock{Date{std::chrono::seconds(1'700'000'000)}};
    InMemoryUserDefaults defaults;
    NotificationCenter center;
    GentleReminderDelegate delegate{center};
    UpdateService service;
    std::vector<Release> reminders;
    QStringList notes;
    Subscription active;
    Subscription cleared;
};
#endif

}  // namespace

class UpdateTest : public QObject {
    Q_OBJECT

  private slots:
    void comparesVersions_data();
    void comparesVersions();
    void readsOnlyFromSecureAddresses_data();
    void readsOnlyFromSecureAddresses();
    void readsTheFeed();
    void schedulesTheNextCheck();
    void theMenuHasUpdateItemsOnlyWithTheUpdateCheck();
#ifdef QUILLSTOW_UPDATE_CHECK
    void aNewerReleaseGivesOneQuietReminderAndAnOlderNone();
    void checksOnItsOwnOnlyAfterTheUserOptedIn();
    void refusesPlainHttpOutsideTheLoopback();
#endif
};

void UpdateTest::comparesVersions_data() {
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("order");
    const auto row = [](const char* name, QString a, QString b, int order) {
        QTest::newRow(name) << a << b << order;
    };
    row("equal", "0.1.0", "0.1.0", 0);
    row("a missing part is 0", "1.2", "1.2.0", 0);
    row("numbers, not text", "0.10.0", "0.9.0", 1);
    row("major wins", "1.0", "0.99.99", 1);
    row("older", "0.0.9", "0.1.0", -1);
    row("a pre-release ranks below", "1.0-rc1", "1.0", -1);
    row("pre-releases by their text", "1.0-rc2", "1.0-rc1", 1);
}

void UpdateTest::comparesVersions() {
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, order);
    QCOMPARE(compareVersions(a.toStdString(), b.toStdString()), order);
    QCOMPARE(compareVersions(b.toStdString(), a.toStdString()), -order);
}

void UpdateTest::readsOnlyFromSecureAddresses_data() {
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("loopbackAllowed");
    QTest::addColumn<bool>("allowed");
    const auto row = [](const char* name, QString url, bool loopbackAllowed, bool allowed) {
        QTest::newRow(name) << url << loopbackAllowed << allowed;
    };
    row("https", "https://quillstow.io/feed.json", false, true);
    row("https with a port", "https://quillstow.io:8443/f", false, true);
    row("http anywhere", "http://quillstow.io/feed.json", true, false);
    row("http on the loopback, not allowed", "http://127.0.0.1:8080/f", false, false);
    row("http on the loopback, in tests", "http://127.0.0.1:8080/f", true, true);
    row("http on IPv6 loopback, in tests", "http://[::1]:8080/f", true, true);
    row("a name that only starts like it", "http://127.0.0.1.evil.io/f", true, false);
    row("user part hiding the host", "http://127.0.0.1@evil.io/f", true, false);
    row("file", "file:///etc/passwd", true, false);
    row("no host", "https:///feed", false, false);
}

void UpdateTest::readsOnlyFromSecureAddresses() {
    QFETCH(QString, url);
    QFETCH(bool, loopbackAllowed);
    QFETCH(bool, allowed);
    QCOMPARE(isAllowedFeedAddress(url.toStdString(), loopbackAllowed), allowed);
}

void UpdateTest::readsTheFeed() {
    QCOMPARE(parseReleaseFeed("{\"version\": \"0.2.0\", \"releasePage\": \"https://q.io/r\"}"),
             std::optional(Release{"0.2.0", "https://q.io/r"}));
    for (const char* bad : {"", "[]", "not json", "{\"version\": \"0.2.0\"}",
                            "{\"version\": 2, \"releasePage\": \"https://q.io/r\"}",
                            "{\"version\": \"\", \"releasePage\": \"https://q.io/r\"}",
                            "{\"version\": \"0.2.0\", \"releasePage\": \"http://q.io/r\"}",
                            "{\"version\": \"0.2.0\", \"releasePage\": \"javascript:alert(1)\"}"})
        QVERIFY2(!parseReleaseFeed(bad), bad);
}

void UpdateTest::schedulesTheNextCheck() {
    const double day = 86400;
    QCOMPARE(secondsUntilNextCheck(1000, std::nullopt, day), 0.0);
    QCOMPARE(secondsUntilNextCheck(1000, 900, day), day - 100);
    QCOMPARE(secondsUntilNextCheck(1000 + 2 * day, 1000, day), 0.0);
}

void UpdateTest::theMenuHasUpdateItemsOnlyWithTheUpdateCheck() {
    testing::TemporaryFolder settings;
    QtMainQueue mainQueue;
    Application application(mainQueue, settings.path());
    TrayApplication tray(application, 0);
    QStringList settingsItems;
    for (QAction* action : tray.menu().actions())
        if (action->menu() && action->text() == "Settings")
            for (QAction* item : action->menu()->actions())
                settingsItems << item->text();
#ifdef QUILLSTOW_UPDATE_CHECK
    QVERIFY(settingsItems.contains("Auto-check for Updates"));
    QVERIFY(settingsItems.contains("Check for Updates Now"));
#else
    QVERIFY(!settingsItems.isEmpty());
    QVERIFY(!settingsItems.contains("Auto-check for Updates"));
    QVERIFY(!settingsItems.contains("Check for Updates Now"));
#endif
    tray.stop();
    application.stopEverything();
}

#ifdef QUILLSTOW_UPDATE_CHECK
void UpdateTest::aNewerReleaseGivesOneQuietReminderAndAnOlderNone() {
    Checker newer("0.2.0");
    newer.service.checkForUpdates();
    QVERIFY(newer.waitForCheck());
    QCOMPARE(newer.reminders.size(), 1u);
    QCOMPARE(newer.reminders[0].releasePage, std::string("https://quillstow.io/releases/0.2.0"));
    QCOMPARE(newer.notes, (QStringList{"active", "cleared"}));
    QCOMPARE(newer.feed.requests, 1);

    Checker older("0.0.9");
    older.service.checkForUpdates();
    QVERIFY(older.waitForCheck());
    QVERIFY(older.reminders.empty());
    QVERIFY(older.notes.isEmpty());
    QCOMPARE(older.feed.requests, 1);
}

void UpdateTest::checksOnItsOwnOnlyAfterTheUserOptedIn() {
    Checker checker("0.2.0");
    // Not opted in: a day and more pass without a request.
    checker.queue.advance(2 * 86400);
    QCoreApplication::processEvents();
    QCOMPARE(checker.feed.requests, 0);
    QCOMPARE(checker.queue.scheduledCount(), 0u);

    checker.service.setAutomaticallyChecksForUpdates(true);
    QVERIFY(checker.service.automaticallyChecksForUpdates());
    checker.queue.advance(0);
    QVERIFY(checker.waitForCheck());
    QCOMPARE(checker.reminders.size(), 1u);
    // The next scheduled check, a day later, finds the same release: no second reminder.
    checker.wallClock.set(checker.wallClock.now() + std::chrono::hours(24));
    checker.queue.advance(86400);
    QVERIFY(checker.waitForCheck());
    QCOMPARE(checker.feed.requests, 2);
    QCOMPARE(checker.reminders.size(), 1u);

    // Turned off, the scheduled check is dropped.
    checker.service.setAutomaticallyChecksForUpdates(false);
    checker.queue.advance(3 * 86400);
    QCoreApplication::processEvents();
    QCOMPARE(checker.feed.requests, 2);
}

void UpdateTest::refusesPlainHttpOutsideTheLoopback() {
    // The program's own service never takes plain HTTP, loopback or not.
    Checker checker("0.2.0", false);
    QVERIFY(checker.delegate.supportsGentleScheduledUpdateReminders());
    QSignalSpy checked(&checker.service, &UpdateService::checked);
    checker.service.checkForUpdates();
    QCOMPARE(checked.count(), 1);
    QCOMPARE(checked[0][0].value<UpdateService::Outcome>(), UpdateService::Outcome::failed);
    QCoreApplication::processEvents();
    QCOMPARE(checker.feed.requests, 0);
    QVERIFY(checker.reminders.empty());
}
#endif

QTEST_MAIN(UpdateTest)
#include "UpdateTest.moc"
