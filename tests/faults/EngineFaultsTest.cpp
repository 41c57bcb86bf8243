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

    // A pair whose destination is the top of a fresh drive of `bytes`.
    BackupPair pairOnDrive(TmpfsMount& drive) {
        BackupPair pair = h.makePair();
        pair.destinationURL = drive.path();
        h.store->updatePair(pair);
        return pair;
    }

    void writeSparse(const fs::path& path, std::uintmax_t size) {
        writeFile(path, "");
        fs::resize_file(path, size);
    }
};

TEST_F(EngineFaultsTest, ADriveWithLessThanFiveHundredMebibytesFreeRefusesEvenAnEmptyPass) {
    TmpfsMount drive(h.root / "drive-499", 499ull << 20);
    const BackupPair pair = pairOnDrive(drive);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(h.runUntil([&] { return engine->status().kind() == Case::error; }));
    h.settle();

    const std::int64_t available = *volumes::availableCapacity(drive.path());
    EXPECT_LT(available, BackupEngine::minimumFreeSpace);
    EXPECT_EQ(engine->status(),
              BackupStatus::error(BackupError::diskSpaceLow(available, 524288000)));
    EXPECT_THAT(h.eventMessages(), ElementsAre("The backup drive is running low on space."));
    EXPECT_THAT(h.notifier->sent, ElementsAre("low disk: Work " + std::to_string(available)));
    EXPECT_FALSE(engine->destinationFreeSpace()) << "the reading is not kept";
    EXPECT_FALSE(fs::exists(drive.path() / "Quillstow"));
}

TEST_F(EngineFaultsTest, WhatAPassWouldCopyNeedsFiveHundredMebibytesOfHeadroom) {
    TmpfsMount drive(h.root / "drive", 570'000'000);
    const BackupPair pair = pairOnDrive(drive);
    writeSparse(pair.sourceURL / "big.bin", 60'000'000);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(h.runUntil([&] { return engine->status().kind() == Case::error; }));
    h.settle();
    const std::int64_t available = *volumes::availableCapacity(drive.path());
    EXPECT_EQ(engine->status(), BackupStatus::error(BackupError::diskSpaceLow(
                                    available, 60'000'000 + BackupEngine::estimateHeadroom)));
    EXPECT_FALSE(fs::exists(drive.path() / "Quillstow/Work/big.bin"));
}

TEST_F(EngineFaultsTest, ASourceOnTheSameDriveIsNotEstimatedOnlyTheFloorCounts) {
    TmpfsMount drive(h.root / "drive", 570'000'000);
    BackupPair pair = pairOnDrive(drive);
    pair.sourceURL = drive.path() / "Projects";
    h.store->updatePair(pair);
    writeSparse(pair.sourceURL / "big.bin", 60'000'000);
    auto engine = h.makeEngine(pair);
    engine->start(pair);
    ASSERT_TRUE(h.runUntil([&] { return engine->status().kind() == Case::completed; }));
    h.settle();
    EXPECT_EQ(fs::file_size(drive.path() / "Quillstow/Work/big.bin"), 60'000'000u);
}

TEST_F(EngineFaultsTest, ADrivePulledMidPassIsAnAbortThatKeepsTheBackupsSafe) {
    auto drive = std::make_unique<TmpfsMount>(h.root / "drive", 600ull << 20);
    const BackupPair pair = pairOnDrive(*drive);
    for (int i = 0; i < 40; ++i)
        writeFile(pair.sourceURL / ("f" + std::to_string(i)), "data");
    CopyGate gate;
    gate.holdAt(15);
    h.fileSystem.afterCopy = [&](const fs::path&, const fs::path&) { gate.afterCopy(); };
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

}  // namespace
}  // namespace quillstow
