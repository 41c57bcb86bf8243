#pragma once

// Brings back pairs whose destination went away with a sleep or a change of network. At the
// moments it may have come back (the machine woke, the screens woke, the network came up) it
// waits a little, then probes every pair whose destination is unreachable: the mount table as
// it is, then what may mount the share again (see SystemDestinationProbe). A pair that is back
// is handed to its owner, which restarts it, and is left alone for a while after.
//
// Threading: made, started, stopped and destroyed on the main thread, where all its state
// lives. Triggers may fire on any thread; they only hop to the main queue. Each probe runs on an
// abandonable task of its own, one per pair, never on the main thread. A probe that has not
// answered within probeTimeLimit is given up: the pair leaves flight and the next attempt may
// probe it again, while the stuck task is left to the kernel, holding only the probe and the
// way back here, which the reconnector cuts when it stops. So neither the main queue nor the
// program's quit ever waits for a share that hangs. Copying is deleted.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "environment/DestinationProbe.hpp"
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
// are not busy (in flight, or with too many probes hung) and were not brought back less than
// `handledInterval` before `now`.
std::vector<BackupPair> candidatesForAttempt(const std::vector<BackupPair>& unreachable,
                                             const std::set<Uuid>& busy,
                                             const std::map<Uuid, double>& recentlyHandled,
                                             double now, double handledInterval);

class VolumeReconnector {
  public:
    static constexpr double attemptDelay = 2.0;
    static constexpr double handledInterval = 5.0;
    // How long an attempt waits for the probe of one destination: more than GVFS is given to
    // mount a share, far more than a share that answers takes.
    static constexpr double probeTimeLimit = 30.0;
    // Probes of one pair given up and still stuck; past this many the pair waits for one of them
    // to return rather than start another that would hang beside them.
    static constexpr int hungProbesPerPair = 2;

    struct Owner {
        // Pairs whose engine finds the destination unreachable, still stored, in engine order.
        std::function<std::vector<BackupPair>()> unreachablePairs;
        // A pair whose destination is back; the owner decides whether it still wants it.
        std::function<void(const BackupPair&)> destinationReconnected;
    };

    // How a probe's task is started; tests count them.
    using StartTask = std::function<void(std::function<void()>)>;

    VolumeReconnector(MainQueue& mainQueue, const Clock& clock,
                      std::shared_ptr<const DestinationProbe> probe, ReconnectTriggers triggers,
                      Owner owner, StartTask startTask = startAbandonableTask);
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
    class Link;
    struct InFlight {
        std::uint64_t probe;
        DelayedWork giveUp;
    };

    void attempt(const std::string& trigger);
    void startProbe(const BackupPair& pair, const std::string& trigger);
    void giveUp(const Uuid& pairId, std::uint64_t probe);
    void finish(const BackupPair& pair, std::uint64_t probe, bool isBack,
                const std::string& trigger);
    std::set<Uuid> busyPairs() const;

    MainQueue& mainQueue_;
    const Clock& clock_;
    const std::shared_ptr<const DestinationProbe> probe_;
    const ReconnectTriggers triggers_;
    const Owner owner_;
    const StartTask startTask_;
    std::shared_ptr<Link> link_;
    bool isStarted_ = false;
    std::optional<DelayedWork> pendingAttempt_;
    std::map<Uuid, InFlight> inFlight_;
    std::map<Uuid, int> hungProbes_;
    std::map<Uuid, double> recentlyHandled_;
    std::uint64_t probesStarted_ = 0;
};

}  // namespace quillstow
