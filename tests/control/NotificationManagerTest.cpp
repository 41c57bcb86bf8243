// What the user is told, by level: errors and drives at once, completed passes one by one or
// counted in the daily summary at 8 p.m., the trash reminder only when wanted, and nothing at all
// at "nothing".

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "TestTree.hpp"
#include "control/NotificationManager.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;

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

    // "title: body" of each delivered notification, joined by " | ".
    std::string shown() const {
        std::string lines;
        for (const auto& each : delivered)
            lines += (lines.empty() ? "" : " | ") + each.title + ": " + each.body;
        return lines;
    }

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
};

TEST_F(NotificationManagerTest, EachLevelShowsItsShareAndTheSummaryCountsTheDay) {
    const std::string problems =
        "Backup Problem: Work — 2 of 5 files couldn't be backed up. | Backup Drive Almost Full: "
        "Work — only 12.3 MB left on the backup drive. | Backup Trash Using 1.3 GB: Old versions "
        "of deleted files are still on your backup drive. You can review them in your file "
        "manager. | Backup Drive Disconnected: Work can't back up until the drive is reconnected.";
    const struct {
        const char* name;
        NotificationLevel level;
        bool trashReminder;
        std::string shown;
        std::string summary;
    } rows[] = {
        {"errors only", NotificationLevel::errorsOnly, true, problems, ""},
        {"errors only, no reminder", NotificationLevel::errorsOnly, false,
         problems.substr(0, problems.find(" | Backup Trash")) +
             problems.substr(problems.find(" | Backup Drive Disc")),
         ""},
        {"every backup", NotificationLevel::everyBackup, true,
         problems +
             " | Backup Complete: Work — 1 file backed up. | Backup Complete: Film — 3 files "
             "backed up. A tip.",
         ""},
        {"daily summary", NotificationLevel::dailySummary, true, problems,
         "2 backups completed, 1 error."},
        {"nothing", NotificationLevel::nothing, true, "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        RecordingDelivery delivery;
        NotificationManager manager{store, delivery, wallClock};
        setLevel(row.level, row.trashReminder);
        manager.notifyError("Work", "2 of 5 files couldn't be backed up.");
        manager.notifyLowDisk("Work", 12'345'678);
        manager.notifyTrashReminder(1'300'000'000);
        manager.notifyVolumeLost("Work");
        manager.notifyBackupComplete("Work", 1, std::nullopt);
        manager.notifyBackupComplete("Film", 3, "3 files backed up. A tip.");
        EXPECT_EQ(delivery.shown(), row.shown);
        // Each new summary replaces the pending one; errors are counted, not rescheduled.
        EXPECT_EQ(delivery.scheduled.size(), row.summary.empty() ? 0u : 2u);
        EXPECT_EQ(delivery.removed.size(), delivery.scheduled.size());
        if (row.summary.empty()) continue;
        EXPECT_EQ(delivery.scheduled.back().first,
                  (UserNotification{dailySummaryIdentifier, "Daily Backup Summary", row.summary}));
        EXPECT_EQ(delivery.scheduled.back().second, localTime(20));
    }
}

}  // namespace
}  // namespace quillstow
