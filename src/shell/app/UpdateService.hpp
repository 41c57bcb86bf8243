#pragma once

// The update reminder of a source build: nothing replaces the program, which the package
// manager or the user updates. Only after the user turned "Auto-check for Updates" on, or
// chose "Check for Updates Now", it reads the release feed (HTTPS only), compares the version
// with the build's, and hands a newer release to the reminder, once per release: one quiet
// notification. The gentle-reminder delegate posts the two in-process notifications around it.
//
// Main thread only. The scheduled checks wait on the main queue, so tests move their time.

#include <QObject>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>

#include "app/UpdateFeed.hpp"
#include "support/Clock.hpp"
#include "support/MainQueue.hpp"
#include "support/NotificationCenter.hpp"
#include "support/UserDefaults.hpp"

class QNetworkAccessManager;
class QNetworkReply;

namespace quillstow::shell {

inline constexpr const char* updateReminderActiveNotification =
    "io.quillstow.sparkleUpdateReminderActive";
inline constexpr const char* updateReminderClearedNotification =
    "io.quillstow.sparkleUpdateReminderCleared";

// Opts in to gentle reminders: an update found by a scheduled check is told quietly, never by
// a window in front of the user's work.
class GentleReminderDelegate {
  public:
    explicit GentleReminderDelegate(NotificationCenter& center) : center_(center) {}
    bool supportsGentleScheduledUpdateReminders() const { return true; }
    void willHandleShowingUpdate(const Release&) { center_.post(updateReminderActiveNotification); }
    void willFinishUpdateSession() { center_.post(updateReminderClearedNotification); }

  private:
    NotificationCenter& center_;
};

class UpdateService final : public QObject {
    Q_OBJECT

  public:
    struct Settings {
        QUrl feed;
        std::string currentVersion;
        // Plain HTTP to a loopback address: the tests' local feed, never the program's.
        bool allowLoopbackHttp = false;
        double checkInterval = 24 * 60 * 60;
    };
    enum class Outcome { newer, upToDate, failed };

    using Reminder = std::function<void(const Release&)>;

    UpdateService(Settings settings, UserDefaults& defaults, MainQueue& mainQueue,
                  const WallClock& clock, GentleReminderDelegate& delegate, Reminder remind,
                  QObject* parent = nullptr);
    ~UpdateService() override;

    bool automaticallyChecksForUpdates() const;
    // Takes effect at once: on, a check is scheduled; off, the scheduled one is dropped.
    void setAutomaticallyChecksForUpdates(bool on);
    // The user's own check: it reminds even of a release it reminded of before.
    void checkForUpdates();

  signals:
    // After every check, with the error's words when it failed.
    void checked(Outcome outcome, const QString& detail, bool userInitiated);

  private:
    void scheduleNextCheck();
    void check(bool userInitiated);
    void finish(QNetworkReply* reply, bool userInitiated);

    const Settings settings_;
    UserDefaults& defaults_;
    MainQueue& mainQueue_;
    const WallClock& clock_;
    GentleReminderDelegate& delegate_;
    Reminder remind_;
    std::unique_ptr<QNetworkAccessManager> network_;
    DelayedWork scheduled_;
    bool isChecking_ = false;
};

}  // namespace quillstow::shell
