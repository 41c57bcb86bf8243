// What follows a pass with the real hash upkeep and offsite copy: the sample once a day, damage
// found on the drive, and the weekly offsite copy with its events, in virtual time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "EngineHarness.hpp"
#include "model/BookmarkManager.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using Case = BackupStatus::Case;
using Type = BackupEvent::EventType;
namespace fs = std::filesystem;

class EngineFollowUpTest : public ::testing::Test {
  protected:
    EngineHarness h;

    void SetUp() override { h.useVerificationStages(); }

    // One run, through its five seconds, back to where a run leaves it.
    void run(BackupEngine& engine, const BackupPair& pair, bool isStart = false) {
        if (isStart) {
            engine.start(pair);
        } else {
            engine.triggerBackup(pair);
        }
        ASSERT_TRUE(h.finishRun());
        h.settle();
    }

    void passTime(seconds elapsed) { h.wallClock.set(h.wallClock.now() + elapsed); }
};

TEST_F(EngineFollowUpTest, TheSampleIsReadAtMostOnceADay) {
    const BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "a.txt", "alpha");
    writeFile(pair.sourceURL / "b.txt", "beta");
    auto engine = h.makeEngine(pair);
    run(*engine, pair, true);
    EXPECT_THAT(h.messagesOf(Type::integrityChecked), ElementsAre("Every file checked today."));
    EXPECT_EQ(h.integrityVerifier.loadDatabase(EngineHarness::mirrorOf(pair)).size(), 2u);

    passTime(seconds(86400));
    run(*engine, pair);
    EXPECT_EQ(h.messagesOf(Type::integrityChecked).size(), 1u) << "86400 seconds: not yet due";

    passTime(seconds(1));
    run(*engine, pair);
    EXPECT_EQ(h.messagesOf(Type::integrityChecked).size(), 2u) << "86401 seconds: due";
}

TEST_F(EngineFollowUpTest, DamageOnTheDriveIsLoggedAndToldOnTheNextCheck) {
    const BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "photo.jpg", "original", referenceDate());
    auto engine = h.makeEngine(pair);
    run(*engine, pair, true);
    // The drive flips bits: same size and date, other bytes; the pass sees no change.
    const Date copied = modificationDate(EngineHarness::mirrorOf(pair) / "photo.jpg");
    writeFile(EngineHarness::mirrorOf(pair) / "photo.jpg", "originaL", copied);

    passTime(hours(25));
    run(*engine, pair);
    const std::string message =
        "1 file on the backup drive may have been damaged. It's worth copying it again.";
    EXPECT_THAT(h.messagesOf(Type::verificationFailed), ElementsAre(message));
    EXPECT_THAT(h.notifier->sent, Contains("error: Work — " + message));
    EXPECT_EQ(engine->status(), BackupStatus::idle()) << "the status isn't touched";
}

TEST_F(EngineFollowUpTest, TheOffsiteCopyComesOnceAWeekAndIsRecorded) {
    BackupPair pair = h.makePair();
    pair.offsiteURL = h.root / "Dropbox";
    fs::create_directories(*pair.offsiteURL);
    h.store->updatePair(pair);
    writeFile(pair.sourceURL / "a.txt", "alpha");
    writeFile(pair.sourceURL / "film/cut.txt", "the cut");
    auto engine = h.makeEngine(pair);
    StatusHistory history(*engine);
    run(*engine, pair, true);

    const fs::path offsite = h.root / "Dropbox/Quillstow/Work";
    EXPECT_EQ(readFile(offsite / "film/cut.txt"), "the cut");
    EXPECT_FALSE(fs::exists(offsite / ".quillstow-hashes.json")) << "bookkeeping stays home";
    EXPECT_THAT(h.messagesOf(Type::backup),
                Contains("Offsite copy updated — 2 files synced to your cloud folder."));
    EXPECT_THAT(history.statuses, Contains(BackupStatus::syncing(0, "Offsite copy starting…")));
    EXPECT_EQ(engine->status().kind(), Case::syncing) << "the offsite status stays until the next";
    EXPECT_THAT(engine->status().currentFile(), StartsWith("Offsite: "));
    auto stored = *h.storedPair(pair.id);
    EXPECT_EQ(stored.lastOffsiteAt, h.wallClock.now());
    EXPECT_EQ(stored.lastOffsiteFileCount, 2);

    writeFile(pair.sourceURL / "later.txt", "later");
    passTime(seconds(604799));
    run(*engine, stored);
    EXPECT_FALSE(fs::exists(offsite / "later.txt")) << "604799 seconds: not yet due";
    EXPECT_TRUE(fs::exists(EngineHarness::mirrorOf(pair) / "later.txt"));

    passTime(seconds(1));
    run(*engine, *h.storedPair(pair.id));
    EXPECT_EQ(readFile(offsite / "later.txt"), "later");
    EXPECT_EQ(h.storedPair(pair.id)->lastOffsiteFileCount, 1) << "this sync's count alone";
}

TEST_F(EngineFollowUpTest, APassWithErrorsMakesNoOffsiteCopy) {
    BackupPair pair = h.makePair();
    pair.offsiteURL = h.root / "Dropbox";
    h.store->updatePair(pair);
    writeFile(pair.sourceURL / "a.txt", "alpha");
    writeFile(pair.sourceURL / "b.txt", "beta");
    h.fileSystem.failNext(FaultyFileSystem::Operation::copyItem, EPERM);
    auto engine = h.makeEngine(pair);
    run(*engine, pair, true);
    EXPECT_FALSE(fs::exists(h.root / "Dropbox"));
    EXPECT_FALSE(h.storedPair(pair.id)->lastOffsiteAt);
}

TEST_F(EngineFollowUpTest, ALostOffsiteFolderWaitsAWeekAsTheMessageSays) {
    BackupPair pair = h.makePair();
    writeFile(h.root / "Dropbox", "a file where the folder should be");
    pair.offsiteURL = h.root / "Dropbox";
    h.store->updatePair(pair);
    writeFile(pair.sourceURL / "a.txt", "alpha");
    auto engine = h.makeEngine(pair);
    run(*engine, pair, true);
    EXPECT_THAT(h.messagesOf(Type::error),
                ElementsAre("Offsite copy paused — the cloud folder became unavailable. Will "
                            "retry next week."));
    EXPECT_EQ(h.storedPair(pair.id)->lastOffsiteAt, h.wallClock.now());
}

TEST_F(EngineFollowUpTest, AnOffsiteFolderThatCannotBeReachedIsTriedAgainNextRun) {
    BackupPair pair = h.makePair();
    pair.offsiteURL = h.root / "Dropbox";
    fs::create_directories(*pair.offsiteURL);
    pair.offsiteBookmark = BookmarkManager::bookmarkData(*pair.offsiteURL, false);
    fs::rename(*pair.offsiteURL, h.root / "Dropbox (moved)");
    h.store->updatePair(pair);
    writeFile(pair.sourceURL / "a.txt", "alpha");
    auto engine = h.makeEngine(pair);
    run(*engine, pair, true);
    EXPECT_THAT(h.messagesOf(Type::error),
                ElementsAre("Couldn't access the offsite folder. Re-select it from Settings to "
                            "fix."));
    EXPECT_FALSE(h.storedPair(pair.id)->lastOffsiteAt);
    EXPECT_FALSE(fs::exists(h.root / "Dropbox"));
}

// Files that differ from their copies once the pass has copied them: damage is reported as a
// failed verification, a source the user changed meanwhile as a change.
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
        {"a source removed after it was copied",
         [](const BackupPair& pair, Date) { fs::remove(pair.sourceURL / "a.txt"); },
         {changedMessage},
         {}},
        {"a copy cut short on the drive",
         [](const BackupPair& pair, Date copiedAt) {
             writeFile(EngineHarness::mirrorOf(pair) / "a.txt", "alp", copiedAt);
         },
         {},
         {failedMessage}},
        {"a copy gone from the drive",
         [](const BackupPair& pair, Date) { fs::remove(EngineHarness::mirrorOf(pair) / "a.txt"); },
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
    {"TheProfileSuggestionKeepsThePassRecord", suggestADeveloperProfile, nullptr,
     [](const BackupPair&, const BackupPair& stored) {
         EXPECT_TRUE(stored.didSuggestProfile);
         expectThePassRecorded(stored);
     }},
    {"TheOffsiteRecordKeepsTheSuggestion",
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

}  // namespace
}  // namespace quillstow
