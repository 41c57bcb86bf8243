#include "environment/VolumeReconnector.hpp"

#include <cassert>

#include "support/Logger.hpp"

namespace quillstow {

ReconnectTriggers ReconnectTriggers::none() {
    // Stateless, so one serves everywhere.
    static ReconnectTrigger never;
    return {&never, &never, &never};
}

std::vector<BackupPair> candidatesForAttempt(const std::vector<BackupPair>& unreachable,
                                             const std::set<Uuid>& busy,
                                             const std::map<Uuid, double>& recentlyHandled,
                                             double now, double handledInterval) {
    std::vector<BackupPair> candidates;
    for (const auto& pair : unreachable) {
        if (busy.contains(pair.id)) continue;
        const auto handled = recentlyHandled.find(pair.id);
        if (handled != recentlyHandled.end() && now - handled->second < handledInterval) continue;
        candidates.push_back(pair);
    }
    return candidates;
}

// The way back to the reconnector for what may outlive it: a trigger's thread, a probe's task,
// a timer. Cut on the main thread when the reconnector stops; after that nothing reaches it, and
// nothing touches the main queue either, which may then go before a stuck probe returns.
class VolumeReconnector::Link : public std::enable_shared_from_this<Link> {
  public:
    using Work = std::function<void(VolumeReconnector&)>;

    Link(MainQueue& queue, VolumeReconnector& reconnector)
        : queue_(&queue), reconnector_(&reconnector) {}

    // Any thread: `work` runs on the main thread, unless the link is cut by then.
    void post(Work work) {
        std::lock_guard lock(mutex_);
        if (!queue_) return;
        queue_->post([self = shared_from_this(), work = std::move(work)] { self->run(work); });
    }
    // On the main thread: `work` runs now, unless the link is cut.
    void run(const Work& work) {
        VolumeReconnector* reconnector = nullptr;
        {
            std::lock_guard lock(mutex_);
            reconnector = reconnector_;
        }
        if (reconnector) work(*reconnector);
    }
    void cut() {
        std::lock_guard lock(mutex_);
        queue_ = nullptr;
        reconnector_ = nullptr;
    }

  private:
    std::mutex mutex_;
    MainQueue* queue_;
    VolumeReconnector* reconnector_;
};

VolumeReconnector::VolumeReconnector(MainQueue& mainQueue, const Clock& clock,
                                     std::shared_ptr<const DestinationProbe> probe,
                                     ReconnectTriggers triggers, Owner owner, StartTask startTask)
    : mainQueue_(mainQueue),
      clock_(clock),
      probe_(std::move(probe)),
      triggers_(triggers),
      owner_(std::move(owner)),
      startTask_(std::move(startTask)),
      link_(std::make_shared<Link>(mainQueue, *this)) {}

VolumeReconnector::~VolumeReconnector() {
    stop();
    link_->cut();
}

void VolumeReconnector::start() {
    if (isStarted_) return;
    isStarted_ = true;
    const auto hopToMainQueue = [link = link_](std::string trigger) -> ReconnectTrigger::Fire {
        return [link, trigger] {
            link->post([trigger](VolumeReconnector& self) { self.scheduleAttempt(trigger); });
        };
    };
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
    for (const auto& [id, flight] : inFlight_)
        flight.giveUp.cancel();
    inFlight_.clear();
    hungProbes_.clear();
    // A probe that answers later finds no one: a new link is what the next start listens on.
    link_->cut();
    link_ = std::make_shared<Link>(mainQueue_, *this);
}

void VolumeReconnector::scheduleAttempt(const std::string& trigger) {
    assert(mainQueue_.isCurrent());
    if (pendingAttempt_) return;
    pendingAttempt_ = mainQueue_.postDelayed(attemptDelay, [link = link_, trigger] {
        link->run([&](VolumeReconnector& self) {
            self.pendingAttempt_.reset();
            self.attempt(trigger);
        });
    });
}

std::set<Uuid> VolumeReconnector::busyPairs() const {
    std::set<Uuid> busy;
    for (const auto& [id, flight] : inFlight_)
        busy.insert(id);
    for (const auto& [id, count] : hungProbes_) {
        if (count >= hungProbesPerPair) busy.insert(id);
    }
    return busy;
}

void VolumeReconnector::attempt(const std::string& trigger) {
    assert(mainQueue_.isCurrent());
    const double now = clock_.now();
    std::erase_if(recentlyHandled_,
                  [&](const auto& entry) { return now - entry.second >= handledInterval; });
    const auto candidates = candidatesForAttempt(owner_.unreachablePairs(), busyPairs(),
                                                 recentlyHandled_, now, handledInterval);
    for (const auto& pair : candidates)
        startProbe(pair, trigger);
}

void VolumeReconnector::startProbe(const BackupPair& pair, const std::string& trigger) {
    const std::uint64_t number = ++probesStarted_;
    const DelayedWork giveUp =
        mainQueue_.postDelayed(probeTimeLimit, [link = link_, id = pair.id, number] {
            link->run([&](VolumeReconnector& self) { self.giveUp(id, number); });
        });
    inFlight_[pair.id] = InFlight{number, giveUp};
    // One task per pair, so that a share that hangs holds back no other pair; abandonable, so
    // that it holds back no quit either. It holds the probe and the link, nothing of ours.
    startTask_([probe = probe_, link = link_, pair, number, trigger] {
        const bool isBack = probe->isBack(pair.destinationURL);
        link->post([pair, number, isBack, trigger](VolumeReconnector& self) {
            self.finish(pair, number, isBack, trigger);
        });
    });
}

void VolumeReconnector::giveUp(const Uuid& pairId, std::uint64_t probe) {
    const auto found = inFlight_.find(pairId);
    if (found == inFlight_.end() || found->second.probe != probe) return;
    inFlight_.erase(found);
    ++hungProbes_[pairId];
}

void VolumeReconnector::finish(const BackupPair& pair, std::uint64_t probe, bool isBack,
                               const std::string& trigger) {
    const auto found = inFlight_.find(pair.id);
    if (found == inFlight_.end() || found->second.probe != probe) {
        // A probe given up on: its attempt is over, and the answer goes unheard.
        const auto hung = hungProbes_.find(pair.id);
        if (hung != hungProbes_.end() && --hung->second <= 0) hungProbes_.erase(hung);
        return;
    }
    found->second.giveUp.cancel();
    inFlight_.erase(found);
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
