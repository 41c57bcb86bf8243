// Verification on real drives: a drive pulled out while the hash database is pruned, and an
// offsite folder with just enough room, or one byte too little.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LogCapture.hpp"
#include "PrivateMounts.hpp"
#include "TestTree.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "environment/VolumeSpace.hpp"
#include "support/FileInfo.hpp"
#include "support/ManualClocks.hpp"
#include "verify/IntegrityVerifier.hpp"
#include "verify/OffsiteSyncer.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
namespace fs = std::filesystem;

class VerifyFaultsTest : public ::testing::Test {
  protected:
    void SetUp() override { QUILLSTOW_REQUIRE_PRIVATE_MOUNTS(); }

    TemporaryFolder root;
    ManualWallClock wallClock{Date{std::chrono::seconds(1'700'000'000)}};
};

TEST_F(VerifyFaultsTest, ADrivePulledWhilePruningCostsAtMostAHundredEntries) {
    auto drive = std::make_unique<TmpfsMount>(root / "drive", 16 << 20);
    const fs::path backup = drive->path() / "Quillstow/Work";
    std::vector<std::string> copied;
    for (int i = 0; i < 250; ++i) {
        copied.push_back("f" + std::to_string(1000 + i));
        writeFile(backup / copied.back(), "data");
    }
    HashDatabase database;
    IntegrityVerifier(wallClock).recordHashes(database, copied, backup, {});

    int tests = 0;
    IntegrityVerifier verifier(wallClock, [&](const fs::path& folder) {
        const bool isThere = files::isFolder(folder);
        // Pulled right after the test at the start of the walk.
        if (++tests == 2) drive->unmount();
        return isThere;
    });
    EXPECT_EQ(verifier.pruneStaleEntries(database, backup), 100);
    EXPECT_EQ(tests, 3);
}

class OffsiteRoomTest : public VerifyFaultsTest {
  protected:
    fs::path backup = root / "Drive/Quillstow/Work";
    FaultyFileSystem fileSystem;
    ActivityGate gate;
    Sleeper sleeper;
    ManualClock clock;
    OffsiteSyncer syncer{fileSystem, gate, sleeper, clock};

    // A drive with room for exactly the margin and one mebibyte more.
    std::unique_ptr<TmpfsMount> cloudDrive() {
        auto drive = std::make_unique<TmpfsMount>(
            root / "cloud", std::uint64_t(OffsiteSyncer::freeSpaceMargin + (1 << 20)));
        EXPECT_EQ(volumes::availableCapacity(drive->path()),
                  OffsiteSyncer::freeSpaceMargin + (1 << 20));
        return drive;
    }

    OffsiteSyncResult sync(const fs::path& offsiteRoot) {
        return syncer.sync(backup, offsiteRoot, filterForProfile(BackupProfile::standard), nullptr,
                           {});
    }
};

// Two files of half a mebibyte each, or one byte more, on a drive of the margin and a mebibyte.
TEST_F(OffsiteRoomTest, RoomForTheCopyAndTheMarginExactlyIsEnoughAndOneByteLessIsRefused) {
    for (const std::size_t extra : {0, 1}) {
        SCOPED_TRACE(extra ? "one byte too many" : "exactly enough");
        writeFile(backup / "a.bin", std::string(1 << 19, 'a'));
        writeFile(backup / "b.bin", std::string((1 << 19) + extra, 'b'));
        const auto drive = cloudDrive();
        const OffsiteSyncResult result = sync(drive->path() / "Quillstow/Work");
        if (extra == 0) {
            EXPECT_TRUE(result.errors.empty());
            EXPECT_EQ(result.copiedFiles, 2);
            continue;
        }
        EXPECT_EQ(result.copiedFiles, 0);
        EXPECT_FALSE(result.abortedDueToFolderLoss);
        ASSERT_EQ(result.errors.size(), 1u);
        EXPECT_EQ(result.errors[0].operation, "offsiteDiskSpaceCheck");
        EXPECT_EQ(result.errors[0].underlying,
                  errors::quillstow(ErrorCode::offsiteRoomShort,
                                    "Not enough room in the offsite folder. Need ~1 MB, only "
                                    "~501 MB free. Free up space in your cloud folder and try "
                                    "again."));
        EXPECT_TRUE(filesBelow(drive->path()).empty());
    }
}

TEST_F(OffsiteRoomTest, NothingToCopyNeedsNoRoomAtAll) {
    writeFile(backup / "a.bin", std::string(1 << 19, 'a'));
    TmpfsMount small(root / "small", 1 << 20);
    const fs::path offsite = small.path() / "Quillstow/Work";
    fs::create_directories(offsite);
    fileSystem.copyItem(backup / "a.bin", offsite / "a.bin");
    const OffsiteSyncResult result = sync(offsite);
    EXPECT_TRUE(result.errors.empty()) << "far below the margin, but nothing is needed";
    EXPECT_EQ(result.copiedFiles, 0);
}

}  // namespace
}  // namespace quillstow
