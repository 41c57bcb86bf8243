#pragma once

// Hears that something below a source folder changed, without saying what: the pass finds the
// changes by itself. Changes are coalesced over half a second into one call on the main
// thread. Only six kinds of change count: an item created, removed, renamed or modified, the
// watched folder itself gone or replaced, and a lost overview ("must rescan"). A change of
// owner, mode or extended attributes alone doesn't.
//
// Start and stop on the main thread; the watcher stops when it goes.

#include <filesystem>
#include <functional>
#include <memory>

namespace quillstow {

class FileWatcher {
  public:
    static constexpr double latency = 0.5;

    virtual ~FileWatcher() = default;

    // Raises BackupFailure with watcherFailed and the reason. A second start while watching
    // does nothing, also for another path.
    virtual void startWatching(const std::filesystem::path& path) = 0;
    // Harmless when not watching.
    virtual void stopWatching() = 0;
    virtual bool isWatching() const = 0;

    // Called on the main thread, once per batch of changes; set before the start.
    std::function<void()> onEventsDetected;
};

using FileWatcherFactory = std::function<std::unique_ptr<FileWatcher>()>;

}  // namespace quillstow
