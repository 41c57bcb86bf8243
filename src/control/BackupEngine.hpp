#pragma once

// The life of one pair: it watches the source, backs up on a change (debounced) and when told,
// runs each pass through the one queue of the program, and does what follows a pass: the
// record in the pair and the log, the hashes and the daily sample, the check of what was
// copied, the notification and the tip, the weekly offsite copy, and the return to idle. It is
// the only writer of the pair's status.
//
// Threading: start, stop and triggerBackup are called on the main thread, and the status and
// the free space change there, where observers are told. A run is a background task at utility
// priority that holds the engine only while it runs and hops to the main thread for every
// write to observable state. Copying is deleted: an engine has identity.

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>

#include "control/BackupQueue.hpp"
#include "control/BackupServices.hpp"
#include "control/PassSummary.hpp"
#include "copy/Debouncer.hpp"
#include "copy/FileCopier.hpp"
#include "model/BackupStatus.hpp"
#include "model/ConfigStore.hpp"
#include "support/FileInfo.hpp"
#include "support/Logger.hpp"

namespace quillstow {

inline constexpr const char* profileSuggestedNotification = "io.quillstow.profileSuggested";

// Where a run reads and writes, from the folders the user chose (or their resolved forms).
struct RunPaths {
    std::filesystem::path chosen;
    // {chosen}/Quillstow, or `chosen` itself when it is already named so.
    std::filesystem::path mirrorRoot;
    // The mirror root and the pair's sanitised name.
    std::filesystem::path pairFolder;
    // {chosen}/.Quillstow-Trash: beside the mirror root, or inside it when `chosen` is it.
    std::filesystem::path archiveRoot;
    std::filesystem::path source;
};

RunPaths runPaths(const BackupPair& pair, const std::optional<std::filesystem::path>& source,
                  const std::optional<std::filesystem::path>& destination);

// {location}/Quillstow, or the location itself when it is named so.
std::filesystem::path mirrorRootAt(const std::filesystem::path& location);

// {location}/.Quillstow-Trash, the deletion archive of every pair at the location.
std::filesystem::path archiveRootAt(const std::filesystem::path& location);

// {location}/Quillstow/{sanitised name}, without a second "Quillstow".
std::filesystem::path pairFolderAt(const std::filesystem::path& location, const std::string& name);

// Whether a source whose copy differs from it was changed (or removed) after it was copied, as
// when the user saves during a pass: its date is another than the copy's, beyond what a file
// system may round. Otherwise the copy itself is at fault.
bool sourceChangedSinceCopy(const std::optional<FileInfo>& source,
                            const std::optional<FileInfo>& copy);

// A BackupError stays as it is; anything else becomes watcherFailed with its description.
BackupError mappedError(const std::exception& error);

class BackupEngine : public std::enable_shared_from_this<BackupEngine> {
  public:
    static constexpr std::int64_t minimumFreeSpace = 524288000;
    static constexpr std::int64_t estimateHeadroom = 524288000;
    static constexpr double progressThrottle = 0.05;
    static constexpr double settleDelay = 5.0;

    static std::shared_ptr<BackupEngine> make(const Uuid& pairId, const BackupServices& services);
    BackupEngine(const BackupEngine&) = delete;
    BackupEngine& operator=(const BackupEngine&) = delete;
    ~BackupEngine();

    void setConfigStore(std::weak_ptr<ConfigStore> store) { configStore_ = std::move(store); }
    void setBackupQueue(std::shared_ptr<BackupQueue> queue) { backupQueue_ = std::move(queue); }
    void setNotifier(std::weak_ptr<Notifier> notifier) { notifier_ = std::move(notifier); }

    const Uuid& pairId() const { return pairId_; }

    // Begins watching and runs a first pass; a disabled pair stays paused.
    void start(const BackupPair& pair);
    // Ends everything that runs for the pair; a status of a run under way returns to idle.
    void stop();
    // Starts a run now, behind whatever runs for this pair.
    void triggerBackup(const BackupPair& pair);
    // Drops a backup that waits for a quiet moment.
    void cancelPendingChange() { debouncer_.cancel(); }

    // Resolves the bookmarks of the pair and keeps the folders; refreshed bookmarks reach the
    // settings. Raises BackupFailure. Any thread.
    void resolveBookmarks(const BackupPair& pair);

    const BackupStatus& status() const { return status_; }
    // From outside the engine: the status manager's paused and destinationUnreachable.
    void setStatus(const BackupStatus& status);
    std::optional<std::int64_t> destinationFreeSpace() const { return destinationFreeSpace_; }

    [[nodiscard]] Subscription observeStatus(Observers<BackupStatus>::Observer observer);
    [[nodiscard]] Subscription observeDestinationFreeSpace(
        Observers<std::optional<std::int64_t>>::Observer observer);

  private:
    BackupEngine(const Uuid& pairId, const BackupServices& services);

    struct Resolved {
        std::optional<std::filesystem::path> source;
        std::optional<std::filesystem::path> destination;
    };
    Resolved resolved() const;
    RunPaths pathsFor(const BackupPair& pair) const;

    // False, with the error shown, when the watcher can't start.
    bool startWatchingSource(const BackupPair& pair);
    void handleChange();
    void runTrigger(const BackupPair& pair, std::uint64_t generation, std::stop_token stop);
    void runBackup(const BackupPair& pair, std::uint64_t generation, std::stop_token stop);
    void handleOutcome(BackupQueue::JobOutcome outcome, const BackupPair& pair);
    bool hasEnoughSpace(const BackupPair& pair, const RunPaths& paths, const PassPlan& plan,
                        std::uint64_t generation);
    void followUp(const BackupPair& pair, const RunPaths& paths, PassPlan plan,
                  const BackupResult& result, std::uint64_t generation, std::stop_token stop);
    // Keeps the hashes up, from what the plan and the pass know, and reads what the summary of
    // the pass needs.
    AfterPass readAfterPass(const BackupPair& pair, const RunPaths& paths, const PassPlan& plan,
                            const BackupResult& result, std::stop_token stop);
    // Whether the destination went away: its drive is not there, or the pair's folder is gone.
    bool hasLeft(const RunPaths& paths) const;
    // Copies whose size isn't their source's: changed meanwhile, or failed.
    void countDifferingSizes(const RunPaths& paths, AfterPass& pass) const;
    void postFreeSpace(const RunPaths& paths);
    // Hands what a summary says to the store, the notifier and the status, in that order.
    void post(const PassSummary& summary, const BackupPair& pair, std::uint64_t generation);
    void suggestProfile(const BackupPair& pair,
                        const std::pair<BackupProfile, std::int64_t>& suggestion);
    // Waits the five seconds, then lets a finished pass's status return to idle.
    void settle(std::uint64_t generation, std::stop_token stop);
    void runOffsite(const BackupPair& pair, const RunPaths& paths, std::uint64_t generation,
                    std::stop_token stop);
    void onProgress(double progress, const std::string& currentFile, std::uint64_t generation);

    // Hops to the main thread. A status from a run that stop() has since ended is dropped, so
    // that a late report never overwrites what was set after the stop.
    void postStatus(BackupStatus status, std::uint64_t generation);
    void postEvent(BackupEvent::EventType type, std::optional<std::string> message,
                   std::int64_t filesAffected = 0, std::int64_t bytes = 0, double duration = 0);
    // Changes only the fields that `change` names, in the pair as the store holds it then.
    void postPairUpdate(std::function<void(BackupPair&)> change);
    void postNotification(std::function<void(Notifier&)> notify);

    const Uuid pairId_;
    const BackupServices& services_;
    const FileCopier fileCopier_;
    Debouncer debouncer_;
    const Logger log_{"BackupEngine"};

    std::weak_ptr<ConfigStore> configStore_;
    std::shared_ptr<BackupQueue> backupQueue_;
    std::weak_ptr<Notifier> notifier_;

    // Main thread.
    BackupStatus status_ = BackupStatus::idle();
    std::optional<std::int64_t> destinationFreeSpace_;
    Observers<BackupStatus> statusObservers_;
    Observers<std::optional<std::int64_t>> freeSpaceObservers_;
    std::unique_ptr<FileWatcher> fileWatcher_;
    std::optional<BackupPair> startedPair_;
    TaskHandle backupTask_;

    // Any thread.
    std::atomic<std::uint64_t> generation_{0};
    std::atomic<double> lastProgressTickTime_{0};
    mutable std::mutex resolvedMutex_;
    Resolved resolved_;
};

}  // namespace quillstow
