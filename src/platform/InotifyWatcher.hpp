#pragma once

// The file watcher on inotify: one watch per folder below the source, new folders watched as
// they appear (and then walked, since files and folders may appear in them before their watch
// exists), a full event queue taken as "must rescan", and the source itself gone, moved or
// unmounted taken as "root changed". Folders that every profile leaves out (.git, node_modules,
// build, ...) are not watched, which spares the per-user watch limit; their own appearance and
// removal are still heard in the folder that holds them.
//
// A reader thread of the watcher's own takes the events; the first change of a batch asks the
// main queue to deliver the batch half a second later.

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>

#include "copy/FileWatcher.hpp"
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

    void startWatching(const std::filesystem::path& path) override;
    void stopWatching() override;
    bool isWatching() const override { return isWatching_; }

  private:
    // What the main queue reaches through a weak reference, so that a batch that is due after
    // the stop is dropped.
    struct Delivery {
        std::function<void()> onEventsDetected;
        std::atomic<bool> isPending{false};
    };

    enum class AddResult { added, limitReached, failed };
    AddResult addWatch(const std::string& folder);
    // Watches `folder` and every folder below it that isn't left out.
    AddResult watchTree(const std::string& folder);
    void readEvents();
    void signalChange();
    void closeAll();

    MainQueue& mainQueue_;
    bool isWatching_ = false;
    int inotify_ = -1;
    int stopSignal_ = -1;
    int rootWatch_ = -1;
    std::string root_;
    // Touched by startWatching before the reader thread runs, and by the reader thread after.
    std::unordered_map<int, std::string> folders_;
    std::shared_ptr<Delivery> delivery_;
    std::thread reader_;
};

}  // namespace quillstow
