// What the user is told, by level: errors and drives at once, completed passes one by one or in
// the daily summary at 8 p.m., the trash reminder once a day, and nothing at all at "nothing".

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "LogCapture.hpp"
#include "TestTree.hpp"
#include "control/NotificationManager.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
using ::testing::ElementsAre;

class RecordingDelivery final : public NotificationDelivery {
  public:
    void deliver(const UserNotification& notification) override {
        if (fails) throw Failure(Error{"DBus", 1, "The name is not activatable"});
        delivered.push_back(notification);
    }
    void schedule(const UserNotification& notification, Date at) override {
        scheduled.emplace_back(notification, at);
    }
    void removePending(const std::string& identifier) override { removed.push_back(identifier); }

    std::vector<UserNotification> delivered;
    std::vector<std::pair<UserNotification, Date>> scheduled;
    std::vector<std::string> removed;
    bool fails = false;
};

// Local time in a fixed zone of Central Europe, whatever the machine's.
class LocalTimeZone {
  public:
    LocalTimeZone() {
        ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        ::tzset();
    }
    ~LocalTimeZone() {
        ::unsetenv("TZ");
        ::tzset();
    }
};

// 2026-11-23 at the given local time (UTC+1 in November).
Date localTime(int hour, int minute = 0, int day = 23) {
    return sys_days{2026y / November / day} + hours(hour - 1) + minutes(minute);
}

class NotificationManagerTest : public ::testing::Test {
  protected:
    LocalTimeZone zone;
    TemporaryFolder root;
    ManualClock clock;
    VirtualMainQueue queue{clock};
    InMemoryUserDefaults defaults;
    std::shared_ptr<ConfigStore> store =
        std::make_shared<ConfigStore>(root / "settings", queue, defaults);
    ManualWallClock wallClock{localTime(9)};
    RecordingDelivery delivery;
    NotificationManager manager{store, delivery, wallClock};

    void setLevel(NotificationLevel level, bool trashReminder = true) {
        AppConfig config = store->appConfig();
        config.notificationLevel = level;
        config.trashReminderEnabled = trashReminder;
        store->setAppConfig(config);
    }

    void sendOneOfEach() {
        manager.notifyError("Work", "2 of 5 files couldn't be backed up.");
        manager.notifyLowDisk("Work", 12'345'678);
        manager.notifyTrashReminder(1'300'000'000);
        manager.notifyVolumeLost("Work");
        manager.notifyBackupComplete("Work", 3, std::nullopt);
    }

    std::vector<std::string> titles() const {
        std::vector<std::string> found;
        for (const auto& notification : delivery.delivered)
            found.push_back(notification.title);
        return found;
    }
};

TEST_F(NotificationManagerTest, ErrorsOnlySendsEverythingButCompletedPasses) {
    sendOneOfEach();
    EXPECT_THAT(titles(), ElementsAre("Backup Problem", "Backup Drive Almost Full",
                                      "Backup Trash Using 1.3 GB", "Backup Drive Disconnected"));
    const auto& sent = delivery.delivered;
    EXPECT_EQ(sent[0].body, "Work — 2 of 5 files couldn't be backed up.");
    EXPECT_EQ(sent[1].body, "Work — only 12.3 MB left on the backup drive.");
    EXPECT_EQ(sent[2].body,
              "Old versions of deleted files are still on your backup drive. You can review them "
              "in your file manager.");
    EXPECT_EQ(sent[3].body, "Work can't back up until the drive is reconnected.");
    EXPECT_NE(sent[0].identifier, sent[1].identifier) << "none replaces another";
    manager.notifyError("Work", "again");
    EXPECT_NE(delivery.delivered.back().identifier, sent[0].identifier) << "nor a second error";
    EXPECT_EQ(manager.todayErrorCount(), 0) << "no counting outside the summary level";
    EXPECT_TRUE(delivery.scheduled.empty());
}

TEST_F(NotificationManagerTest, EveryBackupSendsCompletedPassesWithTheirMessage) {
    setLevel(NotificationLevel::everyBackup);
    manager.notifyBackupComplete("Work", 1, std::nullopt);
    manager.notifyBackupComplete("Work", 0, std::nullopt);
    manager.notifyBackupComplete("Film", 3, "3 files backed up. A tip.");
    ASSERT_EQ(delivery.delivered.size(), 3u);
    EXPECT_EQ(delivery.delivered[0].title, "Backup Complete");
    EXPECT_EQ(delivery.delivered[0].body, "Work — 1 file backed up.");
    EXPECT_EQ(delivery.delivered[1].body, "Work — 0 files backed up.");
    EXPECT_EQ(delivery.delivered[2].body, "Film — 3 files backed up. A tip.");
}

TEST_F(NotificationManagerTest, NothingSendsNothingAndCountsNothing) {
    setLevel(NotificationLevel::nothing);
    sendOneOfEach();
    EXPECT_TRUE(delivery.delivered.empty());
    EXPECT_TRUE(delivery.scheduled.empty());
    EXPECT_EQ(manager.todayBackupCount(), 0);
    EXPECT_EQ(manager.todayErrorCount(), 0);
}

TEST_F(NotificationManagerTest, TheDailySummaryCountsThePassesAndTheErrorsBeforeTheLastPass) {
    setLevel(NotificationLevel::dailySummary);
    manager.notifyBackupComplete("Work", 3, std::nullopt);
    ASSERT_EQ(delivery.scheduled.size(), 1u);
    EXPECT_EQ(delivery.scheduled[0].first,
              (UserNotification{"quillstow-daily-summary", "Daily Backup Summary",
                                "1 backup completed."}));
    EXPECT_EQ(delivery.scheduled[0].second, localTime(20));

    manager.notifyBackupComplete("Work", 1, std::nullopt);
    manager.notifyError("Film", "1 of 2 files couldn't be backed up.");
    manager.notifyBackupComplete("Film", 1, std::nullopt);
    EXPECT_EQ(delivery.scheduled.back().first.body, "3 backups completed, 1 error.");
    EXPECT_EQ(delivery.removed.size(), 3u) << "each new summary replaces the pending one";
    EXPECT_THAT(titles(), ElementsAre("Backup Problem")) << "an error is sent at once as well";

    manager.notifyError("Film", "again");
    EXPECT_EQ(delivery.scheduled.size(), 3u) << "errors don't reschedule";
}

// The summary is for eight this evening, or the next once it is eight; the counts start afresh
// with the first counted event of a new day, not at midnight by themselves.
TEST_F(NotificationManagerTest, TheSummaryIsForTheNextEightOClockWithTheCountsOfItsDay) {
    setLevel(NotificationLevel::dailySummary);
    wallClock.set(localTime(19, 59));
    manager.notifyBackupComplete("Work", 1, std::nullopt);
    manager.notifyError("Work", "x");
    EXPECT_EQ(delivery.scheduled.back().second, localTime(20));
    wallClock.set(localTime(20, 0));
    manager.notifyBackupComplete("Work", 1, std::nullopt);
    EXPECT_EQ(delivery.scheduled.back().second, localTime(20, 0, 24));
    EXPECT_EQ(delivery.scheduled.back().first.body, "2 backups completed, 1 error.")
        << "with the counts of today";

    wallClock.set(localTime(0, 30, 24));
    EXPECT_EQ(manager.todayBackupCount(), 2) << "not reset at midnight by itself";
    manager.notifyBackupComplete("Work", 1, std::nullopt);
    EXPECT_EQ(manager.todayBackupCount(), 1);
    EXPECT_EQ(manager.todayErrorCount(), 0);
    EXPECT_EQ(delivery.scheduled.back().first.body, "1 backup completed.");
    EXPECT_EQ(dailySummaryBody(0, 0), "No backup activity today.");
    EXPECT_EQ(dailySummaryBody(0, 2), "2 errors.");
}

TEST_F(NotificationManagerTest, TheTrashReminderComesOnceADayAndOnlyWhenWanted) {
    manager.notifyTrashReminder(2'000'000'000);
    wallClock.set(localTime(23, 59));
    manager.notifyTrashReminder(2'000'000'000);
    EXPECT_EQ(delivery.delivered.size(), 1u) << "the second of a day is dropped";
    wallClock.set(localTime(0, 1, 24));
    manager.notifyTrashReminder(2'000'000'000);
    EXPECT_EQ(delivery.delivered.size(), 2u) << "the next day it comes again";

    setLevel(NotificationLevel::errorsOnly, false);
    wallClock.set(localTime(12, 0, 25));
    manager.notifyTrashReminder(2'000'000'000);
    EXPECT_EQ(delivery.delivered.size(), 2u);
}

TEST_F(NotificationManagerTest, WithoutTheSettingsTheLevelIsErrorsOnlyAndNoReminderComes) {
    NotificationManager orphan(std::weak_ptr<ConfigStore>(), delivery, wallClock);
    orphan.notifyError("Work", "x");
    orphan.notifyBackupComplete("Work", 1, std::nullopt);
    orphan.notifyTrashReminder(2'000'000'000);
    EXPECT_THAT(titles(), ElementsAre("Backup Problem"));
}

TEST_F(NotificationManagerTest, ANotificationThatCannotBeDeliveredIsLoggedAndDropped) {
    LogCapture log;
    delivery.fails = true;
    manager.notifyVolumeLost("Work");
    EXPECT_THAT(log.messages("app"),
                ElementsAre("Failed to deliver notification: The name is not activatable"));
}

TEST(DailySummaryTime, IsTheNextEightOClockOfTheLocalClockAcrossTheChangeOfTime) {
    LocalTimeZone zone;
    // The last Sunday of March: at 2 a.m. the clock jumps to 3; 8 p.m. is then UTC+2.
    const Date morning = sys_days{2026y / March / 29} + hours(6);
    EXPECT_EQ(nextDailySummaryTime(morning), sys_days{2026y / March / 29} + hours(18));
    EXPECT_TRUE(isSameLocalDay(sys_days{2026y / March / 29} + hours(1),
                               sys_days{2026y / March / 29} + hours(21)));
    EXPECT_FALSE(isSameLocalDay(sys_days{2026y / March / 29} + hours(21) + minutes(59),
                                sys_days{2026y / March / 29} + hours(22)));
}

}  // namespace
}  // namespace quillstow
