#include "EngineHarness.hpp"

#include <condition_variable>
#include <mutex>

#include "Pairs.hpp"

namespace quillstow::testing {

void VirtualSleeper::sleep(double seconds, std::stop_token stop) const {
    struct Alarm {
        std::mutex mutex;
        std::condition_variable_any rang;
        bool hasRung = false;
    };
    const auto alarm = std::make_shared<Alarm>();
    const DelayedWork work = queue_.postDelayed(seconds, [alarm] {
        std::lock_guard lock(alarm->mutex);
        alarm->hasRung = true;
        alarm->rang.notify_all();
    });
    ++sleeping_;
    // Wakes a test that waits for this sleep to begin.
    queue_.post([] {});
    {
        std::unique_lock lock(alarm->mutex);
        if (!alarm->rang.wait(lock, stop, [&] { return alarm->hasRung; })) work.cancel();
    }
    --sleeping_;
}

EngineHarness::EngineHarness() {
    store = std::make_shared<ConfigStore>(root / "settings", queue, defaults);
    services = std::make_unique<BackupServices>(BackupServices{
        .mainQueue = queue,
        .wallClock = wallClock,
        .clock = clock,
        .sleeper = sleeper,
        .tasks = tasks,
        .fileSystem = fileSystem,
        .editors = editors,
        .activityGate = activityGate,
        .power = power,
        .defaults = defaults,
        .notificationCenter = notificationCenter,
        .volumes = volumes,
        .makeFileWatcher = [this]() -> std::unique_ptr<FileWatcher> {
            watchers.push_back(std::make_unique<FakeFileWatcher>());
            if (failWatchers) watchers.back()->failWith = "no more watches";
            return std::make_unique<HeldFileWatcher>(*watchers.back());
        },
    });
    backupQueue = std::make_shared<BackupQueue>(queue, tasks);
}

EngineHarness::~EngineHarness() {
    // A test that failed while a pass was held, or before it got there, lets it end.
    copyGate.holdAt(-1);
    copyGate.release();
    settle();
}

bool EngineHarness::finishRun() {
    if (!runUntilSettling()) return false;
    queue.advance(BackupEngine::settleDelay);
    return runUntil([&] { return sleeper.sleeping() == 0; });
}

CopyGate& EngineHarness::holdAtCopy(int number) {
    copyGate.holdAt(number);
    fileSystem.afterCopy = [this](const std::filesystem::path&, const std::filesystem::path&) {
        copyGate.afterCopy();
    };
    return copyGate;
}

void EngineHarness::useVerificationStages(std::function<void()> act) {
    afterCopying.act = std::move(act);
    services->integrity = &afterCopying;
    services->offsite = &offsiteSyncer;
}

void EngineHarness::settle() {
    // Tasks may wait for virtual time (the wait after a pass): let it pass until all have ended.
    for (int round = 0; round < 400; ++round) {
        queue.runPending();
        if (tasks.waitUntilIdle(0.05)) break;
        queue.advance(BackupEngine::settleDelay);
    }
    queue.runPending();
}

BackupPair EngineHarness::makePair(const std::string& name,
                                   const std::filesystem::path& destination) {
    BackupPair pair =
        pairOf(name, root / ("source-" + name), destination.empty() ? root / "drive" : destination);
    pair.createdAt = referenceDate();
    std::filesystem::create_directories(pair.sourceURL);
    std::filesystem::create_directories(pair.destinationURL);
    store->addPair(pair);
    return pair;
}

std::shared_ptr<BackupEngine> EngineHarness::makeEngine(const BackupPair& pair, bool withQueue) {
    auto engine = BackupEngine::make(pair.id, *services);
    engine->setConfigStore(store);
    engine->setNotifier(notifier);
    if (withQueue) engine->setBackupQueue(backupQueue);
    return engine;
}

std::vector<BackupEvent::EventType> EngineHarness::eventTypes() const {
    std::vector<BackupEvent::EventType> types;
    for (const auto& event : events())
        types.push_back(event.type);
    return types;
}

std::vector<std::string> EngineHarness::eventMessages(
    std::optional<BackupEvent::EventType> type) const {
    std::vector<std::string> messages;
    for (const auto& event : events()) {
        if (!type || event.type == *type) messages.push_back(event.message.value_or(""));
    }
    return messages;
}

std::optional<BackupPair> EngineHarness::storedPair(const Uuid& id) const {
    for (const auto& pair : store->pairs()) {
        if (pair.id == id) return pair;
    }
    return std::nullopt;
}

}  // namespace quillstow::testing
