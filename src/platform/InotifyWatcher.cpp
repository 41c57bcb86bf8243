#include "platform/InotifyWatcher.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "copy/ExclusionFilter.hpp"
#include "copy/TreeWalk.hpp"
#include "model/BackupError.hpp"
#include "support/Logger.hpp"

namespace quillstow {

namespace {

constexpr std::uint32_t changeKinds =
    IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr std::uint32_t rootKinds = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT;
constexpr std::uint32_t watchMask =
    changeKinds | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;

// Folders every profile leaves out are not worth a watch.
const ExclusionFilter& skippedFolders() {
    static const ExclusionFilter filter = filterForProfile(BackupProfile::standard);
    return filter;
}

[[noreturn]] void fail(std::string reason) {
    throw BackupFailure(BackupError::watcherFailed(std::move(reason)));
}

// Folders below `root` (itself included) that would need a watch.
long foldersToWatch(const std::string& root) {
    long folders = 1;
    walkTree(root, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        if (!entry.info.isDirectory() || skippedFolders().isExcluded(entry.name, true)) {
            return false;
        }
        ++folders;
        return true;
    });
    return folders;
}

}  // namespace

bool countsAsChange(std::uint32_t mask, bool isRoot) {
    if (mask & IN_Q_OVERFLOW) return true;
    if (mask & changeKinds) return true;
    return isRoot && (mask & rootKinds);
}

std::optional<long> inotifyWatchLimit() {
    std::ifstream file("/proc/sys/fs/inotify/max_user_watches");
    long limit = 0;
    if (file >> limit) return limit;
    return std::nullopt;
}

std::string watchLimitMessage(long folders, std::optional<long> limit) {
    const std::string allowed =
        limit ? "the " + std::to_string(*limit) + " watches that this system allows each user"
              : "the watches that this system allows each user";
    return "The source has " + std::to_string(folders) +
           " folders to watch for changes, more than " + allowed +
           " (shared by every program). Raise the limit, for example with \"echo "
           "fs.inotify.max_user_watches=524288 | sudo tee /etc/sysctl.d/90-quillstow.conf && "
           "sudo sysctl --system\", then start the backup again.";
}

InotifyWatcher::InotifyWatcher(MainQueue& mainQueue) : mainQueue_(mainQueue) {}

InotifyWatcher::~InotifyWatcher() {
    stopWatching();
}

InotifyWatcher::AddResult InotifyWatcher::addWatch(const std::string& folder) {
    const int watch = ::inotify_add_watch(inotify_, folder.c_str(), watchMask | IN_DONT_FOLLOW);
    if (watch >= 0) {
        folders_[watch] = folder;
        return AddResult::added;
    }
    return errno == ENOSPC ? AddResult::limitReached : AddResult::failed;
}

InotifyWatcher::AddResult InotifyWatcher::watchTree(const std::string& folder) {
    AddResult result = addWatch(folder);
    if (result != AddResult::added) return result;
    walkTree(folder, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        if (result == AddResult::limitReached || !entry.info.isDirectory() ||
            skippedFolders().isExcluded(entry.name, true)) {
            return false;
        }
        // A folder that vanished or can't be read meanwhile is passed over.
        if (addWatch(folder + "/" + entry.relativePath) == AddResult::limitReached) {
            result = AddResult::limitReached;
        }
        return result != AddResult::limitReached;
    });
    return result;
}

void InotifyWatcher::startWatching(const std::filesystem::path& path) {
    if (isWatching_) return;
    root_ = path.native();
    while (root_.size() > 1 && root_.back() == '/')
        root_.pop_back();

    inotify_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (inotify_ < 0) {
        const int error = errno;
        closeAll();
        if (error == EMFILE) {
            fail(
                "Too many programs watch for file changes (the system's limit of inotify "
                "instances is reached). Raise fs.inotify.max_user_instances, or close some of "
                "them, then start the backup again.");
        }
        fail("inotify_init1 failed for path: " + root_ + ": " + std::strerror(error));
    }
    stopSignal_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);

    // The source itself may be reached through a link; nothing below it is followed.
    rootWatch_ = ::inotify_add_watch(inotify_, root_.c_str(), watchMask);
    if (rootWatch_ < 0) {
        const int error = errno;
        closeAll();
        if (error == ENOSPC) fail(watchLimitMessage(foldersToWatch(root_), inotifyWatchLimit()));
        fail("inotify_add_watch failed for path: " + root_ + ": " + std::strerror(error));
    }
    folders_[rootWatch_] = root_;
    bool limitReached = false;
    walkTree(root_, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        if (limitReached || !entry.info.isDirectory() ||
            skippedFolders().isExcluded(entry.name, true)) {
            return false;
        }
        limitReached = addWatch(root_ + "/" + entry.relativePath) == AddResult::limitReached;
        return !limitReached;
    });
    if (limitReached) {
        closeAll();
        fail(watchLimitMessage(foldersToWatch(root_), inotifyWatchLimit()));
    }

    delivery_ = std::make_shared<Delivery>();
    delivery_->onEventsDetected = onEventsDetected;
    isWatching_ = true;
    reader_ = std::thread([this] { readEvents(); });
}

void InotifyWatcher::stopWatching() {
    if (!isWatching_) return;
    const std::uint64_t one = 1;
    (void)::write(stopSignal_, &one, sizeof one);
    reader_.join();
    closeAll();
    delivery_.reset();
    isWatching_ = false;
}

void InotifyWatcher::closeAll() {
    if (inotify_ >= 0) ::close(inotify_);
    if (stopSignal_ >= 0) ::close(stopSignal_);
    inotify_ = stopSignal_ = rootWatch_ = -1;
    folders_.clear();
}

void InotifyWatcher::signalChange() {
    if (delivery_->isPending.exchange(true)) return;
    std::weak_ptr<Delivery> weak = delivery_;
    MainQueue& queue = mainQueue_;
    mainQueue_.post([weak, &queue] {
        if (weak.expired()) return;
        queue.postDelayed(latency, [weak] {
            const auto delivery = weak.lock();
            if (!delivery) return;
            delivery->isPending = false;
            if (delivery->onEventsDetected) delivery->onEventsDetected();
        });
    });
}

void InotifyWatcher::readEvents() {
    const Logger log("BackupEngine");
    alignas(inotify_event) char buffer[64 * 1024];
    pollfd watched[2] = {{inotify_, POLLIN, 0}, {stopSignal_, POLLIN, 0}};
    for (;;) {
        if (::poll(watched, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (watched[1].revents & POLLIN) return;
        const ssize_t length = ::read(inotify_, buffer, sizeof buffer);
        if (length <= 0) continue;

        bool changed = false;
        for (char* at = buffer; at < buffer + length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(at);
            at += sizeof(inotify_event) + event->len;
            const bool isRoot = event->wd == rootWatch_;
            changed = changed || countsAsChange(event->mask, isRoot);

            if (event->mask & IN_Q_OVERFLOW) {
                // Events were lost, folders made meanwhile among them: watch what is there now.
                // A folder already watched keeps its watch.
                if (watchTree(root_) == AddResult::limitReached) {
                    log.error("%{public}s",
                              watchLimitMessage(foldersToWatch(root_), inotifyWatchLimit()));
                }
                continue;
            }
            if (event->mask & IN_IGNORED) {
                folders_.erase(event->wd);
                continue;
            }
            const bool isNewFolder =
                (event->mask & IN_ISDIR) && (event->mask & (IN_CREATE | IN_MOVED_TO));
            const auto folder = folders_.find(event->wd);
            if (!isNewFolder || event->len == 0 || folder == folders_.end()) continue;
            if (skippedFolders().isExcluded(event->name, true)) continue;
            if (watchTree(folder->second + "/" + event->name) == AddResult::limitReached) {
                log.error("%{public}s",
                          watchLimitMessage(foldersToWatch(root_), inotifyWatchLimit()));
            }
        }
        if (changed) signalChange();
    }
}

}  // namespace quillstow
