#include "app/Application.hpp"

#include "app/AllocatorTuning.hpp"
#include "environment/NestingMigration.hpp"
#include "platform/GioMounter.hpp"
#include "platform/InotifyWatcher.hpp"

namespace quillstow {

Application::Application(MainQueue& mainQueue, const std::filesystem::path& settingsFolder)
    : mainQueue_(mainQueue),
      defaults_(settingsFolder / "defaults.json"),
      configStore_(std::make_shared<ConfigStore>(settingsFolder, mainQueue, defaults_)) {
    // Before any pass: the thresholds hold for every arena from then on.
    tuneAllocatorForLongIdles();
    services_ = std::make_unique<BackupServices>(BackupServices{
        .mainQueue = mainQueue_,
        .wallClock = wallClock_,
        .clock = clock_,
        .sleeper = sleeper_,
        .tasks = tasks_,
        .fileSystem = fileSystem_,
        .editors = editors_,
        .activityGate = activityGate_,
        .power = power_,
        .defaults = defaults_,
        .notificationCenter = notificationCenter_,
        .volumes = volumes_,
        .makeFileWatcher = [this] { return std::make_unique<InotifyWatcher>(mainQueue_); },
        .integrity = &integrityVerifier_,
        .offsite = &offsiteSyncer_,
        .reconnectTriggers = {wakeTrigger_.get(), screensWakeTrigger_.get(),
                              networkUpTrigger_.get()},
        .gvfsMounter = std::make_shared<GioMounter>(),
    });
    // Before any engine exists, so that nothing else touches the folders it moves.
    NestingMigration::run(configStore_->pairs());
    notificationManager_ =
        std::make_shared<NotificationManager>(configStore_, notificationDelivery_, wallClock_);
    statusManager_ =
        std::make_unique<StatusManager>(configStore_, *services_, timers_, notificationManager_);
}

Application::~Application() {
    if (!isStopped_) {
        stopEverything();
        save();
    }
    statusManager_.reset();
}

void Application::stopEverything() {
    isStopped_ = true;
    statusManager_->stopAll();
    statusManager_->volumeMonitor().stopMonitoring();
    tasks_.waitUntilIdle();
}

void Application::save() {
    configStore_->save();
    // The end waits for the disk: the writes are the store's writer's.
    configStore_->flush();
}

}  // namespace quillstow
