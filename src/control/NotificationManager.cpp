#include "control/NotificationManager.hpp"

#include <ctime>

#include "support/ByteCount.hpp"
#include "support/Uuid.hpp"

namespace quillstow {

namespace {

constexpr int summaryHour = 20;

std::tm localTimeOf(Date date) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(
        std::chrono::time_point_cast<std::chrono::system_clock::duration>(date));
    std::tm local{};
    ::localtime_r(&seconds, &local);
    return local;
}

Date dateOf(std::tm local) {
    local.tm_isdst = -1;  // as the calendar has it on that day
    return std::chrono::time_point_cast<std::chrono::nanoseconds>(
        std::chrono::system_clock::from_time_t(std::mktime(&local)));
}

std::string counted(int count, const char* singular, const char* plural) {
    return std::to_string(count) + " " + (count == 1 ? singular : plural);
}

}  // namespace

Date nextDailySummaryTime(Date now) {
    std::tm evening = localTimeOf(now);
    evening.tm_hour = summaryHour;
    evening.tm_min = 0;
    evening.tm_sec = 0;
    Date next = dateOf(evening);
    if (next <= now) {
        evening.tm_mday += 1;
        next = dateOf(evening);
    }
    return next;
}

bool isSameLocalDay(Date a, Date b) {
    const std::tm first = localTimeOf(a);
    const std::tm second = localTimeOf(b);
    return first.tm_year == second.tm_year && first.tm_yday == second.tm_yday;
}

std::string dailySummaryBody(int backups, int errors) {
    std::string body;
    if (backups >= 1) body = counted(backups, "backup completed", "backups completed");
    if (errors >= 1) body += (body.empty() ? "" : ", ") + counted(errors, "error", "errors");
    return body.empty() ? "No backup activity today." : body + ".";
}

NotificationManager::NotificationManager(std::weak_ptr<ConfigStore> configStore,
                                         NotificationDelivery& delivery, const WallClock& clock)
    : configStore_(std::move(configStore)),
      delivery_(delivery),
      clock_(clock),
      lastResetDate_(clock.now()) {}

NotificationLevel NotificationManager::level() const {
    const auto store = configStore_.lock();
    return store ? store->appConfig().notificationLevel : NotificationLevel::errorsOnly;
}

void NotificationManager::deliver(const std::string& title, const std::string& body,
                                  const std::string& prefix) {
    try {
        delivery_.deliver({prefix + Uuid::random().text(), title, body});
    } catch (const Failure& failure) {
        log_.error("Failed to deliver notification: %{public}s", failure.error().description);
    }
}

void NotificationManager::resetIfNewDay() {
    const Date now = clock_.now();
    if (isSameLocalDay(lastResetDate_, now)) return;
    todayBackupCount_ = 0;
    todayErrorCount_ = 0;
    lastResetDate_ = now;
}

void NotificationManager::notifyError(const std::string& pairName, const std::string& message) {
    const NotificationLevel current = level();
    if (current == NotificationLevel::nothing) return;
    if (current == NotificationLevel::dailySummary) {
        resetIfNewDay();
        ++todayErrorCount_;
    }
    deliver("Backup Problem", pairName + " — " + message, "error-");
}

void NotificationManager::notifyLowDisk(const std::string& pairName, std::int64_t available) {
    if (level() == NotificationLevel::nothing) return;
    deliver("Backup Drive Almost Full",
            pairName + " — only " + formatByteCount(available) + " left on the backup drive.",
            "disk-low-");
}

void NotificationManager::notifyTrashReminder(std::int64_t size) {
    if (level() == NotificationLevel::nothing) return;
    const auto store = configStore_.lock();
    if (!store || !store->appConfig().trashReminderEnabled) return;
    const Date now = clock_.now();
    if (lastTrashReminderDate_ && isSameLocalDay(*lastTrashReminderDate_, now)) return;
    lastTrashReminderDate_ = now;
    deliver("Backup Trash Using " + formatByteCount(size),
            "Old versions of deleted files are still on your backup drive. You can review them in "
            "your file manager.",
            "trash-reminder-");
}

void NotificationManager::notifyVolumeLost(const std::string& pairName) {
    if (level() == NotificationLevel::nothing) return;
    deliver("Backup Drive Disconnected",
            pairName + " can't back up until the drive is reconnected.", "volume-lost-");
}

void NotificationManager::notifyBackupComplete(const std::string& pairName, int fileCount,
                                               const std::optional<std::string>& message) {
    switch (level()) {
        case NotificationLevel::dailySummary:
            resetIfNewDay();
            ++todayBackupCount_;
            scheduleDailySummary();
            return;
        case NotificationLevel::everyBackup:
            deliver("Backup Complete",
                    pairName + " — " +
                        message.value_or(counted(fileCount, "file", "files") + " backed up."),
                    "backup-");
            return;
        case NotificationLevel::errorsOnly:
        case NotificationLevel::nothing:
            return;
    }
}

void NotificationManager::scheduleDailySummary() {
    try {
        delivery_.removePending(dailySummaryIdentifier);
        delivery_.schedule({dailySummaryIdentifier, "Daily Backup Summary",
                            dailySummaryBody(todayBackupCount_, todayErrorCount_)},
                           nextDailySummaryTime(clock_.now()));
    } catch (const Failure& failure) {
        log_.error("Failed to schedule daily summary: %{public}s", failure.error().description);
    }
}

void NotificationManager::requestPermission() {
    if (level() == NotificationLevel::nothing) return;
    try {
        delivery_.requestAuthorization();
    } catch (const Failure& failure) {
        log_.error("Notification permission request failed: %{public}s",
                   failure.error().description);
    }
}

}  // namespace quillstow
