// The life of one pair in virtual time, over real folders: the states of a run from the start
// to the return to idle, what is recorded and told after a pass, and the runs that end early.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "EngineHarness.hpp"
#include "LogCapture.hpp"
#include "environment/VolumeSpace.hpp"
#include "model/BookmarkManager.hpp"
#include "support/Paths.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using Case = BackupStatus::Case;
using Type = BackupEvent::EventType;
namespace fs = std::filesystem;

class BackupEngineTest : public ::testing::Test {
  protected:
    EngineHarness h;

    bool runUntilStatus(BackupEngine& engine, Case kind) {
        return h.runUntil([&] { return engine.status().kind() == kind; });
    }
};

TEST_F(BackupEngineTest, AStartedPairRunsAFirstPassRecordsItAndSettlesToIdleAfterFiveSeconds) {
    const BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "notes.txt", "hello");
    writeFile(pair.sourceURL / "a/b.txt", "world");
    auto engine = h.makeEngine(pair);
    StatusHistory history(*engine);

    engine->start(pair);
    ASSERT_EQ(h.watchers.size(), 1u);
    EXPECT_TRUE(h.watchers[0]->isWatching());
    EXPECT_EQ(h.watchers[0]->watchedPath, pair.sourceURL);
    ASSERT_TRUE(h.runUntilSettling());

    EXPECT_EQ(engine->status(), BackupStatus::completed(2, 0));
    EXPECT_THAT(history.cases(),
                ElementsAre(Case::queued, Case::scanning, Case::syncing, Case::completed));
    EXPECT_EQ(readFile(EngineHarness::mirrorOf(pair) / "a/b.txt"), "world");

    const auto stored = h.storedPair(pair.id);
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->lastBackupAt, h.wallClock.now());
    EXPECT_EQ(stored->lastBackupFileCount, 2);
    EXPECT_EQ(stored->lastBackupByteCount, 10);
    ASSERT_EQ(h.events().size(), 1u);
    EXPECT_EQ(h.events()[0].type, Type::backup);
    EXPECT_EQ(h.events()[0].filesAffected, 2);
    EXPECT_EQ(h.events()[0].bytesTransferred, 10);
    EXPECT_FALSE(h.events()[0].message);
    EXPECT_THAT(h.notifier->sent,
                ElementsAre("complete: Work 2 2 files backed up. Every file was verified after "
                            "copying to make sure nothing was corrupted."));

    h.queue.advance(4.9);
    EXPECT_EQ(engine->status().kind(), Case::completed);
    h.queue.advance(0.1);
    ASSERT_TRUE(runUntilStatus(*engine, Case::idle));
    ASSERT_TRUE(engine->destinationFreeSpace());
    EXPECT_GT(*engine->destinationFreeSpace(), 0);
}

TEST_F(BackupEngineTest, ADisabledPairStaysPausedAndNothingRuns) {
    BackupPair pair = h.makePair();
    pair.isEnabled = false;
    writeFile(pair.sourceURL / "f", "x");
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    h.settle();
    EXPECT_EQ(engine->status(), BackupStatus::paused());
    EXPECT_TRUE(h.watchers.empty());
    EXPECT_FALSE(fs::exists(pair.destinationURL / "Quillstow"));
}

TEST_F(BackupEngineTest, AnUnreachableDestinationAtTheStartStopsThere) {
    const BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "f", "x");
    auto engine = h.makeEngine(pair);
    h.volumes.reachable = false;
    engine->start(pair);
    EXPECT_EQ(engine->status(), BackupStatus::destinationUnreachable());
    h.settle();
    EXPECT_TRUE(h.watchers.empty());
    EXPECT_FALSE(fs::exists(EngineHarness::mirrorOf(pair)));
}

TEST_F(BackupEngineTest, ADestinationGoneAtATriggerIsReportedWithoutEventOrNotification) {
    const BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "f", "x");
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(h.finishRun());
    const auto eventsBefore = h.events().size();
    const auto sentBefore = h.notifier->sent.size();

    h.volumes.reachable = false;
    engine->triggerBackup(pair);
    ASSERT_TRUE(runUntilStatus(*engine, Case::destinationUnreachable));
    h.settle();
    EXPECT_EQ(h.events().size(), eventsBefore);
    EXPECT_EQ(h.notifier->sent.size(), sentBefore);
}

TEST_F(BackupEngineTest, ASourceRenamedWhileClosedAsksToBeReselectedUntilAFolderIsAtItsPath) {
    BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "f", "x");
    pair.sourceBookmark = BookmarkManager::bookmarkData(pair.sourceURL, true);
    h.store->updatePair(pair);
    fs::rename(pair.sourceURL, h.root / "renamed");
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    EXPECT_EQ(engine->status(), BackupStatus::error(BackupError::bookmarkStale(pair.sourceURL)));
    h.settle();
    EXPECT_TRUE(h.events().empty());

    // The path the user chose is watched: a folder made there is backed up.
    ASSERT_EQ(h.watchers.size(), 1u);
    EXPECT_EQ(h.watchers[0]->watchedPath, pair.sourceURL);
    writeFile(pair.sourceURL / "g", "y");
    h.watchers[0]->fire();
    h.queue.advance(Debouncer::defaultDelay);
    ASSERT_TRUE(h.finishRun());
    EXPECT_EQ(readFile(EngineHarness::mirrorOf(pair) / "g"), "y");
}

TEST_F(BackupEngineTest, AWatcherThatCannotStartIsAnErrorAndNoPassRuns) {
    const BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "f", "x");
    h.failWatchers = true;
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    EXPECT_EQ(engine->status(), BackupStatus::error(BackupError::watcherFailed("no more watches")));
    h.settle();
    EXPECT_FALSE(fs::exists(EngineHarness::mirrorOf(pair)));
}

TEST_F(BackupEngineTest, AChangeBacksUpTwoSecondsAfterTheLastSignal) {
    const BackupPair pair = h.makePair();
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(h.finishRun());
    ASSERT_EQ(engine->status(), BackupStatus::idle());

    writeFile(pair.sourceURL / "new.txt", "fresh");
    h.watchers[0]->fire();
    h.queue.advance(1.0);
    h.watchers[0]->fire();
    h.queue.advance(1.9);
    EXPECT_EQ(engine->status().kind(), Case::idle);
    h.queue.advance(0.1);
    ASSERT_TRUE(runUntilStatus(*engine, Case::completed));
    EXPECT_EQ(engine->status(), BackupStatus::completed(1, 0));
    EXPECT_EQ(readFile(EngineHarness::mirrorOf(pair) / "new.txt"), "fresh");
}

TEST_F(BackupEngineTest, APowerReasonPausesBeforeScanningAndLogsIt) {
    const BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "f", "x");
    h.power.setHeat(ThermalState::serious);
    auto engine = h.makeEngine(pair);
    StatusHistory history(*engine);
    engine->start(pair);
    ASSERT_TRUE(runUntilStatus(*engine, Case::paused));
    h.settle();
    EXPECT_THAT(history.cases(), ElementsAre(Case::queued, Case::paused));
    EXPECT_THAT(h.eventTypes(), ElementsAre(Type::error));
    EXPECT_THAT(h.eventMessages(),
                ElementsAre("Your computer is running hot — will resume when it cools down."));
    EXPECT_EQ(h.events()[0].filesAffected, 0);
    EXPECT_TRUE(h.notifier->sent.empty());
    EXPECT_FALSE(fs::exists(EngineHarness::mirrorOf(pair)));
}

TEST_F(BackupEngineTest, ARefusedPassIsAnErrorInThePassesOwnWordsWithoutNotification) {
    struct Refusal {
        const char* name;
        std::function<fs::path(const BackupPair&)> destination;
        std::string words;
    };
    const Refusal refusals[] = {
        {"inside the source", [](const BackupPair& pair) { return pair.sourceURL / "backups"; },
         "Destination is inside the source folder. Choose a different destination."},
        {"the root", [](const BackupPair&) { return fs::path("/"); },
         "Destination cannot be the root of the filesystem."},
    };
    for (const auto& refusal : refusals) {
        EngineHarness harness;
        BackupPair pair = harness.makePair();
        pair.destinationURL = refusal.destination(pair);
        fs::create_directories(pair.destinationURL);
        auto engine = harness.makeEngine(pair);
        engine->start(pair);
        ASSERT_TRUE(harness.runUntil([&] { return engine->status().kind() == Case::error; }))
            << refusal.name;
        harness.settle();
        EXPECT_EQ(engine->status(), BackupStatus::error(BackupError::watcherFailed(refusal.words)))
            << refusal.name;
        EXPECT_THAT(harness.eventMessages(), ElementsAre(refusal.words)) << refusal.name;
        EXPECT_TRUE(harness.notifier->sent.empty()) << refusal.name;
        EXPECT_FALSE(harness.storedPair(pair.id)->lastBackupAt) << "a refused pass is not recorded";
        EXPECT_FALSE(fs::exists("/Quillstow")) << refusal.name;
    }
}

TEST_F(BackupEngineTest, ThreeFailedFilesOfThirteenShowAsPartialFailureForFiveSeconds) {
    const BackupPair pair = h.makePair();
    for (int i = 0; i < 13; ++i)
        writeFile(pair.sourceURL / ("f" + std::to_string(i)), "data");
    h.fileSystem.failNext(FaultyFileSystem::Operation::copyItem, EPERM, 3);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(h.runUntilSettling());

    EXPECT_EQ(engine->status(), BackupStatus::error(BackupError::partialFailure(3, 13)));
    EXPECT_EQ(engine->status().displayText(), "3 of 13 files couldn't be backed up.");
    EXPECT_THAT(h.eventTypes(), ElementsAre(Type::error));
    EXPECT_THAT(h.eventMessages(), ElementsAre("3 files couldn't be copied."));
    EXPECT_EQ(h.events()[0].filesAffected, 10);
    EXPECT_THAT(h.notifier->sent,
                ElementsAre("error: Work — 3 of 13 files couldn't be backed up."));
    EXPECT_EQ(h.storedPair(pair.id)->lastBackupFileCount, 10) << "recorded, errors and all";

    h.queue.advance(5);
    ASSERT_TRUE(runUntilStatus(*engine, Case::idle));
}

TEST_F(BackupEngineTest, APassWithNothingToCopyCompletesWithZeroFiles) {
    const BackupPair pair = h.makePair();
    h.defaults.setInteger("Quillstow.tipCounter", 3);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(h.runUntilSettling());
    EXPECT_EQ(engine->status(), BackupStatus::completed(0, 0));
    // No file copied: the list holds the sample tip alone, at index 1 modulo 1.
    EXPECT_THAT(h.notifier->sent,
                ElementsAre("complete: Work 0 Everything's up to date. A sample of your existing "
                            "backups was re-checked — everything looks healthy."));
}

TEST_F(BackupEngineTest, WithoutATipTheNotificationCarriesNoMessage) {
    const BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "f", "x");
    h.defaults.setInteger("Quillstow.tipCounter", 1);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(h.runUntilSettling());
    EXPECT_THAT(h.notifier->sent, ElementsAre("complete: Work 1 (no message)"));
    EXPECT_EQ(h.defaults.integer("Quillstow.tipCounter"), 2);
}

TEST_F(BackupEngineTest, AStopDuringThePassReturnsToIdleAndRecordsNothing) {
    const BackupPair pair = h.makePair();
    for (int i = 0; i < 20; ++i)
        writeFile(pair.sourceURL / ("f" + std::to_string(i)), "data");
    CopyGate& gate = h.holdAtCopy(5);
    auto engine = h.makeEngine(pair);
    StatusHistory history(*engine);
    engine->start(pair);
    ASSERT_TRUE(gate.waitUntilHeld());
    ASSERT_TRUE(runUntilStatus(*engine, Case::syncing));

    engine->stop();
    EXPECT_EQ(engine->status(), BackupStatus::idle());
    EXPECT_FALSE(h.watchers[0]->isWatching());
    gate.release();
    h.settle();

    EXPECT_EQ(engine->status(), BackupStatus::idle());
    EXPECT_TRUE(h.events().empty());
    EXPECT_FALSE(h.storedPair(pair.id)->lastBackupAt);
    EXPECT_TRUE(h.notifier->sent.empty());
    EXPECT_LT(filesBelow(EngineHarness::mirrorOf(pair)).size(), 20u);
}

// Ten triggers while a pass runs: each cancels the one before, which then ends without a pass.
TEST(EngineTriggers, ACancelledTriggerThatWaitsEndsWithoutAPass) {
    const struct {
        const char* name;
        bool stopsAfterTheTriggers;
        std::size_t passes;
    } cases[] = {
        {"the newest trigger runs once after the pass", false, 2},
        {"a stop ends the pass and every trigger", true, 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        EngineHarness h;
        const BackupPair pair = h.makePair();
        for (int i = 0; i < 3; ++i)
            writeFile(pair.sourceURL / ("f" + std::to_string(i)), "data");
        CopyGate& gate = h.holdAtCopy(1);
        auto engine = h.makeEngine(pair);
        engine->start(pair);
        ASSERT_TRUE(gate.waitUntilHeld());
        for (int i = 0; i < 10; ++i)
            engine->triggerBackup(pair);
        if (test.stopsAfterTheTriggers) engine->stop();
        gate.release();
        h.settle();
        EXPECT_EQ(h.events().size(), test.passes) << "one event a pass";
    }
}

TEST_F(BackupEngineTest, AStatusSetAfterAStopIsNotOverwrittenByTheRunThatEnds) {
    const BackupPair pair = h.makePair();
    for (int i = 0; i < 20; ++i)
        writeFile(pair.sourceURL / ("f" + std::to_string(i)), "data");
    CopyGate& gate = h.holdAtCopy(3);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(gate.waitUntilHeld());
    engine->stop();
    engine->setStatus(BackupStatus::paused());
    gate.release();
    h.settle();
    EXPECT_EQ(engine->status(), BackupStatus::paused());
}

TEST_F(BackupEngineTest, AJobThatOutrunsTheHourIsReportedAsTimedOut) {
    const BackupPair pair = h.makePair();
    for (int i = 0; i < 5; ++i)
        writeFile(pair.sourceURL / ("f" + std::to_string(i)), "data");
    CopyGate& gate = h.holdAtCopy(2);
    auto engine = h.makeEngine(pair);
    LogCapture log;
    engine->start(pair);
    ASSERT_TRUE(gate.waitUntilHeld());

    // The copy ignores the cancellation while it is held: the hour passes.
    h.queue.advance(3599.9);
    EXPECT_NE(engine->status().kind(), Case::error);
    h.queue.advance(0.1);
    gate.release();
    ASSERT_TRUE(runUntilStatus(*engine, Case::error));
    h.settle();

    EXPECT_EQ(engine->status(), BackupStatus::error(BackupError::timedOut()));
    EXPECT_THAT(h.eventTypes(), ElementsAre(Type::error));
    EXPECT_THAT(h.eventMessages(),
                ElementsAre("This backup took too long and was stopped part-way."));
    EXPECT_THAT(h.notifier->sent,
                ElementsAre("error: Work — This backup took too long and was stopped part-way."));
    EXPECT_FALSE(h.storedPair(pair.id)->lastBackupAt) << "a cut pass records nothing";
    EXPECT_THAT(
        log.messages("BackupEngine"),
        ::testing::Contains(::testing::HasSubstr("exceeded the <private> limit — cancelling.")));
}

TEST_F(BackupEngineTest, TheCatchUpMessageNeedsTenPackageFilesAndComesOnce) {
    const BackupPair pair = h.makePair();
    for (int i = 0; i < 9; ++i)
        writeFile(pair.sourceURL / "Notes.rtfd" / ("page" + std::to_string(i) + ".rtf"), "p");
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(h.finishRun());
    EXPECT_THAT(h.eventTypes(), ElementsAre(Type::backup)) << "nine: no message";
    EXPECT_FALSE(h.defaults.value(packageUpgradeKey(pair.id)));

    for (int i = 0; i < 10; ++i)
        writeFile(pair.sourceURL / "Letters.rtfd" / ("page" + std::to_string(i) + ".rtf"), "p");
    engine->triggerBackup(pair);
    ASSERT_TRUE(h.finishRun());
    ASSERT_EQ(h.events().size(), 3u) << "the next pass counts afresh";
    EXPECT_EQ(*h.events()[2].message,
              "Found app bundles and document packages that weren't backed up before — catching "
              "up now. This is a one-time boost and will only happen once.");
    EXPECT_EQ(h.events()[2].type, Type::backup);
    EXPECT_TRUE(h.defaults.boolean(packageUpgradeKey(pair.id)));

    for (int i = 0; i < 10; ++i)
        writeFile(pair.sourceURL / "More.rtfd" / ("page" + std::to_string(i) + ".rtf"), "p");
    engine->triggerBackup(pair);
    ASSERT_TRUE(h.finishRun());
    EXPECT_EQ(h.events().size(), 4u) << "never a second time";
}

TEST_F(BackupEngineTest, AProfileIsSuggestedOnceWithWhatThePassFound) {
    const BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "package.json", "{}");
    writeFile(pair.sourceURL / "yarn.lock", "lock");
    std::vector<NotificationInfo> suggestions;
    const Subscription observing = h.notificationCenter.observe(
        profileSuggestedNotification,
        [&](const NotificationInfo& info) { suggestions.push_back(info); });
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(h.runUntilSettling());

    ASSERT_EQ(suggestions.size(), 1u);
    EXPECT_EQ(std::get<Uuid>(suggestions[0].at("pairId")), pair.id);
    EXPECT_EQ(std::get<std::string>(suggestions[0].at("pairName")), "Work");
    EXPECT_EQ(std::get<std::string>(suggestions[0].at("recommendedProfile")), "developer");
    EXPECT_EQ(std::get<std::int64_t>(suggestions[0].at("approximateBytes")), 6);
    EXPECT_TRUE(h.storedPair(pair.id)->didSuggestProfile);

    h.queue.advance(BackupEngine::settleDelay);
    engine->triggerBackup(*h.storedPair(pair.id));
    ASSERT_TRUE(h.finishRun());
    EXPECT_EQ(suggestions.size(), 1u);
}

TEST_F(BackupEngineTest, FilesHeldByARunningEditorAreLoggedOncePerEditor) {
    const BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "edit.kdenlive", "project");
    writeFile(pair.sourceURL / "other.txt", "text");
    EditorSnapshot snapshot;
    snapshot.names = {"GIMP", "Kdenlive"};
    snapshot.openPaths.insert(paths::resolved(pair.sourceURL / "edit.kdenlive").native());
    h.editors.set(snapshot);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(h.runUntilSettling());
    EXPECT_THAT(h.eventMessages(),
                ElementsAre("",
                            "Skipped 1 file currently being edited in GIMP — they'll back up "
                            "after you close it.",
                            "Skipped 1 file currently being edited in Kdenlive — they'll back up "
                            "after you close it."));
    EXPECT_EQ(engine->status(), BackupStatus::completed(1, 0));
}

TEST_F(BackupEngineTest, ATrashOfAGibibyteOrMoreRemindsTheUser) {
    const BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "f", "x");
    const fs::path old = pair.destinationURL / ".Quillstow-Trash/2026-01-01/old.bin";
    writeFile(old, "");
    fs::resize_file(old, BackupEngine::trashReminderThreshold - 1);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(h.finishRun());
    EXPECT_EQ(h.notifier->sent.size(), 1u) << "one byte short: no reminder";

    fs::resize_file(old, BackupEngine::trashReminderThreshold);
    engine->triggerBackup(pair);
    ASSERT_TRUE(h.finishRun());
    ASSERT_EQ(h.notifier->sent.size(), 3u);
    EXPECT_EQ(h.notifier->sent[2], "trash: 1073741824");
}

TEST_F(BackupEngineTest, ProgressIsReportedAtMostEveryFiftyMilliseconds) {
    const BackupPair pair = h.makePair();
    for (int i = 0; i < 5; ++i)
        writeFile(pair.sourceURL / ("f" + std::to_string(i)), "data");
    auto engine = h.makeEngine(pair);
    StatusHistory history(*engine);
    engine->start(pair);
    ASSERT_TRUE(h.runUntilSettling());
    // The clock stands still during the pass: only the first report gets through.
    int syncing = 0;
    for (const auto& status : history.statuses)
        syncing += status.kind() == Case::syncing;
    EXPECT_EQ(syncing, 1);
    ASSERT_EQ(history.statuses[2].kind(), Case::syncing);
    EXPECT_EQ(history.statuses[2].progress(), 0.0);
}

TEST(RunPaths, AFolderNamedQuillstowIsTheMirrorRootAndHoldsTheArchive) {
    BackupPair pair;
    pair.name = "../My Docs/";
    pair.sourceURL = "/home/ana/Documents";
    pair.destinationURL = "/media/ana/Drive/Quillstow";
    const RunPaths inside = runPaths(pair, std::nullopt, std::nullopt);
    EXPECT_EQ(inside.mirrorRoot, "/media/ana/Drive/Quillstow");
    EXPECT_EQ(inside.pairFolder, "/media/ana/Drive/Quillstow/My Docs");
    EXPECT_EQ(inside.archiveRoot, "/media/ana/Drive/Quillstow/.Quillstow-Trash");

    pair.destinationURL = "/media/ana/Drive";
    const RunPaths top = runPaths(pair, std::nullopt, std::nullopt);
    EXPECT_EQ(top.pairFolder, "/media/ana/Drive/Quillstow/My Docs");
    EXPECT_EQ(top.archiveRoot, "/media/ana/Drive/.Quillstow-Trash");
    EXPECT_EQ(top.source, "/home/ana/Documents");

    const RunPaths resolved =
        runPaths(pair, fs::path("/mnt/real/Documents"), fs::path("/mnt/drive"));
    EXPECT_EQ(resolved.source, "/mnt/real/Documents");
    EXPECT_EQ(resolved.pairFolder, "/mnt/drive/Quillstow/My Docs");
    EXPECT_EQ(pairFolderAt("/home/ana/Dropbox", "Work"), "/home/ana/Dropbox/Quillstow/Work");
}

TEST(MappedError, KeepsBackupErrorsAndWrapsEverythingElse) {
    EXPECT_EQ(mappedError(BackupFailure(BackupError::timedOut())), BackupError::timedOut());
    const FileOperationFailure refused({"/d", "validatePath", errors::quillstow(1105, "root")});
    EXPECT_EQ(mappedError(refused), BackupError::watcherFailed("root"));
    EXPECT_EQ(mappedError(std::runtime_error("odd")), BackupError::watcherFailed("odd"));
}

}  // namespace
}  // namespace quillstow
