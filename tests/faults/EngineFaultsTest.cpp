// A pair's run on real drives: too little room before the pass, with and without an estimate,
// and a drive pulled in the middle of it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../control/EngineHarness.hpp"
#include "PrivateMounts.hpp"
#include "environment/VolumeSpace.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using Case = BackupStatus::Case;
namespace fs = std::filesystem;

class EngineFaultsTest : public ::testing::Test {
  protected:
    void SetUp() override { QUILLSTOW_REQUIRE_PRIVATE_MOUNTS(); }

    EngineHarness h;

    static void writeSparse(const fs::path& path, std::uintmax_t size) {
        writeFile(path, "");
        fs::resize_file(path, size);
    }
};

// The room a pass asks for before it starts, on drives of a given size.
struct SpaceCase {
    const char* name;
    std::uint64_t driveBytes;
    // A file of the source, sparse so it costs no room where it lies.
    std::uint64_t sourceBytes;
    bool sourceOnTheDrive;
    // Left in the pair's folder by a pass that was cut off; it takes real room.
    std::uint64_t staleTemporaryBytes;
    // The room the refusal names; nothing when the pass runs.
    std::optional<std::int64_t> refusedFor;
};

const SpaceCase spaceCases[] = {
    {"LessThanFiveHundredMebibytesRefusesEvenAnEmptyPass", 499ull << 20, 0, false, 0,
     BackupEngine::minimumFreeSpace},
    {"WhatAPassWouldCopyNeedsFiveHundredMebibytesOfHeadroom", 570'000'000, 60'000'000, false, 0,
     60'000'000 + BackupEngine::estimateHeadroom},
    {"ASourceOnTheSameDriveIsNotEstimatedOnlyTheFloorCounts", 570'000'000, 60'000'000, true, 0,
     std::nullopt},
    {"StaleTemporariesAreRemovedBeforeTheRoomIsMeasured", 540ull << 20, 0, false, 60ull << 20,
     std::nullopt},
};

TEST_F(EngineFaultsTest, TheRoomBeforeAPass) {
    for (const SpaceCase& test : spaceCases) {
        SCOPED_TRACE(test.name);
        EngineHarness h;
        TmpfsMount drive(h.root / "drive", test.driveBytes);
        BackupPair pair = h.makePair("Work", drive.path());
        if (test.sourceOnTheDrive) {
            pair.sourceURL = drive.path() / "Projects";
            h.store->updatePair(pair);
        }
        if (test.sourceBytes > 0) writeSparse(pair.sourceURL / "big.bin", test.sourceBytes);
        const fs::path stale = drive.path() / "Quillstow/Work/.quillstowtmp-0BADF00D-film.mov";
        if (test.staleTemporaryBytes > 0) {
            writeFile(stale, std::string(test.staleTemporaryBytes, 'x'));
        }
        auto engine = h.makeEngine(pair);
        engine->start(pair);
        ASSERT_TRUE(h.runUntil([&] {
            const auto kind = engine->status().kind();
            return kind == Case::error || kind == Case::completed;
        }));
        h.settle();

        const fs::path copied = drive.path() / "Quillstow/Work/big.bin";
        if (!test.refusedFor) {
            EXPECT_EQ(engine->status().kind(), Case::idle);
            EXPECT_EQ(fs::exists(copied), test.sourceBytes > 0);
            EXPECT_FALSE(fs::exists(stale));
            continue;
        }
        const std::int64_t available = *volumes::availableCapacity(drive.path());
        EXPECT_EQ(engine->status(),
                  BackupStatus::error(BackupError::diskSpaceLow(available, *test.refusedFor)));
        EXPECT_THAT(h.eventMessages(), ElementsAre("The backup drive is running low on space."));
        EXPECT_THAT(h.notifier->sent, ElementsAre("low disk: Work " + std::to_string(available)));
        EXPECT_FALSE(engine->destinationFreeSpace()) << "the reading is not kept";
        EXPECT_FALSE(fs::exists(copied));
    }
}

TEST_F(EngineFaultsTest, ADrivePulledMidPassIsAnAbortThatKeepsTheBackupsSafe) {
    auto drive = std::make_unique<TmpfsMount>(h.root / "drive", 600ull << 20);
    const BackupPair pair = h.makePair("Work", drive->path());
    for (int i = 0; i < 40; ++i)
        writeFile(pair.sourceURL / ("f" + std::to_string(i)), "data");
    CopyGate& gate = h.holdAtCopy(15);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(gate.waitUntilHeld());
    drive->unmount();
    gate.release();
    ASSERT_TRUE(h.runUntil([&] { return engine->status().kind() == Case::error; }));
    // The run goes on to its five seconds of showing the error.
    ASSERT_TRUE(h.runUntil([&] { return h.sleeper.sleeping() == 1; }));

    const BackupStatus status = engine->status();
    ASSERT_TRUE(status.backupError());
    EXPECT_EQ(status.backupError()->kind(), BackupError::Case::partialFailure);
    EXPECT_EQ(status.backupError()->failedCount(), 0);
    EXPECT_THAT(h.eventMessages(), ElementsAre("Backup aborted — a volume disconnected mid-backup. "
                                               "Your existing backups are safe."));
    EXPECT_EQ(h.events()[0].type, BackupEvent::EventType::error) << "with failed items too";
    EXPECT_THAT(h.notifier->sent,
                ElementsAre("error: Work — Backup aborted — a drive disconnected. Your backups "
                            "are safe; will retry later."));
    EXPECT_TRUE(h.storedPair(pair.id)->lastBackupAt) << "an aborted pass is recorded";
    EXPECT_TRUE(fs::is_empty(drive->path())) << "nothing was written to the bare mount point";
}

TEST_F(EngineFaultsTest, ADrivePulledOnceThePassHasCopiedIsReportedAsTheDriveGone) {
    const std::vector<std::string> roots{(h.root / "media").native() + "/"};
    h.volumes.judgeByMounts(roots);
    auto drive = std::make_unique<TmpfsMount>(h.root / "media/Drive", 600ull << 20);
    BackupPair pair = h.makePair("Work", drive->path());
    for (int i = 0; i < 20; ++i)
        writeFile(pair.sourceURL / ("f" + std::to_string(i)), "data");
    h.whenTheCopyingIsDone([&] { drive->unmount(); });
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(
        h.runUntil([&] { return engine->status() == BackupStatus::destinationUnreachable(); }));
    h.settle();

    EXPECT_THAT(h.eventTypes(),
                ElementsAre(BackupEvent::EventType::backup, BackupEvent::EventType::volumeLost));
    EXPECT_EQ(h.events()[0].filesAffected, 20) << "what the pass copied";
    EXPECT_THAT(h.notifier->sent, ElementsAre("volume lost: Work"));
    EXPECT_EQ(engine->status(), BackupStatus::destinationUnreachable());
    EXPECT_TRUE(fs::is_empty(drive->path())) << "nothing written to the bare mount point";
}

}  // namespace
}  // namespace quillstow
