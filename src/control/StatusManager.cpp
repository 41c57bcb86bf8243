#include "control/StatusManager.hpp"

#include "model/BookmarkManager.hpp"
#include "support/Paths.hpp"

namespace quillstow {

namespace fs = std::filesystem;

namespace {

std::string foldedCase(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    }
    return text;
}

}  // namespace

std::optional<std::string> mirrorFolderConflict(const BackupPair& pair,
                                                const std::vector<BackupPair>& pairs) {
    const fs::path root = paths::standardized(mirrorRootAt(pair.destinationURL));
    const fs::path folder = paths::appending(root, sanitizedFolderName(pair.name));
    const fs::path source = paths::standardized(pair.sourceURL);
    for (const auto& other : pairs) {
        if (other.id == pair.id) continue;
        // The same folder backed up twice to one place: both passes mirror the same files, and
        // neither finds anything of the other's to archive.
        if (!source.empty() && source == paths::standardized(other.sourceURL) &&
            root == paths::standardized(mirrorRootAt(other.destinationURL)) &&
            sanitizedFolderName(pair.name) == sanitizedFolderName(other.name)) {
            continue;
        }
        const fs::path otherRoot = paths::standardized(mirrorRootAt(other.destinationURL));
        const fs::path otherFolder = paths::appending(otherRoot, sanitizedFolderName(other.name));
        if (root == otherRoot && foldedCase(sanitizedFolderName(pair.name)) ==
                                     foldedCase(sanitizedFolderName(other.name))) {
            return "\"" + other.name +
                   "\" already backs up into this folder. Choose another destination or name.";
        }
        if (paths::isWithin(folder, otherFolder) || paths::isWithin(otherFolder, folder)) {
            return "This backup would overlap the backup of \"" + other.name +
                   "\". Choose another destination.";
        }
    }
    return std::nullopt;
}

bool liesOnVolume(const fs::path& url, const fs::path& volume) {
    return paths::isWithin(paths::standardized(url), paths::standardized(volume));
}

StatusManager::StatusManager(std::shared_ptr<ConfigStore> configStore,
                             const BackupServices& services, Scheduler& watchdogs,
                             std::shared_ptr<Notifier> notifier)
    : configStore_(std::move(configStore)),
      services_(services),
      backupQueue_(std::make_shared<BackupQueue>(watchdogs, services.tasks)),
      notifier_(notifier ? std::move(notifier) : std::make_shared<Notifier>()),
      volumeMonitor_(services.mainQueue, services.volumes.removableMediaRoots()) {
    services_.activityGate.setBandwidthMode(configStore_->appConfig().bandwidthMode);
    volumeMonitor_.onVolumeDidMount = [this](const fs::path& volume) { onVolumeDidMount(volume); };
    volumeMonitor_.onVolumeDidUnmount = [this](const fs::path& volume) {
        onVolumeDidUnmount(volume);
    };
    volumeMonitor_.isOfInterest = [this](const fs::path& volume) {
        return holdsADestination(volume);
    };
    volumeMonitor_.startMonitoring();
    for (const auto& pair : configStore_->pairs())
        createEngine(pair);
    refreshCopyRedundancy();
    rescheduleTimer();
    powerPollTimer_ = std::make_unique<RepeatingTimer>(services_.mainQueue, powerPollInterval,
                                                       [this] { powerPollTick(); });
    const auto unreachablePairs = [this] {
        std::vector<BackupPair> found;
        for (const auto& [id, engine] : engines_) {
            const auto pair = findPair(id);
            const bool isUnreachable =
                engine->status().kind() == BackupStatus::Case::destinationUnreachable;
            if (pair && isUnreachable) found.push_back(*pair);
        }
        return found;
    };
    volumeReconnector_ = std::make_unique<VolumeReconnector>(
        services_.mainQueue, services_.clock,
        std::make_shared<SystemDestinationProbe>(services_.volumes.removableMediaRoots(),
                                                 services_.gvfsMounter),
        services_.reconnectTriggers,
        VolumeReconnector::Owner{unreachablePairs, [this](const BackupPair& pair) {
                                     handleDestinationReconnected(pair.id, pair);
                                 }});
    volumeReconnector_->start();
    if (configStore_->appConfig().notificationLevel != NotificationLevel::nothing) {
        notifier_->requestPermission();
    }
}

StatusManager::~StatusManager() {
    volumeReconnector_.reset();
    if (scheduledTimer_) scheduledTimer_->invalidate();
    if (powerPollTimer_) powerPollTimer_->invalidate();
    stopAll();
    volumeMonitor_.stopMonitoring();
}

Subscription StatusManager::observeCopyRedundancy(Observers<Redundancies>::Observer observer) {
    return copyRedundancyObservers_.subscribe(std::move(observer));
}

void StatusManager::refreshCopyRedundancy() {
    Redundancies computed = computeCopyRedundancy(configStore_->pairs(), services_.volumes.mounts(),
                                                  services_.volumes.removableMediaRoots());
    if (computed == copyRedundancy_) return;
    copyRedundancy_ = std::move(computed);
    copyRedundancyObservers_.notify(copyRedundancy_);
}

bool StatusManager::holdsADestination(const fs::path& mountPoint) const {
    for (const auto& pair : configStore_->pairs()) {
        if (liesOnVolume(pair.destinationURL, mountPoint)) return true;
    }
    return false;
}

Subscription StatusManager::observeEngines(Observers<Engines>::Observer observer) {
    return enginesObservers_.subscribe(std::move(observer));
}

std::optional<BackupPair> StatusManager::findPair(const Uuid& id) const {
    for (const auto& pair : configStore_->pairs()) {
        if (pair.id == id) return pair;
    }
    return std::nullopt;
}

std::shared_ptr<BackupEngine> StatusManager::makeEngine(const Uuid& id) {
    auto engine = BackupEngine::make(id, services_);
    engine->setConfigStore(configStore_);
    engine->setBackupQueue(backupQueue_);
    engine->setNotifier(notifier_);
    return engine;
}

void StatusManager::createEngine(const BackupPair& pair) {
    if (const auto existing = engines_.find(pair.id); existing != engines_.end()) {
        existing->second->stop();
    }
    auto engine = makeEngine(pair.id);
    engines_[pair.id] = engine;
    enginesObservers_.notify(engines_);
    engine->start(pair);
}

std::optional<std::string> StatusManager::addPair(const BackupPair& pair) {
    if (auto refusal = mirrorFolderConflict(pair, configStore_->pairs())) return refusal;
    configStore_->addPair(pair);
    createEngine(pair);
    refreshCopyRedundancy();
    return std::nullopt;
}

void StatusManager::removePair(const Uuid& id) {
    if (const auto found = engines_.find(id); found != engines_.end()) {
        found->second->stop();
        engines_.erase(found);
        enginesObservers_.notify(engines_);
    }
    configStore_->removePair(id);
    refreshCopyRedundancy();
}

std::optional<std::string> StatusManager::relinkPair(const Uuid& id,
                                                     const fs::path& newDestinationURL) {
    auto relinked = findPair(id);
    if (!relinked) return std::nullopt;
    relinked->destinationURL = newDestinationURL;
    if (auto refusal = mirrorFolderConflict(*relinked, configStore_->pairs())) return refusal;
    if (const auto found = engines_.find(id); found != engines_.end()) {
        found->second->stop();
        engines_.erase(found);
    }
    std::optional<base64::Bytes> bookmark;
    try {
        bookmark = BookmarkManager::bookmarkData(newDestinationURL, false);
    } catch (const Failure& failure) {
        bookmarkLog_.error("Could not create destination bookmark for relink: %{public}s",
                           failure.error().description);
    }
    // Without a new bookmark the old one stays beside the new folder.
    configStore_->updatePair(id, [&](BackupPair& stored) {
        stored.destinationURL = newDestinationURL;
        if (!bookmark) return;
        stored.destinationBookmark = bookmark;
        stored.isEnabled = true;
    });
    if (!bookmark) {
        auto engine = makeEngine(id);
        engine->setStatus(
            BackupStatus::error(BackupError::bookmarkAccessDenied(newDestinationURL)));
        engines_[id] = engine;
        enginesObservers_.notify(engines_);
        return std::nullopt;
    }
    createEngine(*findPair(id));
    refreshCopyRedundancy();
    return std::nullopt;
}

void StatusManager::backupAllNow() {
    for (const auto& [id, engine] : engines_) {
        if (const auto pair = findPair(id)) {
            engine->cancelPendingChange();
            engine->triggerBackup(*pair);
        }
    }
}

void StatusManager::backupPairNow(const Uuid& id) {
    const auto found = engines_.find(id);
    const auto pair = findPair(id);
    if (found == engines_.end() || !pair) return;
    found->second->cancelPendingChange();
    found->second->triggerBackup(*pair);
}

void StatusManager::togglePausePair(const Uuid& id) {
    const auto found = engines_.find(id);
    if (found == engines_.end() || !findPair(id)) return;
    BackupEngine& engine = *found->second;
    const bool resumes = engine.status().kind() == BackupStatus::Case::paused;
    if (!resumes) {
        engine.stop();
        engine.setStatus(BackupStatus::paused());
    }
    configStore_->updatePair(id, [resumes](BackupPair& stored) { stored.isEnabled = resumes; });
    if (resumes) engine.start(*findPair(id));
}

void StatusManager::pauseAll() {
    for (const auto& [id, engine] : engines_) {
        engine->stop();
        engine->setStatus(BackupStatus::paused());
    }
}

void StatusManager::resumeAll() {
    for (const auto& [id, engine] : engines_) {
        if (const auto pair = findPair(id); pair && pair->isEnabled) engine->start(*pair);
    }
}

void StatusManager::rescheduleTimer() {
    services_.activityGate.setBandwidthMode(configStore_->appConfig().bandwidthMode);
    if (scheduledTimer_) scheduledTimer_->invalidate();
    scheduledTimer_.reset();
    const auto seconds = timerSeconds(configStore_->appConfig().backupInterval);
    if (!seconds) return;
    // A tick doesn't ask whether a pair is paused: the trigger has no test of isEnabled.
    scheduledTimer_ =
        std::make_unique<RepeatingTimer>(services_.mainQueue, *seconds, [this] { backupAllNow(); });
}

void StatusManager::stopAll() {
    for (const auto& [id, engine] : engines_)
        engine->stop();
    engines_.clear();
    enginesObservers_.notify(engines_);
}

void StatusManager::powerPollTick() {
    if (powerPauseReason(services_.power)) return;
    for (const auto& [id, engine] : engines_) {
        if (engine->status().kind() != BackupStatus::Case::paused) continue;
        // A pair the user paused is disabled and stays as it is.
        if (const auto pair = findPair(id); pair && pair->isEnabled) {
            engine->cancelPendingChange();
            engine->triggerBackup(*pair);
        }
    }
}

BackupStatus StatusManager::overallStatus() const {
    using Case = BackupStatus::Case;
    if (engines_.empty()) return BackupStatus::idle();
    const auto any = [&](Case kind) {
        for (const auto& [id, engine] : engines_) {
            if (engine->status().kind() == kind) return true;
        }
        return false;
    };
    for (const auto& [id, engine] : engines_) {
        if (engine->status().kind() == Case::error) return engine->status();
    }
    if (any(Case::destinationUnreachable)) return BackupStatus::destinationUnreachable();
    const BackupStatus* furthest = nullptr;
    for (const auto& [id, engine] : engines_) {
        const BackupStatus& status = engine->status();
        if (status.kind() == Case::syncing &&
            (!furthest || status.progress() > furthest->progress())) {
            furthest = &status;
        }
    }
    if (furthest) return *furthest;
    if (any(Case::scanning)) return BackupStatus::scanning();
    if (any(Case::queued)) return BackupStatus::queued();
    const BackupStatus* largest = nullptr;
    for (const auto& [id, engine] : engines_) {
        const BackupStatus& status = engine->status();
        if (status.kind() == Case::completed &&
            (!largest || status.fileCount() > largest->fileCount())) {
            largest = &status;
        }
    }
    if (largest) return *largest;
    if (any(Case::paused)) return BackupStatus::paused();
    return BackupStatus::idle();
}

std::string StatusManager::statusText() const {
    using Case = BackupStatus::Case;
    if (engines_.empty()) return "No backup pairs configured";
    int attention = 0;
    int active = 0;
    for (const auto& [id, engine] : engines_) {
        const Case kind = engine->status().kind();
        attention += kind == Case::error || kind == Case::destinationUnreachable;
        active += kind == Case::syncing || kind == Case::scanning || kind == Case::queued;
    }
    if (attention >= 1) {
        return std::to_string(attention) + " of " + std::to_string(engines_.size()) +
               " pair(s) need attention";
    }
    if (active >= 1) return "Backup in progress…";
    return overallStatus().displayText();
}

void StatusManager::addVolumeEvent(const Uuid& pairId, BackupEvent::EventType type) {
    BackupEvent event;
    event.id = Uuid::random();
    event.pairId = pairId;
    event.timestamp = services_.wallClock.now();
    event.type = type;
    configStore_->addEvent(event);
}

void StatusManager::restoreAfterMount(BackupEngine& engine, const BackupPair& pair) {
    if (engine.status().kind() != BackupStatus::Case::destinationUnreachable) return;
    addVolumeEvent(pair.id, BackupEvent::EventType::volumeRestored);
    // A start, not a trigger alone: the unmount stopped the watcher with the engine, and a
    // pair left without one would not hear its source again until the program restarts. The
    // start resolves the bookmarks and runs the pass.
    engine.start(pair);
}

void StatusManager::onVolumeDidMount(const fs::path& volume) {
    for (const auto& [id, engine] : engines_) {
        const auto pair = findPair(id);
        if (pair && liesOnVolume(pair->destinationURL, volume)) restoreAfterMount(*engine, *pair);
    }
    refreshCopyRedundancy();
}

void StatusManager::onVolumeDidUnmount(const fs::path& volume) {
    for (const auto& [id, engine] : engines_) {
        const auto pair = findPair(id);
        if (!pair || !liesOnVolume(pair->destinationURL, volume)) continue;
        engine->stop();
        engine->setStatus(BackupStatus::destinationUnreachable());
        addVolumeEvent(id, BackupEvent::EventType::volumeLost);
        notifier_->notifyVolumeLost(pair->name);
    }
    refreshCopyRedundancy();
}

void StatusManager::handleDestinationReconnected(const Uuid& pairId, const BackupPair& pair) {
    if (const auto found = engines_.find(pairId); found != engines_.end()) {
        restoreAfterMount(*found->second, pair);
    }
}

}  // namespace quillstow
