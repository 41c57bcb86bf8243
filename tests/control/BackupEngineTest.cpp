// The life of one pair in virtual time, over real folders: the states of a run from the start
// to the return to idle, what is recorded and told after a pass, and the runs that end early.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "EngineHarness.hpp"
#include "environment/VolumeSpace.hpp"
#include "model/BookmarkManager.hpp"
#include "model/Tips.hpp"
#include "support/Paths.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::Contains;
using ::testing::ElementsAre;
using Case = BackupStatus::Case;
using namespace std::chrono;
using Type = BackupEvent::EventType;
namespace fs = std::filesystem;

class BackupEngineTest : public ::testing::Test {
  protected:
    EngineHarness h;

    bool runUntilStatus(BackupEngine& engine, Case kind) {
        return h.runUntil([&] { return engine.status().kind() == kind; });
    }
    // A pair whose source holds `count` small files.
    BackupPair pairWithFiles(int count) {
        const BackupPair pair = h.makePair();
        for (int i = 0; i < count; ++i)
            writeFile(pair.sourceURL / ("f" + std::to_string(i)), "data");
        return pair;
    }
};

// What the pass's summary decides is PassSummaryTest's; here: the states in order, that the
// engine posts the summary once (event, notice, tip counter), and the five seconds before idle.
TEST_F(BackupEngineTest, AStartedPairRunsAFirstPassPostsItsSummaryAndSettlesAfterFiveSeconds) {
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
    ASSERT_THAT(h.eventTypes(), ElementsAre(Type::backup));
    EXPECT_EQ(h.events()[0].filesAffected, 2);
    EXPECT_EQ(h.events()[0].bytesTransferred, 10);
    EXPECT_FALSE(h.events()[0].message);
    EXPECT_THAT(h.notifier->sent, ElementsAre(::testing::StartsWith("complete: Work 2 ")));
    EXPECT_EQ(h.defaults.integer(tipCounterKey), 1) << "the rotation moved on";

    h.queue.advance(4.9);
    EXPECT_EQ(engine->status().kind(), Case::completed);
    h.queue.advance(0.1);
    ASSERT_TRUE(runUntilStatus(*engine, Case::idle));
    ASSERT_TRUE(engine->destinationFreeSpace());
    EXPECT_GT(*engine->destinationFreeSpace(), 0);
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

// Runs that end before anything is copied: the states they pass through, what the log says,
// whether the source stays watched, and that nobody is told and nothing reaches the drive.
struct EarlyEndCase {
    const char* name;
    void (*arrange)(EngineHarness&, BackupPair&);
    BackupStatus end;
    std::vector<Case> states;
    std::vector<std::string> events;
    bool staysWatched;
};

void PrintTo(const EarlyEndCase& test, std::ostream* out) {
    *out << test.name;
}

class EarlyEndTest : public ::testing::TestWithParam<EarlyEndCase> {};

const std::string insideTheSource =
    "Destination is inside the source folder. Choose a different destination.";
const std::string theRoot = "Destination cannot be the root of the filesystem.";
const std::string runningHot = "Your computer is running hot — will resume when it cools down.";

const EarlyEndCase earlyEndCases[] = {
    {"ADisabledPairStaysPaused",
     [](EngineHarness&, BackupPair& pair) { pair.isEnabled = false; },
     BackupStatus::paused(),
     {Case::paused},
     {},
     false},
    {"AnUnreachableDestinationStopsAtTheStart",
     [](EngineHarness& h, BackupPair&) { h.volumes.reachable = false; },
     BackupStatus::destinationUnreachable(),
     {Case::destinationUnreachable},
     {},
     false},
    {"AWatcherThatCannotStartIsAnError",
     [](EngineHarness& h, BackupPair&) { h.failWatchers = true; },
     BackupStatus::error(BackupError::watcherFailed("no more watches")),
     {Case::error},
     {},
     false},
    {"AHotMachinePausesBeforeScanningAndSaysWhy",
     [](EngineHarness& h, BackupPair&) { h.power.setHeat(ThermalState::serious); },
     BackupStatus::paused(),
     {Case::queued, Case::paused},
     {runningHot},
     true},
    {"ADestinationInsideTheSourceIsRefusedInThePassesWords",
     [](EngineHarness&, BackupPair& pair) { pair.destinationURL = pair.sourceURL / "backups"; },
     BackupStatus::error(BackupError::watcherFailed(insideTheSource)),
     {Case::queued, Case::scanning, Case::error},
     {insideTheSource},
     true},
    {"TheRootIsRefusedAndNothingIsWrittenThere",
     [](EngineHarness&, BackupPair& pair) { pair.destinationURL = "/"; },
     BackupStatus::error(BackupError::watcherFailed(theRoot)),
     {Case::queued, Case::scanning, Case::error},
     {theRoot},
     true},
};

TEST_P(EarlyEndTest, EndsBeforeCopyingAndTellsNobody) {
    const EarlyEndCase& test = GetParam();
    EngineHarness h;
    BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "f", "x");
    test.arrange(h, pair);
    fs::create_directories(pair.destinationURL);
    h.store->updatePair(pair);
    auto engine = h.makeEngine(pair);
    StatusHistory history(*engine);
    engine->start(pair);
    h.runUntil([&] { return engine->status() == test.end; });
    h.settle();
    EXPECT_EQ(engine->status(), test.end);
    EXPECT_EQ(history.cases(), test.states);
    EXPECT_EQ(h.eventMessages(), test.events);
    for (const auto& event : h.events())
        EXPECT_EQ(event.filesAffected, 0);
    EXPECT_TRUE(h.notifier->sent.empty());
    EXPECT_FALSE(h.storedPair(pair.id)->lastBackupAt) << "nothing is recorded";
    EXPECT_EQ(!h.watchers.empty() && h.watchers.back()->isWatching(), test.staysWatched);
    EXPECT_FALSE(fs::exists(EngineHarness::mirrorOf(pair)));
    EXPECT_FALSE(fs::exists("/Quillstow"));
}

INSTANTIATE_TEST_SUITE_P(Engine, EarlyEndTest, ::testing::ValuesIn(earlyEndCases),
                         [](const auto& info) { return std::string(info.param.name); });

// A stop while a file is being copied: idle at once, and the run that ends records, tells and
// shows nothing, not even over a status set after the stop.
TEST_F(BackupEngineTest, AStopDuringThePassReturnsToIdleAndTheRunThatEndsLeavesNoTrace) {
    const BackupPair pair = pairWithFiles(20);
    CopyGate& gate = h.holdAtCopy(5);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(gate.waitUntilHeld());
    ASSERT_TRUE(runUntilStatus(*engine, Case::syncing));

    engine->stop();
    EXPECT_EQ(engine->status(), BackupStatus::idle());
    EXPECT_FALSE(h.watchers[0]->isWatching());
    engine->setStatus(BackupStatus::paused());
    gate.release();
    h.settle();

    EXPECT_EQ(engine->status(), BackupStatus::paused());
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

TEST_F(BackupEngineTest, AJobThatOutrunsTheHourIsReportedAsTimedOut) {
    const BackupPair pair = pairWithFiles(5);
    CopyGate& gate = h.holdAtCopy(2);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(gate.waitUntilHeld());

    // The copy ignores the cancellation while it is held: the hour passes.
    h.queue.advance(3599.9);
    EXPECT_NE(engine->status().kind(), Case::error);
    h.queue.advance(0.1);
    gate.release();
    ASSERT_TRUE(runUntilStatus(*engine, Case::error));
    h.settle();

    const std::string why = BackupError::timedOut().errorDescription();
    EXPECT_EQ(engine->status(), BackupStatus::error(BackupError::timedOut()));
    EXPECT_THAT(h.eventTypes(), ElementsAre(Type::error));
    EXPECT_THAT(h.eventMessages(), ElementsAre(why));
    EXPECT_THAT(h.notifier->sent, ElementsAre("error: Work — " + why));
    EXPECT_FALSE(h.storedPair(pair.id)->lastBackupAt) << "a cut pass records nothing";
}

TEST_F(BackupEngineTest, TheCatchUpMessageIsKeptPerPairInTheUserDefaults) {
    const BackupPair pair = h.makePair();
    for (int i = 0; i < 10; ++i)
        writeFile(pair.sourceURL / "Letters.rtfd" / ("page" + std::to_string(i) + ".rtf"), "p");
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(h.finishRun());
    EXPECT_THAT(h.eventTypes(), ElementsAre(Type::backup, Type::backup));
    EXPECT_TRUE(h.defaults.boolean(packageUpgradeKey(pair.id)));

    for (int i = 0; i < 10; ++i)
        writeFile(pair.sourceURL / "More.rtfd" / ("page" + std::to_string(i) + ".rtf"), "p");
    engine->triggerBackup(pair);
    ASSERT_TRUE(h.finishRun());
    EXPECT_EQ(h.events().size(), 3u) << "never a second time";
}

TEST_F(BackupEngineTest, AProfileSuggestionIsPostedWithWhatThePassFound) {
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
}

TEST_F(BackupEngineTest, ProgressIsReportedAtMostEveryFiftyMilliseconds) {
    const BackupPair pair = pairWithFiles(5);
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

// The offsite copy runs after a clean pass into its own folder, bookkeeping left home; a folder
// whose bookmark no longer leads to it is not made anew, and is tried again at the next run.
TEST(EngineOffsite, FollowsACleanPassOrSaysItsFolderCannotBeReached) {
    for (const bool isMoved : {false, true}) {
        SCOPED_TRACE(isMoved ? "moved" : "there");
        EngineHarness h;
        h.useVerificationStages();
        BackupPair pair = h.makePair();
        pair.offsiteURL = h.root / "Dropbox";
        fs::create_directories(*pair.offsiteURL);
        if (isMoved) {
            pair.offsiteBookmark = BookmarkManager::bookmarkData(*pair.offsiteURL, false);
            fs::rename(*pair.offsiteURL, h.root / "Dropbox (moved)");
        }
        h.store->updatePair(pair);
        writeFile(pair.sourceURL / "film/cut.txt", "the cut");
        auto engine = h.makeEngine(pair);
        StatusHistory history(*engine);
        engine->start(pair);
        ASSERT_TRUE(h.finishRun());
        h.settle();

        const fs::path offsite = h.root / "Dropbox/Quillstow/Work";
        const bool started = std::ranges::count(history.statuses,
                                                BackupStatus::syncing(0, "Offsite copy starting…"));
        EXPECT_EQ(started, !isMoved);
        EXPECT_EQ(h.storedPair(pair.id)->lastOffsiteAt.has_value(), !isMoved);
        if (isMoved) {
            EXPECT_THAT(h.messagesOf(Type::error),
                        ElementsAre("Couldn't access the offsite folder. Re-select it from "
                                    "Settings to fix."));
            EXPECT_FALSE(fs::exists(h.root / "Dropbox"));
        } else {
            EXPECT_EQ(readFile(offsite / "film/cut.txt"), "the cut");
            EXPECT_FALSE(fs::exists(offsite / ".quillstow-hashes.json"))
                << "bookkeeping stays home";
            EXPECT_EQ(h.messagesOf(Type::backup).size(), 2u) << "the pass's and the offsite's";
            EXPECT_EQ(engine->status().kind(), Case::syncing) << "it stays until the next";
        }
    }
}

// Files that differ from their copies once the pass has copied them: damage is reported as a
// failed verification, a source the user changed meanwhile as a change. Which is which is
// sourceChangedSinceCopy's, below; here the engine reads both sides and posts the verdict.
TEST(EngineSizeCheck, SaysWhetherTheCopyOrTheSourceChanged) {
    const std::string changedMessage =
        "1 file changed while it was being backed up — it'll back up again on the next pass.";
    const std::string failedMessage = "1 file failed verification after copying.";
    const struct {
        const char* name;
        void (*act)(const BackupPair& pair, Date copiedAt);
        std::vector<std::string> changed;
        std::vector<std::string> failed;
    } cases[] = {
        {"a source edited after it was copied",
         [](const BackupPair& pair, Date copiedAt) {
             writeFile(pair.sourceURL / "a.txt", "alpha, edited", copiedAt + seconds(30));
         },
         {changedMessage},
         {}},
        {"a copy cut short on the drive",
         [](const BackupPair& pair, Date copiedAt) {
             writeFile(EngineHarness::mirrorOf(pair) / "a.txt", "alp", copiedAt);
         },
         {},
         {failedMessage}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        EngineHarness h;
        const BackupPair pair = h.makePair();
        const Date copiedAt = referenceDate();
        writeFile(pair.sourceURL / "a.txt", "alpha", copiedAt);
        writeFile(pair.sourceURL / "b.txt", "beta", copiedAt);
        h.whenTheCopyingIsDone([&] { test.act(pair, copiedAt); });
        auto engine = h.makeEngine(pair);
        engine->start(pair);
        ASSERT_TRUE(h.finishRun());
        h.settle();
        std::vector<std::string> changed;
        for (const auto& message : h.messagesOf(Type::backup)) {
            if (message.find("changed while") != std::string::npos) changed.push_back(message);
        }
        EXPECT_EQ(changed, test.changed);
        EXPECT_EQ(h.messagesOf(Type::verificationFailed), test.failed);
        const bool toldAsAnError =
            std::any_of(h.notifier->sent.begin(), h.notifier->sent.end(),
                        [&](const std::string& sent) { return sent.starts_with("error: "); });
        EXPECT_EQ(toldAsAnError, !test.failed.empty());
    }
}

// Each follow-up of a pass writes its own fields into the pair as the store holds it then, so
// none of them undoes another, nor what the user changed while the pass ran.
struct PairUpdateCase {
    const char* name;
    void (*arrange)(EngineHarness&, BackupPair&);
    // Runs on the main thread while the pass copies its first file.
    void (*duringPass)(EngineHarness&, const BackupPair&);
    void (*check)(const BackupPair& before, const BackupPair& stored);
};

void PrintTo(const PairUpdateCase& test, std::ostream* out) {
    *out << test.name;
}

class PairUpdatesTest : public ::testing::TestWithParam<PairUpdateCase> {};

void suggestADeveloperProfile(EngineHarness&, BackupPair& pair) {
    writeFile(pair.sourceURL / "package.json", "{}");
    writeFile(pair.sourceURL / "yarn.lock", "lock");
}

void expectThePassRecorded(const BackupPair& stored) {
    EXPECT_TRUE(stored.lastBackupAt);
    EXPECT_EQ(stored.lastBackupFileCount, 2);
    EXPECT_EQ(stored.lastBackupByteCount, 6);
}

const PairUpdateCase pairUpdateCases[] = {
    // Three follow-ups: the pass record, the suggestion and the offsite record.
    {"TheOffsiteRecordKeepsTheSuggestionAndThePassRecord",
     [](EngineHarness& h, BackupPair& pair) {
         suggestADeveloperProfile(h, pair);
         pair.offsiteURL = h.root / "Dropbox";
         fs::create_directories(*pair.offsiteURL);
     },
     nullptr,
     [](const BackupPair&, const BackupPair& stored) {
         EXPECT_TRUE(stored.didSuggestProfile);
         EXPECT_TRUE(stored.lastOffsiteAt);
         EXPECT_EQ(stored.lastOffsiteFileCount, 2);
         expectThePassRecorded(stored);
     }},
    {"ThePassRecordKeepsARefreshedBookmark",
     [](EngineHarness&, BackupPair& pair) {
         pair.sourceBookmark = BookmarkManager::bookmarkData(pair.sourceURL, true);
         // Another folder at the same path: the bookmark is stale and refreshed in place.
         fs::remove_all(pair.sourceURL);
         fs::create_directories(pair.sourceURL);
         writeFile(pair.sourceURL / "a.txt", "abc");
         writeFile(pair.sourceURL / "b.txt", "def");
     },
     nullptr,
     [](const BackupPair& before, const BackupPair& stored) {
         ASSERT_TRUE(stored.sourceBookmark);
         EXPECT_NE(stored.sourceBookmark, before.sourceBookmark);
         EXPECT_EQ(BookmarkManager::resolveBookmark(*stored.sourceBookmark, "/", true).newBytes,
                   std::nullopt)
             << "the stored bookmark is the fresh one";
         expectThePassRecorded(stored);
     }},
    {"WhatTheUserChangedDuringThePassStands",
     [](EngineHarness&, BackupPair& pair) {
         writeFile(pair.sourceURL / "a.txt", "abc");
         writeFile(pair.sourceURL / "b.txt", "def");
     },
     [](EngineHarness& h, const BackupPair& pair) {
         h.store->updatePair(pair.id, [](BackupPair& stored) {
             stored.name = "Renamed";
             stored.profile = BackupProfile::documents;
         });
     },
     [](const BackupPair&, const BackupPair& stored) {
         EXPECT_EQ(stored.name, "Renamed");
         EXPECT_EQ(stored.profile, BackupProfile::documents);
         expectThePassRecorded(stored);
     }},
};

TEST_P(PairUpdatesTest, NoUpdateOfAPairUndoesAnother) {
    const PairUpdateCase& test = GetParam();
    EngineHarness h;
    h.useVerificationStages();
    BackupPair pair = h.makePair();
    test.arrange(h, pair);
    h.store->updatePair(pair);
    CopyGate& gate = h.holdAtCopy(1);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(gate.waitUntilHeld());
    h.queue.runPending();
    if (test.duringPass) test.duringPass(h, pair);
    gate.release();
    ASSERT_TRUE(h.finishRun());
    h.settle();
    test.check(pair, *h.storedPair(pair.id));
}

INSTANTIATE_TEST_SUITE_P(EngineFollowUp, PairUpdatesTest, ::testing::ValuesIn(pairUpdateCases),
                         [](const auto& info) { return std::string(info.param.name); });

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

TEST(SourceChangedSinceCopy, JudgesByTheDatesBeyondTwoSeconds) {
    const Date copiedAt = referenceDate();
    const auto file = [](std::optional<Date> date) {
        FileInfo info;
        info.type = FileInfo::Type::regular;
        info.fileSize = 5;
        info.modificationDate = date;
        return std::optional<FileInfo>(info);
    };
    const struct {
        const char* name;
        std::optional<FileInfo> source;
        std::optional<FileInfo> copy;
        bool changed;
    } cases[] = {
        {"a source removed since", std::nullopt, file(copiedAt), true},
        {"a copy gone, its source as it was", file(copiedAt), std::nullopt, false},
        {"dates two seconds apart", file(copiedAt + seconds(2)), file(copiedAt), false},
        {"dates just over two seconds apart", file(copiedAt + seconds(2) + nanoseconds(1)),
         file(copiedAt), true},
        {"a copy dated later", file(copiedAt), file(copiedAt + seconds(3)), true},
        {"a date that can't be read", file(std::nullopt), file(copiedAt), false},
    };
    for (const auto& test : cases)
        EXPECT_EQ(sourceChangedSinceCopy(test.source, test.copy), test.changed) << test.name;
}

}  // namespace
}  // namespace quillstow
