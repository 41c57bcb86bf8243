#include "control/BackupEngine.hpp"

#include <malloc.h>

#include "copy/DeletionArchive.hpp"
#include "copy/PathRules.hpp"
#include "copy/SourceListing.hpp"
#include "model/BookmarkManager.hpp"
#include "model/Tips.hpp"
#include "support/FileInfo.hpp"
#include "support/Paths.hpp"

namespace quillstow {

namespace fs = std::filesystem;

namespace {

// The allocator keeps what a run freed for the next allocation; a run's plan and hash database
// are most of what the program ever holds, and between runs it idles for hours. The trim gives
// back the free pages inside every arena; an arena's free top goes back by itself only where the
// program fixed the allocator's thresholds (app/AllocatorTuning).
void returnFreedMemory() {
    ::malloc_trim(0);
}

// Gives the memory back when the run ends, whichever way: declared before what it outlives.
struct MemoryGivenBackAtExit {
    MemoryGivenBackAtExit() = default;
    MemoryGivenBackAtExit(const MemoryGivenBackAtExit&) = delete;
    MemoryGivenBackAtExit& operator=(const MemoryGivenBackAtExit&) = delete;
    ~MemoryGivenBackAtExit() { returnFreedMemory(); }
};

constexpr const char* mirrorFolderName = "Quillstow";
constexpr const char* archiveFolderName = ".Quillstow-Trash";

void deliver(const Notice& notice, Notifier& notifier) {
    switch (notice.kind) {
        case Notice::Kind::error:
            notifier.notifyError(notice.pairName, notice.message.value_or(""));
            break;
        case Notice::Kind::trashReminder:
            notifier.notifyTrashReminder(notice.count);
            break;
        case Notice::Kind::volumeLost:
            notifier.notifyVolumeLost(notice.pairName);
            break;
        case Notice::Kind::backupComplete:
            notifier.notifyBackupComplete(notice.pairName, int(notice.count), notice.message);
            break;
    }
}

}  // namespace

fs::path mirrorRootAt(const fs::path& location) {
    return paths::lastPathComponent(location) == mirrorFolderName
               ? location
               : paths::appending(location, mirrorFolderName);
}

fs::path archiveRootAt(const fs::path& location) {
    return paths::appending(location, archiveFolderName);
}

fs::path pairFolderAt(const fs::path& location, const std::string& name) {
    return paths::appending(mirrorRootAt(location), sanitizedFolderName(name));
}

RunPaths runPaths(const BackupPair& pair, const std::optional<fs::path>& source,
                  const std::optional<fs::path>& destination) {
    RunPaths paths;
    paths.chosen = destination.value_or(pair.destinationURL);
    paths.mirrorRoot = mirrorRootAt(paths.chosen);
    paths.pairFolder = pairFolderAt(paths.chosen, pair.name);
    paths.archiveRoot = archiveRootAt(paths.chosen);
    paths.source = source.value_or(pair.sourceURL);
    return paths;
}

bool sourceChangedSinceCopy(const std::optional<FileInfo>& source,
                            const std::optional<FileInfo>& copy) {
    if (!source) return true;
    if (!copy || !source->modificationDate || !copy->modificationDate) return false;
    const auto difference = *source->modificationDate - *copy->modificationDate;
    return difference > modificationDateTolerance || -difference > modificationDateTolerance;
}

BackupError mappedError(const std::exception& error) {
    if (const auto* backup = dynamic_cast<const BackupFailure*>(&error)) return backup->error();
    if (const auto* failure = dynamic_cast<const FileOperationFailure*>(&error)) {
        return BackupError::watcherFailed(failure->error().underlying.description);
    }
    return BackupError::watcherFailed(error.what());
}

std::shared_ptr<BackupEngine> BackupEngine::make(const Uuid& pairId,
                                                 const BackupServices& services) {
    return std::shared_ptr<BackupEngine>(new BackupEngine(pairId, services));
}

BackupEngine::BackupEngine(const Uuid& pairId, const BackupServices& services)
    : pairId_(pairId),
      services_(services),
      fileCopier_(services.fileSystem, services.editors, services.wallClock, services.clock,
                  services.activityGate),
      debouncer_(services.mainQueue, services.clock) {}

BackupEngine::~BackupEngine() {
    backupTask_.cancel();
}

Subscription BackupEngine::observeStatus(Observers<BackupStatus>::Observer observer) {
    return statusObservers_.subscribe(std::move(observer));
}

Subscription BackupEngine::observeDestinationFreeSpace(
    Observers<std::optional<std::int64_t>>::Observer observer) {
    return freeSpaceObservers_.subscribe(std::move(observer));
}

void BackupEngine::setStatus(const BackupStatus& status) {
    // An equal value wakes nobody.
    if (status == status_) return;
    status_ = status;
    statusObservers_.notify(status_);
}

BackupEngine::Resolved BackupEngine::resolved() const {
    std::lock_guard lock(resolvedMutex_);
    return resolved_;
}

RunPaths BackupEngine::pathsFor(const BackupPair& pair) const {
    const Resolved folders = resolved();
    return runPaths(pair, folders.source, folders.destination);
}

void BackupEngine::resolveBookmarks(const BackupPair& pair) {
    if (pair.sourceBookmark) {
        const auto source =
            BookmarkManager::resolveBookmark(*pair.sourceBookmark, pair.sourceURL, true);
        {
            std::lock_guard lock(resolvedMutex_);
            resolved_.source = source.url;
        }
        if (source.newBytes) {
            postPairUpdate(
                [bytes = *source.newBytes](BackupPair& stored) { stored.sourceBookmark = bytes; });
        }
    }
    if (pair.destinationBookmark) {
        const auto destination =
            BookmarkManager::resolveBookmark(*pair.destinationBookmark, pair.destinationURL, false);
        {
            std::lock_guard lock(resolvedMutex_);
            resolved_.destination = destination.url;
        }
        if (destination.newBytes) {
            postPairUpdate([bytes = *destination.newBytes](BackupPair& stored) {
                stored.destinationBookmark = bytes;
            });
        }
    }
}

void BackupEngine::start(const BackupPair& pair) {
    startedPair_ = pair;
    if (!pair.isEnabled) {
        setStatus(BackupStatus::paused());
        return;
    }
    if (!services_.volumes.isDestinationReachable(pathsFor(pair).chosen)) {
        setStatus(BackupStatus::destinationUnreachable());
        return;
    }
    // The watcher follows the source's path, so that a source that isn't there yet, or whose
    // bookmark can't be resolved now, is heard when it comes.
    if (!startWatchingSource(pair)) return;
    try {
        resolveBookmarks(pair);
    } catch (const std::exception& error) {
        setStatus(BackupStatus::error(mappedError(error)));
        return;
    }
    triggerBackup(pair);
}

bool BackupEngine::startWatchingSource(const BackupPair& pair) {
    std::unique_ptr<FileWatcher> watcher = services_.makeFileWatcher();
    std::weak_ptr<BackupEngine> weak = weak_from_this();
    watcher->onEventsDetected = [weak] {
        if (const auto self = weak.lock()) self->handleChange();
    };
    const fs::path source = pathsFor(pair).source;
    try {
        watcher->startWatching(source);
    } catch (const BackupFailure& failure) {
        log_.error("Couldn't watch %{private}s for changes: %{public}s", source.native(),
                   failure.error().reason());
        setStatus(BackupStatus::error(failure.error()));
        return false;
    }
    fileWatcher_ = std::move(watcher);
    return true;
}

void BackupEngine::handleChange() {
    // The newest settings of the pair count.
    BackupPair pair = *startedPair_;
    if (const auto store = configStore_.lock()) {
        for (const auto& candidate : store->pairs()) {
            if (candidate.id == pairId_) pair = candidate;
        }
    }
    std::weak_ptr<BackupEngine> weak = weak_from_this();
    debouncer_.schedule([weak, pair] {
        if (const auto self = weak.lock()) self->triggerBackup(pair);
    });
}

void BackupEngine::stop() {
    debouncer_.cancel();
    backupTask_.cancel();
    backupTask_ = {};
    ++generation_;
    if (backupQueue_) backupQueue_->cancel(pairId_);
    if (fileWatcher_) fileWatcher_->stopWatching();
    fileWatcher_.reset();
    {
        std::lock_guard lock(resolvedMutex_);
        resolved_ = {};
    }
    switch (status_.kind()) {
        case BackupStatus::Case::syncing:
        case BackupStatus::Case::scanning:
        case BackupStatus::Case::queued:
            setStatus(BackupStatus::idle());
            break;
        default:
            break;
    }
}

void BackupEngine::triggerBackup(const BackupPair& pair) {
    const TaskHandle previous = backupTask_;
    previous.cancel();
    std::weak_ptr<BackupEngine> weak = weak_from_this();
    const std::uint64_t generation = generation_;
    MainQueue& mainQueue = services_.mainQueue;
    backupTask_ =
        services_.tasks.start([weak, previous, pair, generation, &mainQueue](std::stop_token stop) {
            // Two runs of one pair never overlap.
            previous.wait();
            // Superseded by a newer trigger, or stopped, while it waited: no pass.
            if (stop.stop_requested()) return;
            auto self = weak.lock();
            if (!self) return;
            self->runTrigger(pair, generation, stop);
            // The engine is let go on the main thread, where it lives.
            mainQueue.post([self = std::move(self)] {});
        });
}

void BackupEngine::runTrigger(const BackupPair& pair, std::uint64_t generation,
                              std::stop_token stop) {
    if (!services_.volumes.isDestinationReachable(pathsFor(pair).chosen)) {
        postStatus(BackupStatus::destinationUnreachable(), generation);
        return;
    }
    const Resolved folders = resolved();
    if (!folders.source || !folders.destination) {
        try {
            resolveBookmarks(pair);
        } catch (const std::exception& error) {
            postStatus(BackupStatus::error(mappedError(error)), generation);
            return;
        }
    }
    postStatus(BackupStatus::queued(), generation);
    if (!backupQueue_) {
        runBackup(pair, generation, stop);
        return;
    }
    // A trigger cancelled while its job waited in the queue, or just before it got there,
    // ends without a pass; one cancelled after its job started lets the pass go on.
    const auto outcome =
        backupQueue_->enqueue(pairId_, [this, pair, generation, stop](std::stop_token job) {
            if (stop.stop_requested()) return;
            runBackup(pair, generation, job);
        });
    handleOutcome(outcome, pair);
}

void BackupEngine::handleOutcome(BackupQueue::JobOutcome outcome, const BackupPair& pair) {
    if (outcome != BackupQueue::JobOutcome::timedOut) return;
    const BackupError error = BackupError::timedOut();
    // The limit is reported whatever the pair did since.
    postStatus(BackupStatus::error(error), generation_);
    postEvent(BackupEvent::EventType::error, error.errorDescription());
    const std::string message = error.errorDescription();
    postNotification([name = pair.name, message](Notifier& notifier) {
        notifier.notifyError(name, message.empty() ? "Backup timed out." : message);
    });
}

bool BackupEngine::hasEnoughSpace(const BackupPair& pair, const RunPaths& paths,
                                  const PassPlan& plan, std::uint64_t generation) {
    const auto available = services_.volumes.availableCapacity(paths.chosen);
    if (!available) return true;
    std::optional<BackupError> shortage;
    const auto sourceVolume = services_.volumes.volumeIdentifier(paths.source);
    const auto destinationVolume = services_.volumes.volumeIdentifier(paths.chosen);
    if (!sourceVolume || !destinationVolume || *sourceVolume != *destinationVolume) {
        const std::int64_t estimate = plan.bytesToCopy;
        if (estimate >= 1 && *available < estimate + estimateHeadroom) {
            shortage = BackupError::diskSpaceLow(*available, estimate + estimateHeadroom);
        }
    }
    if (!shortage && *available < minimumFreeSpace) {
        shortage = BackupError::diskSpaceLow(*available, minimumFreeSpace);
    }
    if (!shortage) return true;
    postStatus(BackupStatus::error(*shortage), generation);
    postEvent(BackupEvent::EventType::error, shortage->errorDescription());
    postNotification([name = pair.name, space = *available](Notifier& notifier) {
        notifier.notifyLowDisk(name, space);
    });
    return false;
}

void BackupEngine::runBackup(const BackupPair& pair, std::uint64_t generation,
                             std::stop_token stop) {
    const MemoryGivenBackAtExit memoryGivenBack;
    if (stop.stop_requested()) {
        postStatus(BackupStatus::idle(), generation);
        return;
    }
    // Again: the drive may have gone while the job waited its turn, and a pass now would write
    // to the disk below its mount point.
    if (!services_.volumes.isDestinationReachable(pathsFor(pair).chosen)) {
        postStatus(BackupStatus::destinationUnreachable(), generation);
        return;
    }
    if (const auto reason = powerPauseReason(services_.power)) {
        postStatus(BackupStatus::paused(), generation);
        postEvent(BackupEvent::EventType::error, *reason);
        return;
    }
    postStatus(BackupStatus::scanning(), generation);

    const RunPaths paths = pathsFor(pair);
    const ExclusionFilter filter = filterForPair(pair);
    // One walk of each tree for the whole run: the sweep, the room and the pass read its plan.
    PassPlan plan = fileCopier_.planPass(paths.source, paths.pairFolder, filter);
    // Before the room is measured: a partial file of a pass that was cut off would otherwise
    // count against every pass that follows.
    fileCopier_.removeStaleTemporaries(plan);
    if (!hasEnoughSpace(pair, paths, plan, generation)) return;
    lastProgressTickTime_ = 0;
    BackupResult result;
    try {
        validateLocation(paths.chosen);
        result = fileCopier_.scanAndCopy(
            plan, paths.archiveRoot,
            [this, generation](double progress, const std::string& file) {
                onProgress(progress, file, generation);
            },
            stop);
    } catch (const std::exception& error) {
        postStatus(BackupStatus::error(mappedError(error)), generation);
        const auto* failure = dynamic_cast<const FileOperationFailure*>(&error);
        const std::string description = failure ? failure->error().underlying.description : "";
        postEvent(BackupEvent::EventType::error,
                  description.empty() ? "An unexpected error occurred." : description);
        return;
    }
    if (stop.stop_requested()) {
        // A time limit or a stop: nothing is recorded, and the outcome tells the rest.
        postStatus(BackupStatus::idle(), generation);
        return;
    }
    followUp(pair, paths, std::move(plan), result, generation, stop);
}

void BackupEngine::followUp(const BackupPair& pair, const RunPaths& paths, PassPlan plan,
                            const BackupResult& result, std::uint64_t generation,
                            std::stop_token stop) {
    postFreeSpace(paths);
    const AfterPass pass = readAfterPass(pair, paths, plan, result, stop);
    // The hash database is gone already; the plan goes before the offsite copy and the wait.
    plan = PassPlan{};
    returnFreedMemory();
    const PassSummary summary = summarize(pass, pair, services_.wallClock.now());
    post(summary, pair, generation);
    if (pass.wasStopped) return;
    if (summary.offsiteDue) runOffsite(pair, paths, generation, stop);
    settle(generation, stop);
}

AfterPass BackupEngine::readAfterPass(const BackupPair& pair, const RunPaths& paths,
                                      const PassPlan& plan, const BackupResult& result,
                                      std::stop_token stop) {
    AfterPass pass;
    pass.result = result;
    if (!result.abortedDueToVolumeLoss) {
        pass.catchUpGiven = services_.defaults.boolean(packageUpgradeKey(pair.id));
        if (services_.integrity) {
            const PassFiles files{result.copiedRelativePaths, [&](std::string_view relative) {
                                      return isKeptUnchanged(plan, relative);
                                  }};
            pass.sample = services_.integrity->afterPass(files, paths.pairFolder, stop);
        }
        pass.wasStopped = stop.stop_requested();
        if (pass.wasStopped) return pass;
        pass.destinationLeft = hasLeft(paths);
        if (pass.destinationLeft) return pass;
        countDifferingSizes(paths, pass);
        pass.wasThrottling = services_.activityGate.isThrottling();
        pass.tipCounter = services_.defaults.integer(tipCounterKey);
    }
    pass.trashSize = trashSize(paths.archiveRoot);
    return pass;
}

bool BackupEngine::hasLeft(const RunPaths& paths) const {
    return !services_.volumes.isDestinationReachable(paths.chosen) ||
           !files::isFolder(paths.pairFolder);
}

void BackupEngine::countDifferingSizes(const RunPaths& paths, AfterPass& pass) const {
    const auto& copied = pass.result.copiedRelativePaths;
    if (copied.empty()) return;
    for (const auto& relative :
         fileCopier_.differingSizes(paths.source, paths.pairFolder, copied)) {
        const bool sourceChanged =
            sourceChangedSinceCopy(files::readInfo(paths::appending(paths.source, relative)),
                                   files::readInfo(paths::appending(paths.pairFolder, relative)));
        ++(sourceChanged ? pass.sourcesChanged : pass.copiesFailed);
    }
}

void BackupEngine::postFreeSpace(const RunPaths& paths) {
    const auto space = services_.volumes.availableCapacity(paths.chosen);
    if (!space) return;
    std::weak_ptr<BackupEngine> weak = weak_from_this();
    services_.mainQueue.post([weak, space] {
        const auto self = weak.lock();
        if (!self || self->destinationFreeSpace_ == space) return;
        self->destinationFreeSpace_ = space;
        self->freeSpaceObservers_.notify(space);
    });
}

void BackupEngine::post(const PassSummary& summary, const BackupPair& pair,
                        std::uint64_t generation) {
    postPairUpdate([fields = summary.pair](BackupPair& stored) { fields.applyTo(stored); });
    for (const auto& event : summary.events) {
        postEvent(event.type, event.message, event.filesAffected, event.bytesTransferred,
                  event.duration);
    }
    if (summary.givesCatchUp) services_.defaults.setBoolean(packageUpgradeKey(pair.id), true);
    if (summary.tipCounter) services_.defaults.setInteger(tipCounterKey, *summary.tipCounter);
    if (summary.suggestion) suggestProfile(pair, *summary.suggestion);
    for (const auto& notice : summary.notices) {
        postNotification([notice](Notifier& notifier) { deliver(notice, notifier); });
    }
    if (summary.status) postStatus(*summary.status, generation);
}

void BackupEngine::settle(std::uint64_t generation, std::stop_token stop) {
    services_.sleeper.sleep(settleDelay, stop);
    if (stop.stop_requested()) return;
    std::weak_ptr<BackupEngine> weak = weak_from_this();
    services_.mainQueue.post([weak, generation] {
        const auto self = weak.lock();
        if (!self || self->generation_ != generation) return;
        const auto kind = self->status_.kind();
        if (kind == BackupStatus::Case::completed || kind == BackupStatus::Case::error) {
            self->setStatus(BackupStatus::idle());
        }
    });
}

void BackupEngine::suggestProfile(const BackupPair& pair,
                                  const std::pair<BackupProfile, std::int64_t>& suggestion) {
    NotificationCenter& center = services_.notificationCenter;
    const NotificationInfo info{
        {"pairId", pair.id},
        {"pairName", pair.name},
        {"recommendedProfile", std::string(coding::nameOf(backupProfileNames, suggestion.first))},
        {"approximateBytes", suggestion.second},
    };
    services_.mainQueue.post([&center, info] { center.post(profileSuggestedNotification, info); });
}

void BackupEngine::runOffsite(const BackupPair& pair, const RunPaths& paths,
                              std::uint64_t generation, std::stop_token stop) {
    OffsiteStage* offsite = services_.offsite;
    if (!offsite) return;
    if (pair.offsiteBookmark) {
        // Access only: the target stays the one formed from the stored folder.
        try {
            (void)BookmarkManager::resolveBookmark(*pair.offsiteBookmark, *pair.offsiteURL, false);
        } catch (const BackupFailure&) {
            postEvent(BackupEvent::EventType::error,
                      "Couldn't access the offsite folder. Re-select it from Settings to fix.");
            return;
        }
    }
    postStatus(BackupStatus::syncing(0, "Offsite copy starting…"), generation);
    lastProgressTickTime_ = 0;
    const OffsiteSyncResult result = offsite->sync(
        paths.pairFolder, pairFolderAt(*pair.offsiteURL, pair.name), filterForPair(pair),
        [this, generation](double progress, const std::string& name) {
            onProgress(progress, "Offsite: " + name, generation);
        },
        stop);
    post(summarize(result, services_.wallClock.now()), pair, generation);
}

void BackupEngine::onProgress(double progress, const std::string& currentFile,
                              std::uint64_t generation) {
    const double now = services_.clock.now();
    if (now - lastProgressTickTime_ < progressThrottle) return;
    lastProgressTickTime_ = now;
    postStatus(BackupStatus::syncing(progress, currentFile), generation);
}

void BackupEngine::postStatus(BackupStatus status, std::uint64_t generation) {
    std::weak_ptr<BackupEngine> weak = weak_from_this();
    services_.mainQueue.post([weak, status = std::move(status), generation] {
        const auto self = weak.lock();
        if (self && self->generation_ == generation) self->setStatus(status);
    });
}

void BackupEngine::postEvent(BackupEvent::EventType type, std::optional<std::string> message,
                             std::int64_t filesAffected, std::int64_t bytes, double duration) {
    BackupEvent event;
    event.id = Uuid::random();
    event.pairId = pairId_;
    event.timestamp = services_.wallClock.now();
    event.type = type;
    event.filesAffected = filesAffected;
    event.bytesTransferred = bytes;
    event.duration = duration;
    event.message = std::move(message);
    std::weak_ptr<ConfigStore> store = configStore_;
    services_.mainQueue.post([store, event = std::move(event)] {
        if (const auto held = store.lock()) held->addEvent(event);
    });
}

void BackupEngine::postPairUpdate(std::function<void(BackupPair&)> change) {
    std::weak_ptr<ConfigStore> store = configStore_;
    services_.mainQueue.post([store, id = pairId_, change = std::move(change)] {
        if (const auto held = store.lock()) held->updatePair(id, change);
    });
}

void BackupEngine::postNotification(std::function<void(Notifier&)> notify) {
    std::weak_ptr<Notifier> notifier = notifier_;
    services_.mainQueue.post([notifier, notify = std::move(notify)] {
        if (const auto held = notifier.lock()) notify(*held);
    });
}

}  // namespace quillstow
