#pragma once

// The file watcher on inotify: one watch per folder below the source, new folders watched as
// they appear (and then walked, since files and folders may appear in them before their watch
// exists), a full event queue taken as "must rescan", and the source itself gone, moved or
// unmounted taken as "root changed". Folders that every profile leaves out (.git, node_modules,
// build, ...) are not watched, which spares the per-user watch limit; their own appearance and
// removal are still heard in the folder that holds them.
//
// It follows the source's path, not the folder it first found there: while nothing is at the
// path (not yet made, removed, or on a drive that is out), the nearest folder above it is
// watched, and so is the mount table, and the source is watched again the moment it is back,
// which counts as a change. A folder mounted over the path is the source from then on.
//
// A reader thread of the watcher's own takes the events; the first change of a batch asks the
// main queue to deliver the batch half a second later.

#include <sys/inotify.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>

#include "copy/FileWatcher.hpp"
#include "platform/WatchedFolders.hpp"
#include "support/MainQueue.hpp"

namespace quillstow {

// Whether an event of this inotify mask counts as a change, for an event of a folder below the
// source or (`isRoot`) of the source itself.
bool countsAsChange(std::uint32_t mask, bool isRoot);

// The per-user watch limit, from /proc; nothing when it can't be read.
std::optional<long> inotifyWatchLimit();

// The words for a source that needs more watches than the system allows.
std::string watchLimitMessage(long folders, std::optional<long> limit);

class InotifyWatcher final : public FileWatcher {
  public:
    explicit InotifyWatcher(MainQueue& mainQueue);
    InotifyWatcher(const InotifyWatcher&) = delete;
    InotifyWatcher& operator=(const InotifyWatcher&) = delete;
    ~InotifyWatcher() override;

    // Raises only when inotify itself can't be had, or the source needs more watches than the
    // system allows; a source that isn't there is waited for.
    void startWatching(const std::filesystem::path& path) override;
    void stopWatching() override;
    // Whether the source itself is watched now: not while it is gone and not yet back.
    bool isWatching() const override { return isWatchingSource_; }

  private:
    // What the main queue reaches through a weak reference, so that a batch that is due after
    // the stop is dropped.
    struct Delivery {
        std::function<void()> onEventsDetected;
        std::atomic<bool> isPending{false};
    };

    enum class AddResult { added, limitReached, failed };
    struct Added {
        AddResult result;
        int watch = -1;
    };
    // Watches `folder`, which is `name` in the folder of the watch `parent` (the source: its
    // whole path, and no parent). Links are followed for the source itself only.
    Added addWatch(const std::string& folder, int parent, std::string_view name, bool followsLink);
    // Watches `folder` and every folder below it that isn't left out: the watch of `folder`, and
    // `limitReached` when some of those below are left without one.
    Added watchTree(const std::string& folder, int parent, std::string_view name,
                    bool followsLink = false);
    // Watches the source and its folders if it is there, else the nearest folder above it.
    // `added` when the source is watched (limitReached: in part).
    AddResult attach();
    AddResult watchSource();
    bool watchNearestFolderAbove();
    void detach();
    // Whether the path still leads to the folder that is watched.
    bool isTheWatchedSource() const;
    // Watches the source's path afresh; true when the source is watched now.
    bool followTheSource();
    void logLimitReached() const;

    void readEvents();
    // Takes one event; true when it counts as a change.
    bool handleEvent(const ::inotify_event& event);
    void signalChange();
    void closeAll();

    MainQueue& mainQueue_;
    bool isStarted_ = false;
    std::atomic<bool> isWatchingSource_{false};
    int inotify_ = -1;
    int stopSignal_ = -1;
    // /proc/self/mountinfo, which polls as a priority event when something is mounted or not.
    int mountTable_ = -1;
    std::string root_;
    // Touched by startWatching before the reader thread runs, and by the reader thread after.
    int rootWatch_ = -1;
    dev_t rootDevice_ = 0;
    ino_t rootInode_ = 0;
    WatchedFolders folders_;
    // While the source isn't there: the folder above it that is, and the name below it that
    // leads on to the source.
    int ancestorWatch_ = -1;
    std::string ancestorNext_;
    std::shared_ptr<Delivery> delivery_;
    std::thread reader_;
};

}  // namespace quillstow
