#pragma once

// Engines in virtual time over real folders: a virtual main queue (which also times the queue's
// limit and the wait after a pass), the real disk behind a fault-injecting wrapper, and fakes
// for the services of the machine. The test drives it from its own thread, which is the main
// thread; a pass runs on a task and waits where the test holds it.

#include <semaphore>
#include <vector>

#include "TestTree.hpp"
#include "control/BackupServices.hpp"
#include "control/RecordingNotifier.hpp"
#include "control/StatusManager.hpp"
#include "copy/FakeEditors.hpp"
#include "copy/FakeFileWatcher.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "environment/FakePower.hpp"
#include "environment/FakeVolumes.hpp"
#include "support/VirtualMainQueue.hpp"
#include "verify/IntegrityVerifier.hpp"
#include "verify/OffsiteSyncer.hpp"

namespace quillstow::testing {

// Holds the pass after its `number`th copy (from 1) until the test lets it go.
class CopyGate {
  public:
    void holdAt(int number) { holdAt_ = number; }
    void afterCopy() {
        if (++copies_ != holdAt_) return;
        held_.release();
        resumed_.acquire();
    }
    bool waitUntilHeld() { return held_.try_acquire_for(std::chrono::seconds(20)); }
    void release() { resumed_.release(); }

  private:
    std::atomic<int> holdAt_{-1};
    std::atomic<int> copies_{0};
    std::counting_semaphore<> held_{0};
    std::counting_semaphore<> resumed_{0};
};

// Sleeps in virtual time: the wait ends when the test moves the main queue's clock past it.
class VirtualSleeper final : public Sleeper {
  public:
    explicit VirtualSleeper(VirtualMainQueue& queue) : queue_(queue) {}
    void sleep(double seconds, std::stop_token stop) const override;
    // Tasks now inside a sleep.
    int sleeping() const { return sleeping_; }

  private:
    VirtualMainQueue& queue_;
    mutable std::atomic<int> sleeping_{0};
};

// The program's hash upkeep, with a moment for the test once a pass has copied.
class IntegrityAfterCopying final : public IntegrityStage {
  public:
    explicit IntegrityAfterCopying(IntegrityStage& inner) : inner_(inner) {}
    std::optional<SampleCheck> afterPass(const PassFiles& pass,
                                         const std::filesystem::path& backupRoot,
                                         std::stop_token stop) override {
        if (act) std::exchange(act, nullptr)();
        return inner_.afterPass(pass, backupRoot, stop);
    }
    // Runs once, on the run's task.
    std::function<void()> act;

  private:
    IntegrityStage& inner_;
};

class EngineHarness {
  public:
    EngineHarness();
    ~EngineHarness();

    // A pair of a source below the harness's folder into `destination` (by default the
    // harness's "drive"), both made on disk and the pair stored.
    BackupPair makePair(const std::string& name = "Work",
                        const std::filesystem::path& destination = {});
    std::shared_ptr<BackupEngine> makeEngine(const BackupPair& pair, bool withQueue = true);

    // Runs main-thread work until the condition holds, waiting for background tasks.
    bool runUntil(const std::function<bool()>& condition) { return queue.runUntil(condition); }
    // Until a run has done its work and waits its five seconds before idle.
    bool runUntilSettling() {
        return runUntil([&] { return sleeper.sleeping() == 1; });
    }
    // Lets a run that waits its five seconds end.
    bool finishRun();
    static std::filesystem::path mirrorOf(const BackupPair& pair) {
        return pair.destinationURL / "Quillstow" / pair.name;
    }
    // Lets the background tasks finish and runs what they posted.
    void settle();
    CopyGate& holdAtCopy(int number);
    // The program's hash upkeep and offsite copy, for engines made after this, with `act` run
    // once the next pass has copied, before anything follows it.
    void useVerificationStages(std::function<void()> act = nullptr);

    std::vector<BackupEvent> events() const { return store->events(); }
    std::vector<BackupEvent::EventType> eventTypes() const;
    // The messages of the log, or of its events of one type; an event without one as "".
    std::vector<std::string> eventMessages(std::optional<BackupEvent::EventType> type = {}) const;
    std::vector<std::string> messagesOf(BackupEvent::EventType type) const {
        return eventMessages(type);
    }
    std::optional<BackupPair> storedPair(const Uuid& id) const;

    TemporaryFolder root;
    ManualClock clock;
    VirtualMainQueue queue{clock};
    // Whole seconds, as the files of a backup keep its times.
    ManualWallClock wallClock{Date{std::chrono::seconds(1'700'000'000)}};
    VirtualSleeper sleeper{queue};
    FaultyFileSystem fileSystem;
    FakeEditors editors;
    ActivityGate activityGate;
    FakePower power;
    InMemoryUserDefaults defaults;
    NotificationCenter notificationCenter;
    FakeVolumes volumes;
    // Every watcher an engine made, in order; kept after the engine lets it go.
    std::vector<std::unique_ptr<FakeFileWatcher>> watchers;
    bool failWatchers = false;
    std::shared_ptr<ConfigStore> store;
    std::shared_ptr<RecordingNotifier> notifier = std::make_shared<RecordingNotifier>();
    IntegrityVerifier integrityVerifier{wallClock};
    IntegrityAfterCopying afterCopying{integrityVerifier};
    OffsiteSyncer offsiteSyncer{fileSystem, activityGate, sleeper, clock};
    std::unique_ptr<BackupServices> services;
    std::shared_ptr<BackupQueue> backupQueue;
    CopyGate copyGate;
    // Last: goes first and waits for every task.
    TaskRunner tasks;
};

// Every status an engine takes, in order.
inline Subscription recordStatuses(BackupEngine& engine, std::vector<BackupStatus>& statuses) {
    return engine.observeStatus([&](const BackupStatus& status) { statuses.push_back(status); });
}

}  // namespace quillstow::testing
