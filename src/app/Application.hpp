#pragma once

// The program put together: the settings and the pairs from the settings folder, the Linux
// services, and the status manager that runs every pair. The tray shell and the headless
// program both stand on it; each brings its own main run loop.
//
// Made, shut down and destroyed on the main thread.

#include <filesystem>
#include <memory>

#include "control/NotificationManager.hpp"
#include "control/StatusManager.hpp"
#include "model/ConfigStore.hpp"
#include "model/FileUserDefaults.hpp"
#include "platform/DesktopNotifications.hpp"
#include "platform/LinuxPowerReadings.hpp"
#include "platform/LinuxUserActivity.hpp"
#include "platform/ProcRunningEditors.hpp"
#include "platform/ReconnectTriggers.hpp"
#include "support/ContinuousTimer.hpp"
#include "verify/IntegrityVerifier.hpp"
#include "verify/OffsiteSyncer.hpp"

namespace quillstow {

class Application {
  public:
    // Loads the settings and starts every pair.
    Application(MainQueue& mainQueue, const std::filesystem::path& settingsFolder);
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    // Stops and saves if that hasn't happened.
    ~Application();

    // The end, in two steps with the main queue's pending work run in between, so that what the
    // stopped runs handed to the main thread reaches the settings and the log: stop every pair
    // and wait for the background tasks; then write the settings and the log, and wait until
    // they are on disk.
    void stopEverything();
    void save();

    MainQueue& mainQueue() { return mainQueue_; }
    UserDefaults& userDefaults() { return defaults_; }
    ConfigStore& configStore() { return *configStore_; }
    StatusManager& statusManager() { return *statusManager_; }
    NotificationCenter& notificationCenter() { return notificationCenter_; }
    DesktopNotifications& desktopNotifications() { return notificationDelivery_; }
    NotificationManager& notificationManager() { return *notificationManager_; }

  private:
    MainQueue& mainQueue_;
    FileUserDefaults defaults_;
    std::shared_ptr<ConfigStore> configStore_;

    SystemWallClock wallClock_;
    MonotonicClock clock_;
    Sleeper sleeper_;
    LocalFileSystem fileSystem_;
    ProcRunningEditors editors_;
    LinuxUserActivity userActivity_;
    ActivityGate activityGate_{userActivity_, sleeper_};
    LinuxPowerReadings power_;
    NotificationCenter notificationCenter_;
    Volumes volumes_;
    std::unique_ptr<ReconnectTrigger> wakeTrigger_ = makeWakeTrigger();
    std::unique_ptr<ReconnectTrigger> screensWakeTrigger_ = makeScreensWakeTrigger();
    std::unique_ptr<ReconnectTrigger> networkUpTrigger_ = makeNetworkTrigger();
    // The queue's limit on a job and the time of the daily summary, through suspend.
    ContinuousTimer timers_;
    DesktopNotifications notificationDelivery_{mainQueue_, timers_, wallClock_};
    std::shared_ptr<NotificationManager> notificationManager_;
    IntegrityVerifier integrityVerifier_{wallClock_};
    OffsiteSyncer offsiteSyncer_{fileSystem_, activityGate_, sleeper_, clock_};
    std::unique_ptr<BackupServices> services_;
    // After everything its tasks use, so that it goes first and waits for them.
    TaskRunner tasks_;
    std::unique_ptr<StatusManager> statusManager_;
    bool isStopped_ = false;
};

}  // namespace quillstow
