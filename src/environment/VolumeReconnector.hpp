#pragma once

// Brings back pairs whose destination went away with a sleep or a change of network. At the
// moments it may have come back (the machine woke, the screens woke, the network came up) it
// waits a little, then looks at every pair whose destination is unreachable: first in a fresh
// mount table, then after looking the path up, which mounts autofs and systemd automount
// points. A pair that is back is handed to its owner, which restarts it, and is left alone for
// a while after.
//
// Threading: made, started, stopped and destroyed on the main thread, where all its state
// lives. Triggers may fire on any thread; they only hop to the main queue. Probes of the disk,
// which can hang on a dying share, run on tasks, one per pair, and never on the main thread; a
// pair stays in flight until its probe answers, so a hung share holds one task, not one per
// trigger. Copying is deleted.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "environment/Volumes.hpp"
#include "model/BackupPair.hpp"
#include "support/Clock.hpp"
#include "support/MainQueue.hpp"
#include "support/Tasks.hpp"

namespace quillstow {

// A moment at which a lost destination may have come back. The default never comes.
// start and stop are called on the main thread; `fire` may be called on any thread, from start
// until stop returns.
class ReconnectTrigger {
  public:
    using Fire = std::function<void()>;
    virtual ~ReconnectTrigger() = default;
    virtual void start(Fire /*fire*/) {}
    virtual void stop() {}
};

struct ReconnectTriggers {
    ReconnectTrigger* wake;
    ReconnectTrigger* screensWake;
    ReconnectTrigger* network;

    // Three that never fire.
    static ReconnectTriggers none();
};

// The pairs an attempt tries: those given (unreachable and still stored, in engine order) that
// are not in flight and were not brought back less than `handledInterval` before `now`.
std::vector<BackupPair> candidatesForAttempt(const std::vector<BackupPair>& unreachable,
                                             const std::set<Uuid>& inFlight,
                                             const std::map<Uuid, double>& recentlyHandled,
                                             double now, double handledInterval);

// Whether a destination is back: in the mount table as it is, or else after looking its path
// up, which asks autofs and systemd automount to mount it. May block on a dying share.
bool probeDestination(const std::filesystem::path& destination, const Volumes& volumes);

class VolumeReconnector {
  public:
    static constexpr double attemptDelay = 2.0;
    static constexpr double handledInterval = 5.0;

    struct Owner {
        // Pairs whose engine finds the destination unreachable, still stored, in engine order.
        std::function<std::vector<BackupPair>()> unreachablePairs;
        // A pair whose destination is back; the owner decides whether it still wants it.
        std::function<void(const BackupPair&)> destinationReconnected;
    };

    VolumeReconnector(MainQueue& mainQueue, TaskRunner& tasks, const Clock& clock,
                      const Volumes& volumes, ReconnectTriggers triggers, Owner owner);
    VolumeReconnector(const VolumeReconnector&) = delete;
    VolumeReconnector& operator=(const VolumeReconnector&) = delete;
    ~VolumeReconnector();

    // Idempotent: starts listening to the triggers.
    void start();
    // Ends the triggers and drops a pending attempt; probes under way are answered to no one.
    void stop();

    // The first trigger within attemptDelay wins and names the attempt.
    void scheduleAttempt(const std::string& trigger);

  private:
    struct Link {
        VolumeReconnector* reconnector;
    };

    void attempt(const std::string& trigger);
    void finish(const BackupPair& pair, bool isBack, const std::string& trigger);
    ReconnectTrigger::Fire hopToMainQueue(std::string trigger);

    MainQueue& mainQueue_;
    TaskRunner& tasks_;
    const Clock& clock_;
    const Volumes& volumes_;
    const ReconnectTriggers triggers_;
    const Owner owner_;
    std::shared_ptr<Link> link_ = std::make_shared<Link>(Link{this});
    bool isStarted_ = false;
    std::optional<DelayedWork> pendingAttempt_;
    std::set<Uuid> inFlight_;
    std::map<Uuid, double> recentlyHandled_;
};

}  // namespace quillstow
