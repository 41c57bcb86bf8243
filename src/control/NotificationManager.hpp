#pragma once

// What the user is told of the engines' work, filtered by the notification level of the
// settings: errors, full drives, a growing archive and lost drives as they happen, completed
// passes one by one or as a daily summary at 8 p.m. The counts of the day live in memory only.
//
// Main thread only: the engines hop there before they report.

#include <memory>
#include <optional>
#include <string>

#include "control/EngineStages.hpp"
#include "model/ConfigStore.hpp"
#include "support/Clock.hpp"
#include "support/Dates.hpp"

namespace quillstow {

struct UserNotification {
    std::string identifier;
    std::string title;
    std::string body;
    // A button of its own beside the click that opens the program, where the desktop shows
    // buttons: the key the desktop answers with, and the button's words. Empty: none.
    std::string actionKey = {};
    std::string actionLabel = {};

    bool operator==(const UserNotification&) const = default;
};

// The desktop's notification service. Each operation throws Failure when the service can't
// take the notification.
class NotificationDelivery {
  public:
    virtual ~NotificationDelivery() = default;
    // Shows at once, with the default sound.
    virtual void deliver(const UserNotification& notification) = 0;
    // Shows at `at`, in place of a pending one with the same identifier.
    virtual void schedule(const UserNotification& notification, Date at) = 0;
    virtual void removePending(const std::string& identifier) = 0;
    // Where the desktop asks the user first; no Linux desktop does.
    virtual void requestAuthorization() {}
};

inline constexpr const char* dailySummaryIdentifier = "quillstow-daily-summary";

// The next 8 p.m. of the local clock after `now`: today's, or tomorrow's from 8 p.m. on.
Date nextDailySummaryTime(Date now);

// Whether two dates fall on one day of the local calendar.
bool isSameLocalDay(Date a, Date b);

// "3 backups completed, 1 error.", or "No backup activity today."
std::string dailySummaryBody(int backups, int errors);

class NotificationManager final : public Notifier {
  public:
    NotificationManager(std::weak_ptr<ConfigStore> configStore, NotificationDelivery& delivery,
                        const WallClock& clock);
    NotificationManager(const NotificationManager&) = delete;
    NotificationManager& operator=(const NotificationManager&) = delete;

    void notifyError(const std::string& pairName, const std::string& message) override;
    void notifyLowDisk(const std::string& pairName, std::int64_t available) override;
    void notifyTrashReminder(std::int64_t size) override;
    void notifyVolumeLost(const std::string& pairName) override;
    void notifyBackupComplete(const std::string& pairName, int fileCount,
                              const std::optional<std::string>& message) override;
    void requestPermission() override;

    int todayBackupCount() const { return todayBackupCount_; }
    int todayErrorCount() const { return todayErrorCount_; }

  private:
    NotificationLevel level() const;
    void deliver(const std::string& title, const std::string& body, const std::string& prefix);
    void resetIfNewDay();
    void scheduleDailySummary();

    const std::weak_ptr<ConfigStore> configStore_;
    NotificationDelivery& delivery_;
    const WallClock& clock_;
    const Logger log_{"app"};
    int todayBackupCount_ = 0;
    int todayErrorCount_ = 0;
    Date lastResetDate_;
    std::optional<Date> lastTrashReminderDate_;
};

}  // namespace quillstow
