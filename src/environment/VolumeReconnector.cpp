#include "environment/VolumeReconnector.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cassert>

#include "support/Logger.hpp"
#include "support/Paths.hpp"

namespace quillstow {

namespace fs = std::filesystem;

ReconnectTriggers ReconnectTriggers::none() {
    // Stateless, so one serves everywhere.
    static ReconnectTrigger never;
    return {&never, &never, &never};
}

std::vector<BackupPair> candidatesForAttempt(const std::vector<BackupPair>& unreachable,
                                             const std::set<Uuid>& inFlight,
                                             const std::map<Uuid, double>& recentlyHandled,
                                             double now, double handledInterval) {
    std::vector<BackupPair> candidates;
    for (const auto& pair : unreachable) {
        if (inFlight.contains(pair.id)) continue;
        const auto handled = recentlyHandled.find(pair.id);
        if (handled != recentlyHandled.end() && now - handled->second < handledInterval) continue;
        candidates.push_back(pair);
    }
    return candidates;
}

bool probeDestination(const fs::path& destination, const Volumes& volumes) {
    if (volumes.isDestinationReachable(destination)) return true;
    // Opening the folder, unlike a stat, makes autofs and systemd automount mount the last
    // component too. What it finds is judged by the mount table again below.
    const int folder =
        ::open(paths::standardized(destination).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) ::close(folder);
    if (!volumes.isDestinationReachable(destination)) return false;
    logDuplicateMounts(destination, volumes.mounts());
    return true;
}

VolumeReconnector::VolumeReconnector(MainQueue& mainQueue, TaskRunner& tasks, const Clock& clock,
                                     const Volumes& volumes, ReconnectTriggers triggers,
                                     Owner owner)
    : mainQueue_(mainQueue),
      tasks_(tasks),
      clock_(clock),
      volumes_(volumes),
      triggers_(triggers),
      owner_(std::move(owner)) {}

VolumeReconnector::~VolumeReconnector() {
    stop();
    link_->reconnector = nullptr;
}

ReconnectTrigger::Fire VolumeReconnector::hopToMainQueue(std::string trigger) {
    return [&queue = mainQueue_, link = std::weak_ptr<Link>(link_), trigger] {
        queue.post([link, trigger] {
            const auto held = link.lock();
            if (held && held->reconnector) held->reconnector->scheduleAttempt(trigger);
        });
    };
}

void VolumeReconnector::start() {
    if (isStarted_) return;
    isStarted_ = true;
    triggers_.wake->start(hopToMainQueue("wake"));
    triggers_.screensWake->start(hopToMainQueue("screens-wake"));
    triggers_.network->start(hopToMainQueue("network"));
}

void VolumeReconnector::stop() {
    if (isStarted_) {
        triggers_.wake->stop();
        triggers_.screensWake->stop();
        triggers_.network->stop();
        isStarted_ = false;
    }
    if (pendingAttempt_) pendingAttempt_->cancel();
    pendingAttempt_.reset();
    // A probe that answers later finds no one: a new link is what the next start listens on.
    link_->reconnector = nullptr;
    link_ = std::make_shared<Link>(Link{this});
    inFlight_.clear();
}

void VolumeReconnector::scheduleAttempt(const std::string& trigger) {
    assert(mainQueue_.isCurrent());
    if (pendingAttempt_) return;
    pendingAttempt_ =
        mainQueue_.postDelayed(attemptDelay, [link = std::weak_ptr<Link>(link_), trigger] {
            const auto held = link.lock();
            if (!held || !held->reconnector) return;
            held->reconnector->pendingAttempt_.reset();
            held->reconnector->attempt(trigger);
        });
}

void VolumeReconnector::attempt(const std::string& trigger) {
    assert(mainQueue_.isCurrent());
    const double now = clock_.now();
    std::erase_if(recentlyHandled_,
                  [&](const auto& entry) { return now - entry.second >= handledInterval; });
    const auto candidates = candidatesForAttempt(owner_.unreachablePairs(), inFlight_,
                                                 recentlyHandled_, now, handledInterval);
    for (const auto& pair : candidates) {
        inFlight_.insert(pair.id);
        // One task per pair, so that a share that hangs holds back no other pair.
        tasks_.start([&queue = mainQueue_, &volumes = volumes_, link = std::weak_ptr<Link>(link_),
                      pair, trigger](std::stop_token) {
            lowerToUtilityPriority();
            const bool isBack = probeDestination(pair.destinationURL, volumes);
            queue.post([link, pair, isBack, trigger] {
                const auto held = link.lock();
                if (held && held->reconnector) held->reconnector->finish(pair, isBack, trigger);
            });
        });
    }
}

void VolumeReconnector::finish(const BackupPair& pair, bool isBack, const std::string& trigger) {
    inFlight_.erase(pair.id);
    if (!isBack) return;
    recentlyHandled_[pair.id] = clock_.now();
    Logger("BackupEngine")
        .notice(
            "Auto-reconnected destination for pair \"%{private,mask.hash}s\" (trigger: "
            "%{public}s)",
            pair.name, trigger);
    owner_.destinationReconnected(pair);
}

}  // namespace quillstow
