#pragma once

// The top of the control layer: one engine per pair, the one queue, the scheduled backups and
// the poll that resumes what the power gate paused, and the reconnector that brings back
// destinations that went with a sleep or a change of network. The user interface starts, stops,
// adds, removes and relinks pairs through it alone, and reads from it the one status and the one
// line that stand for all pairs.
//
// Main thread only. Copying is deleted.

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "control/BackupEngine.hpp"
#include "control/BackupQueue.hpp"
#include "control/BackupServices.hpp"
#include "control/CopyRedundancy.hpp"
#include "environment/VolumeMonitor.hpp"
#include "model/ConfigStore.hpp"
#include "support/RepeatingTimer.hpp"

namespace quillstow {

class StatusManager {
  public:
    using Engines = std::map<Uuid, std::shared_ptr<BackupEngine>>;

    // Starts watching the volumes, an engine for every pair, the scheduled timer and the power
    // poll. `watchdogs` times the queue's limit on a job; `notifier` tells the user.
    StatusManager(std::shared_ptr<ConfigStore> configStore, const BackupServices& services,
                  Scheduler& watchdogs, std::shared_ptr<Notifier> notifier = nullptr);
    StatusManager(const StatusManager&) = delete;
    StatusManager& operator=(const StatusManager&) = delete;
    // Ends the timers, every engine and the watch on the volumes.
    ~StatusManager();

    // Adds and starts the pair, or refuses it, saying why, when its mirror folder would be
    // another pair's (see mirrorFolderConflict); a refused pair is not stored.
    [[nodiscard]] std::optional<std::string> addPair(const BackupPair& pair);
    void removePair(const Uuid& id);
    // Points the pair at a new destination and starts it afresh there; refuses as addPair
    // does, leaving the pair and its engine as they were.
    [[nodiscard]] std::optional<std::string> relinkPair(
        const Uuid& id, const std::filesystem::path& newDestinationURL);
    void backupAllNow();
    void backupPairNow(const Uuid& id);
    void togglePausePair(const Uuid& id);
    // Stops every engine and shows it paused, leaving the pairs enabled: the next power poll
    // resumes them.
    void pauseAll();
    void resumeAll();
    // Applies the bandwidth mode and the backup interval of the settings.
    void rescheduleTimer();
    void stopAll();

    BackupStatus overallStatus() const;
    std::string statusText() const;

    // A volume came or went at this mount point.
    void onVolumeDidMount(const std::filesystem::path& volume);
    void onVolumeDidUnmount(const std::filesystem::path& volume);
    void handleDestinationReconnected(const Uuid& pairId, const BackupPair& pair);

    const Engines& engines() const { return engines_; }
    [[nodiscard]] Subscription observeEngines(Observers<Engines>::Observer observer);
    using Redundancies = std::map<Uuid, CopyRedundancy>;
    const Redundancies& copyRedundancy() const { return copyRedundancy_; }
    [[nodiscard]] Subscription observeCopyRedundancy(Observers<Redundancies>::Observer observer);
    VolumeMonitor& volumeMonitor() { return volumeMonitor_; }
    ConfigStore& configStore() const { return *configStore_; }
    const std::shared_ptr<BackupQueue>& backupQueue() const { return backupQueue_; }

  private:
    std::optional<BackupPair> findPair(const Uuid& id) const;
    void createEngine(const BackupPair& pair);
    std::shared_ptr<BackupEngine> makeEngine(const Uuid& id);
    void powerPollTick();
    void restoreAfterMount(BackupEngine& engine, const BackupPair& pair);
    void addVolumeEvent(const Uuid& pairId, BackupEvent::EventType type);
    void refreshCopyRedundancy();
    bool holdsADestination(const std::filesystem::path& mountPoint) const;

    const std::shared_ptr<ConfigStore> configStore_;
    const BackupServices& services_;
    const std::shared_ptr<BackupQueue> backupQueue_;
    const std::shared_ptr<Notifier> notifier_;
    VolumeMonitor volumeMonitor_;
    Engines engines_;
    Observers<Engines> enginesObservers_;
    Redundancies copyRedundancy_;
    Observers<Redundancies> copyRedundancyObservers_;
    std::unique_ptr<RepeatingTimer> scheduledTimer_;
    std::unique_ptr<RepeatingTimer> powerPollTimer_;
    std::unique_ptr<VolumeReconnector> volumeReconnector_;
    const Logger bookmarkLog_{"Bookmark"};
};

// Why `pair` can't stand beside `pairs`: its mirror folder is another pair's, or lies inside
// another's or around it, so that the passes of both would archive each other's files. The
// names are compared without case, since FAT and exFAT drives fold it. Nothing when it can,
// and nothing for the same source under the same name: a folder added twice.
std::optional<std::string> mirrorFolderConflict(const BackupPair& pair,
                                                const std::vector<BackupPair>& pairs);

// Whether a URL lies on the volume mounted at `volume`: the same path, or one below it.
bool liesOnVolume(const std::filesystem::path& url, const std::filesystem::path& volume);

}  // namespace quillstow
