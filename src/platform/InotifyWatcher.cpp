#include "platform/InotifyWatcher.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "copy/ExclusionFilter.hpp"
#include "model/BackupError.hpp"
#include "support/FileInfo.hpp"
#include "support/Logger.hpp"
#include "support/TreeWalk.hpp"

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

InotifyWatcher::Added InotifyWatcher::addWatch(const std::string& folder, int parent,
                                               std::string_view name, bool followsLink) {
    const int watch = ::inotify_add_watch(inotify_, folder.c_str(),
                                          watchMask | (followsLink ? 0 : IN_DONT_FOLLOW));
    if (watch < 0) return {errno == ENOSPC ? AddResult::limitReached : AddResult::failed};
    folders_.add(watch, parent, name);
    return {AddResult::added, watch};
}

InotifyWatcher::Added InotifyWatcher::watchTree(const std::string& folder, int parent,
                                                std::string_view name, bool followsLink) {
    const Added top = addWatch(folder, parent, name, followsLink);
    if (top.result != AddResult::added) return top;
    AddResult result = AddResult::added;
    // The watches of the folders on the way down to the entry visited, each with the length of
    // its relative path and a slash: the walk goes into a folder right after visiting it.
    std::vector<std::pair<std::size_t, int>> above{{0, top.watch}};
    walkTree(folder, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        if (result == AddResult::limitReached || !entry.info.isDirectory() ||
            skippedFolders().isExcluded(entry.name, true)) {
            return false;
        }
        const std::size_t holderLength = entry.relativePath.size() - entry.name.size();
        while (above.size() > 1 && above.back().first != holderLength)
            above.pop_back();
        const Added added =
            addWatch(folder + "/" + entry.relativePath, above.back().second, entry.name, false);
        // A folder that vanished or can't be read meanwhile is passed over.
        if (added.result != AddResult::added) {
            if (added.result == AddResult::limitReached) result = AddResult::limitReached;
            return false;
        }
        above.emplace_back(entry.relativePath.size() + 1, added.watch);
        return true;
    });
    return {result, top.watch};
}

InotifyWatcher::AddResult InotifyWatcher::watchSource() {
    // The source itself may be reached through a link; nothing below it is followed.
    const Added source = watchTree(root_, WatchedFolders::noParent, root_, true);
    if (source.result == AddResult::failed) return source.result;
    rootWatch_ = source.watch;
    // A set-up over many folders leaves room for as many again in the table.
    folders_.shrinkToFit();
    struct stat status {};
    if (::stat(root_.c_str(), &status) == 0) {
        rootDevice_ = status.st_dev;
        rootInode_ = status.st_ino;
    }
    isWatchingSource_ = true;
    return source.result;
}

bool InotifyWatcher::watchNearestFolderAbove() {
    constexpr std::uint32_t ancestorMask =
        IN_CREATE | IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
    std::string folder = root_;
    while (folder.size() > 1) {
        const auto slash = folder.rfind('/');
        if (slash == std::string::npos) return false;
        ancestorNext_ = folder.substr(slash + 1);
        folder.resize(slash == 0 ? 1 : slash);
        ancestorWatch_ = ::inotify_add_watch(inotify_, folder.c_str(), ancestorMask);
        if (ancestorWatch_ >= 0) return true;
        if (errno == ENOSPC) return false;
    }
    return false;
}

InotifyWatcher::AddResult InotifyWatcher::attach() {
    // The source may come between the look at it and the watch above it: look again then.
    for (int attempt = 0; attempt < 3; ++attempt) {
        const AddResult source = watchSource();
        if (source != AddResult::failed) return source;
        if (!watchNearestFolderAbove() || !files::isFolder(root_)) return AddResult::failed;
        detach();
    }
    return AddResult::failed;
}

void InotifyWatcher::detach() {
    for (const int watch : folders_.watches())
        (void)::inotify_rm_watch(inotify_, watch);
    folders_.clear();
    if (ancestorWatch_ >= 0) (void)::inotify_rm_watch(inotify_, ancestorWatch_);
    rootWatch_ = ancestorWatch_ = -1;
    isWatchingSource_ = false;
}

bool InotifyWatcher::isTheWatchedSource() const {
    struct stat status {};
    return ::stat(root_.c_str(), &status) == 0 && status.st_dev == rootDevice_ &&
           status.st_ino == rootInode_;
}

bool InotifyWatcher::followTheSource() {
    const Logger log("BackupEngine");
    const bool wasWatching = isWatchingSource_;
    detach();
    const AddResult result = attach();
    if (result == AddResult::limitReached) logLimitReached();
    if (wasWatching && !isWatchingSource_) {
        log.notice("The source %{private}s is gone; watching for it to come back", root_);
    } else if (isWatchingSource_) {
        log.notice("Watching the source %{private}s again", root_);
    }
    return isWatchingSource_;
}

void InotifyWatcher::logLimitReached() const {
    Logger("BackupEngine")
        .error("%{public}s", watchLimitMessage(foldersToWatch(root_), inotifyWatchLimit()));
}

void InotifyWatcher::startWatching(const std::filesystem::path& path) {
    if (isStarted_) return;
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
    mountTable_ = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    if (attach() == AddResult::limitReached) {
        closeAll();
        fail(watchLimitMessage(foldersToWatch(root_), inotifyWatchLimit()));
    }

    delivery_ = std::make_shared<Delivery>();
    delivery_->onEventsDetected = onEventsDetected;
    isStarted_ = true;
    reader_ = std::thread([this] { readEvents(); });
}

void InotifyWatcher::stopWatching() {
    if (!isStarted_) return;
    const std::uint64_t one = 1;
    (void)::write(stopSignal_, &one, sizeof one);
    reader_.join();
    closeAll();
    delivery_.reset();
    isStarted_ = false;
}

void InotifyWatcher::closeAll() {
    if (inotify_ >= 0) ::close(inotify_);
    if (stopSignal_ >= 0) ::close(stopSignal_);
    if (mountTable_ >= 0) ::close(mountTable_);
    inotify_ = stopSignal_ = mountTable_ = rootWatch_ = ancestorWatch_ = -1;
    folders_.clear();
    isWatchingSource_ = false;
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

bool InotifyWatcher::handleEvent(const inotify_event& event) {
    if (event.mask & IN_Q_OVERFLOW) {
        // Events were lost, folders made meanwhile among them: watch what is there now. A
        // folder already watched keeps its watch.
        if (!isWatchingSource_ || !isTheWatchedSource()) {
            followTheSource();
        } else if (watchTree(root_, WatchedFolders::noParent, root_).result ==
                   AddResult::limitReached) {
            logLimitReached();
        }
        return true;
    }
    if (ancestorWatch_ >= 0 && event.wd == ancestorWatch_) {
        // Something above the source: only the way to it, or the folder watched, matters.
        const bool leadsOn = event.len > 0 && event.name == ancestorNext_;
        return (leadsOn || (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED))) &&
               followTheSource();
    }
    const bool isRoot = rootWatch_ >= 0 && event.wd == rootWatch_;
    if (isRoot && (event.mask & (rootKinds | IN_IGNORED))) {
        // Gone, moved away or unmounted: the path is followed, not the folder.
        followTheSource();
        return true;
    }
    if (event.mask & IN_IGNORED) {
        folders_.remove(event.wd);
        return false;
    }
    if (!folders_.contains(event.wd)) return false;
    const bool isNewFolder =
        (event.mask & IN_ISDIR) && (event.mask & (IN_CREATE | IN_MOVED_TO)) && event.len > 0;
    if (isNewFolder && !skippedFolders().isExcluded(event.name, true)) {
        // A folder above that went meanwhile leaves no path to it; its removal is heard.
        const auto holder = folders_.pathOf(event.wd);
        if (holder && watchTree(*holder + "/" + event.name, event.wd, event.name).result ==
                          AddResult::limitReached) {
            logLimitReached();
        }
    }
    return countsAsChange(event.mask, isRoot);
}

void InotifyWatcher::readEvents() {
    alignas(inotify_event) char buffer[64 * 1024];
    pollfd watched[3] = {
        {inotify_, POLLIN, 0}, {stopSignal_, POLLIN, 0}, {mountTable_, POLLPRI, 0}};
    for (;;) {
        if (::poll(watched, 3, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (watched[1].revents & POLLIN) return;
        bool changed = false;
        // A drive came or went: the path may lead to another folder now, or to one again.
        if ((watched[2].revents & (POLLPRI | POLLERR)) &&
            (!isWatchingSource_ || !isTheWatchedSource())) {
            // Gone counts as a change, as the source's own unmount does; back counts too.
            const bool wasWatching = isWatchingSource_;
            changed = followTheSource() || wasWatching;
        }
        const ssize_t length =
            (watched[0].revents & POLLIN) ? ::read(inotify_, buffer, sizeof buffer) : 0;
        for (char* at = buffer; length > 0 && at < buffer + length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(at);
            at += sizeof(inotify_event) + event->len;
            changed = handleEvent(*event) || changed;
        }
        if (changed) signalChange();
    }
}

}  // namespace quillstow
