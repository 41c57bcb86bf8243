// One pair's engine in virtual time over real folders: the states of a run in order and what it
// posts on the main queue, the gates that hold a run, the queue, and the runs that are cut off.
// What the summary of a pass decides is PassSummaryTest's.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "EngineHarness.hpp"
#include "model/BookmarkManager.hpp"
#include "model/Tips.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using Case = BackupStatus::Case;
using Type = BackupEvent::EventType;
namespace fs = std::filesystem;

BackupPair pairWithFiles(EngineHarness& h, int count) {
    const BackupPair pair = h.makePair();
    for (int i = 0; i < count; ++i)
        writeFile(pair.sourceURL / ("f" + std::to_string(i)), "data");
    return pair;
}

// The states of a run in order, what follows the pass posted once, and five seconds of the
// outcome before idle.
TEST(BackupEngine, RunsAPassPostsWhatFollowsItAndSettlesAfterFiveSeconds) {
    EngineHarness h;
    const BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "a/b.txt", "world");
    writeFile(pair.sourceURL / "package.json", "{}");
    writeFile(pair.sourceURL / "yarn.lock", "lock");
    std::vector<NotificationInfo> suggested;
    const Subscription observing = h.notificationCenter.observe(
        profileSuggestedNotification,
        [&](const NotificationInfo& info) { suggested.push_back(info); });
    auto engine = h.makeEngine(pair);
    std::vector<BackupStatus> seen;
    const Subscription recording = recordStatuses(*engine, seen);
    engine->start(pair);
    ASSERT_TRUE(h.runUntilSettling());

    // The clock stands still: one progress report.
    EXPECT_THAT(seen, ElementsAre(BackupStatus::queued(), BackupStatus::scanning(),
                                  ::testing::Property(&BackupStatus::kind, Case::syncing),
                                  BackupStatus::completed(3, 0)));
    EXPECT_EQ(readFile(EngineHarness::mirrorOf(pair) / "a/b.txt"), "world");
    EXPECT_THAT(h.eventTypes(), ElementsAre(Type::backup));
    EXPECT_THAT(h.notifier->sent, ElementsAre(::testing::StartsWith("complete: Work 3 ")));
    EXPECT_EQ(h.defaults.integer(tipCounterKey), 1) << "the rotation moved on";
    ASSERT_EQ(suggested.size(), 1u);
    EXPECT_EQ(std::get<std::string>(suggested[0].at("recommendedProfile")), "developer");
    EXPECT_EQ(std::get<std::int64_t>(suggested[0].at("approximateBytes")), 11);

    h.queue.advance(4.9);
    EXPECT_EQ(engine->status().kind(), Case::completed);
    h.queue.advance(0.1);
    ASSERT_TRUE(h.runUntil([&] { return engine->status() == BackupStatus::idle(); }));
    EXPECT_GT(engine->destinationFreeSpace().value_or(0), 0);
}

// Runs that end before anything is copied: where they end, what the log says and whether the
// source's path stays watched; nobody is told, nothing is recorded or written.
TEST(BackupEngine, ARunHeldAtAGateEndsBeforeCopyingAndTellsNobody) {
    const std::string unwatched = "Couldn't watch for file changes.";
    const struct {
        const char* name;
        void (*arrange)(EngineHarness&, BackupPair&);
        std::string end;  // as the status reads
        std::string event;
        bool staysWatched;
    } rows[] = {
        {"a disabled pair", [](EngineHarness&, BackupPair& pair) { pair.isEnabled = false; },
         "Paused", "", false},
        {"an unreachable destination",
         [](EngineHarness& h, BackupPair&) { h.volumes.reachable = false; },
         "Backup drive not connected", "", false},
        {"a watcher that cannot start",
         [](EngineHarness& h, BackupPair&) { h.failWatchers = true; }, unwatched, "", false},
        {"a source renamed while the program was closed",
         [](EngineHarness& h, BackupPair& pair) {
             pair.sourceBookmark = BookmarkManager::bookmarkData(pair.sourceURL, true);
             fs::rename(pair.sourceURL, h.root / "renamed");
         },
         "Quillstow needs permission to access this folder again.", "", true},
        {"a hot machine",
         [](EngineHarness& h, BackupPair&) { h.power.setHeat(ThermalState::serious); }, "Paused",
         "Your computer is running hot — will resume when it cools down.", true},
        {"a destination inside the source",
         [](EngineHarness&, BackupPair& pair) { pair.destinationURL = pair.sourceURL / "backup"; },
         unwatched, "Destination is inside the source folder. Choose a different destination.",
         true},
        {"the root", [](EngineHarness&, BackupPair& pair) { pair.destinationURL = "/"; }, unwatched,
         "Destination cannot be the root of the filesystem.", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EngineHarness h;
        BackupPair pair = h.makePair();
        writeFile(pair.sourceURL / "f", "x");
        row.arrange(h, pair);
        h.store->updatePair(pair);
        auto engine = h.makeEngine(pair);
        engine->start(pair);
        h.settle();
        EXPECT_EQ(engine->status().displayText(), row.end);
        EXPECT_EQ(h.eventMessages(),
                  row.event.empty() ? std::vector<std::string>() : std::vector{row.event});
        EXPECT_TRUE(h.notifier->sent.empty());
        EXPECT_FALSE(h.storedPair(pair.id)->lastBackupAt);
        ASSERT_EQ(!h.watchers.empty() && h.watchers.back()->isWatching(), row.staysWatched);
        if (row.staysWatched) {
            EXPECT_EQ(h.watchers.back()->watchedPath, pair.sourceURL);
        }
        EXPECT_FALSE(fs::exists(EngineHarness::mirrorOf(pair)));
        EXPECT_FALSE(fs::exists("/Quillstow"));
    }
}

// The drive may go while a run waits its turn behind another pair's: the run is held then too,
// before anything is written below the bare mount point.
TEST(BackupEngine, ADrivePulledWhileTheRunWaitsInTheQueueHoldsItBeforeAnythingIsWritten) {
    EngineHarness h;
    const BackupPair first = pairWithFiles(h, 2);
    const BackupPair waiting = h.makePair("Photos");
    writeFile(waiting.sourceURL / "p", "x");
    CopyGate& gate = h.holdAtCopy(1);
    auto running = h.makeEngine(first);
    running->start(first);
    ASSERT_TRUE(gate.waitUntilHeld());
    auto queued = h.makeEngine(waiting);
    queued->start(waiting);
    ASSERT_TRUE(h.runUntil([&] { return queued->status() == BackupStatus::queued(); }));
    h.volumes.reachable = false;
    gate.release();
    h.settle();
    EXPECT_EQ(queued->status(), BackupStatus::destinationUnreachable());
    EXPECT_FALSE(fs::exists(EngineHarness::mirrorOf(waiting)));
}

// Ten triggers while a pass runs: each cancels the one before, which ends without a pass. A stop
// ends the pass and every trigger: idle at once, and the run that ends records, tells and shows
// nothing, not even over a status set after the stop.
TEST(BackupEngine, TriggersDuringAPassRunOneMorePassAndAStopLeavesNoTrace) {
    for (const bool stops : {false, true}) {
        SCOPED_TRACE(stops ? "stopped" : "triggered");
        EngineHarness h;
        const BackupPair pair = pairWithFiles(h, 10);
        CopyGate& gate = h.holdAtCopy(5);
        auto engine = h.makeEngine(pair);
        engine->start(pair);
        ASSERT_TRUE(gate.waitUntilHeld());
        for (int i = 0; i < 10; ++i)
            engine->triggerBackup(pair);
        if (stops) {
            engine->stop();
            EXPECT_EQ(engine->status(), BackupStatus::idle());
            engine->setStatus(BackupStatus::paused());
        }
        gate.release();
        h.settle();
        EXPECT_EQ(h.events().size(), stops ? 0u : 2u) << "one event a pass";
        EXPECT_EQ(h.notifier->sent.size(), stops ? 0u : 2u);
        EXPECT_EQ(h.storedPair(pair.id)->lastBackupAt.has_value(), !stops);
        EXPECT_EQ(h.watchers[0]->isWatching(), !stops);
        EXPECT_EQ(engine->status().kind(), stops ? Case::paused : Case::idle);
        EXPECT_EQ(filesBelow(EngineHarness::mirrorOf(pair)).size() < 10u, stops);
    }
}

TEST(BackupEngine, AJobThatOutrunsTheHourIsReportedAsTimedOutAndNotRecorded) {
    EngineHarness h;
    const BackupPair pair = pairWithFiles(h, 5);
    CopyGate& gate = h.holdAtCopy(2);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(gate.waitUntilHeld());
    // The copy ignores the cancellation while it is held: the hour passes.
    h.queue.advance(3600);
    gate.release();
    h.settle();

    const std::string why = BackupError::timedOut().errorDescription();
    EXPECT_EQ(engine->status(), BackupStatus::error(BackupError::timedOut()));
    EXPECT_THAT(h.eventTypes(), ElementsAre(Type::error));
    EXPECT_THAT(h.eventMessages(), ElementsAre(why));
    EXPECT_THAT(h.notifier->sent, ElementsAre("error: Work — " + why));
    EXPECT_FALSE(h.storedPair(pair.id)->lastBackupAt) << "a cut pass records nothing";
}

// After a clean pass: the copies are checked against their sources, the offsite copy runs into
// its own folder with the bookkeeping left home, and each record is written into the pair as
// the store holds it then, so that what the user changed meanwhile stands.
TEST(BackupEngine, FollowsAPassWithTheChecksAndTheOffsiteCopyKeepingWhatTheUserChanged) {
    EngineHarness h;
    BackupPair pair = h.makePair();
    pair.offsiteURL = h.root / "Dropbox";
    h.store->updatePair(pair);
    writeFile(pair.sourceURL / "cut.txt", "the cut", referenceDate());
    writeFile(pair.sourceURL / "notes.txt", "notes", referenceDate());
    h.useVerificationStages(
        [&] { writeFile(EngineHarness::mirrorOf(pair) / "notes.txt", "no", referenceDate()); });
    CopyGate& gate = h.holdAtCopy(1);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(gate.waitUntilHeld());
    h.store->updatePair(pair.id, [](BackupPair& stored) { stored.name = "Renamed"; });
    gate.release();
    ASSERT_TRUE(h.finishRun());
    h.settle();

    EXPECT_THAT(h.messagesOf(Type::verificationFailed),
                ElementsAre("1 file failed verification after copying."));
    const fs::path offsite = h.root / "Dropbox/Quillstow/Work";
    EXPECT_EQ(readFile(offsite / "cut.txt"), "the cut");
    EXPECT_FALSE(fs::exists(offsite / hashDatabaseName)) << "bookkeeping stays home";
    const auto stored = h.storedPair(pair.id);
    EXPECT_EQ(stored->name, "Renamed");
    EXPECT_EQ(stored->lastBackupFileCount, 2);
    EXPECT_EQ(stored->lastOffsiteFileCount, 2);
}

}  // namespace
}  // namespace quillstow
