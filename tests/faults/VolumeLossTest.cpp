// Drives pulled during a pass: real tmpfs mounts, detached in the middle.

#include <gtest/gtest.h>
#include <unistd.h>

#include "PrivateMounts.hpp"
#include "TestTree.hpp"
#include "copy/Checkpoint.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "copy/FileCopier.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

class VolumeLossTest : public ::testing::Test {
  protected:
    void SetUp() override { QUILLSTOW_REQUIRE_PRIVATE_MOUNTS(); }

    TemporaryFolder root;
    FaultyFileSystem fileSystem;
    FileCopier copier{fileSystem};

    std::vector<const FileOperationError*> errorsWithCode(const BackupResult& result, int code) {
        std::vector<const FileOperationError*> found;
        for (const auto& error : result.errors) {
            if (error.underlying.code == code && error.underlying.domain == "Quillstow") {
                found.push_back(&error);
            }
        }
        return found;
    }
};

// Whether the pass copies or has nothing to do, the drive's loss is seen within ten items.
TEST_F(VolumeLossTest, APulledDestinationEndsThePassWithinTenItems) {
    for (const bool isNoOp : {false, true}) {
        SCOPED_TRACE(isNoOp ? "nothing to copy" : "copying");
        TemporaryFolder root;
        const fs::path source = root / "source";
        for (int i = 0; i < 200; ++i)
            writeFile(source / ("d" + std::to_string(i % 7)) / std::to_string(i), "data");
        auto drive = std::make_unique<TmpfsMount>(root / "drive", 8 << 20);
        const fs::path mirror = drive->path() / "Quillstow/Work";
        const fs::path trash = drive->path() / ".Quillstow-Trash";
        const ExclusionFilter filter = filterForProfile(BackupProfile::standard);
        if (isNoOp) {
            ASSERT_EQ(copier.scanAndCopy(source, mirror, trash, filter, nullptr).copiedFiles, 200);
        }
        writeFile(mirror / "orphan-that-must-stay", "old");

        int reports = 0;
        int pulledAt = -1;
        const BackupResult result =
            copier.scanAndCopy(source, mirror, trash, filter, [&](double, const std::string&) {
                if (++reports == 26) {
                    drive->unmount();
                    pulledAt = reports;
                }
            });

        EXPECT_TRUE(result.abortedDueToVolumeLoss);
        EXPECT_LE(reports - pulledAt, 10);
        const auto lost = errorsWithCode(result, 1007);
        ASSERT_EQ(lost.size(), 1u);
        EXPECT_EQ(lost[0]->operation, "destinationVolumeCheck");
        EXPECT_EQ(&result.errors.back(), lost[0]) << "the loss ends the list";
        EXPECT_EQ(result.archivedFiles, 0);
        // The bare mount point is not made into a mirror.
        EXPECT_TRUE(fs::is_empty(root / "drive"));
        EXPECT_FALSE(fs::exists(mirror / checkpointFileName));
    }
}

TEST_F(VolumeLossTest, APulledSourceDriveStopsTheArchivalWith1006) {
    auto drive = std::make_unique<TmpfsMount>(root / "source-drive", 8 << 20);
    const fs::path source = drive->path() / "Projects";
    for (int i = 0; i < 5; ++i)
        writeFile(source / ("f" + std::to_string(i)), "data");
    const fs::path mirror = root / "mirror";
    writeFile(mirror / "orphan", "kept in the mirror");

    int reports = 0;
    const BackupResult result = copier.scanAndCopy(
        source, mirror, root / ".Quillstow-Trash", filterForProfile(BackupProfile::standard),
        [&](double, const std::string&) {
            if (++reports == 5) drive->unmount();  // with the last item, after the last check
        });

    EXPECT_TRUE(result.abortedDueToVolumeLoss);
    ASSERT_FALSE(result.errors.empty());
    EXPECT_EQ(result.errors.back().operation, "archive");
    EXPECT_EQ(result.errors.back().underlying.code, 1006);
    EXPECT_EQ(result.archivedFiles, 0);
    EXPECT_EQ(readFile(mirror / "orphan"), "kept in the mirror");
    // The last item is read through the source's folder, opened before the detach: its data
    // is whole.
    EXPECT_EQ(result.copiedFiles, 5);
}

TEST_F(VolumeLossTest, AStaleMountPointAsSourceNeverEmptiesTheMirror) {
    const fs::path mountPoint = root / "media/Drive";
    const fs::path mirror = root / "backup/Quillstow/Drive";
    {
        TmpfsMount drive(mountPoint, 8 << 20);
        for (int i = 0; i < 12; ++i)
            writeFile(drive.path() / ("photo" + std::to_string(i) + ".jpg"), "jpeg");
        const BackupResult first =
            copier.scanAndCopy(drive.path(), mirror, root / "backup/.Quillstow-Trash",
                               filterForProfile(BackupProfile::standard), nullptr);
        ASSERT_EQ(first.copiedFiles, 12);
    }
    // The drive is gone; its empty folder stays behind at the mount point.
    ASSERT_TRUE(fs::is_directory(mountPoint));

    const BackupResult result =
        copier.scanAndCopy(mountPoint, mirror, root / "backup/.Quillstow-Trash",
                           filterForProfile(BackupProfile::standard), nullptr);

    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0].underlying,
              errors::quillstow(ErrorCode::sourceEmptyBeforeArchival,
                                "Source appears empty or unreadable — skipped archival of 12 "
                                "backup file(s) to protect existing backups."));
    EXPECT_FALSE(result.abortedDueToVolumeLoss);
    EXPECT_EQ(result.archivedFiles, 0);
    EXPECT_EQ(filesBelow(mirror).size(), 12u);
    EXPECT_FALSE(fs::exists(root / "backup/.Quillstow-Trash"));
}

TEST_F(VolumeLossTest, ADriveGoneBeforeTheArchiveLeavesNothingOnTheDiskBelow) {
    const fs::path source = root / "source";
    for (int i = 0; i < 20; ++i)
        writeFile(source / ("keep" + std::to_string(i)), "data");
    TmpfsMount drive(root / "drive", 8 << 20);
    const fs::path mirror = drive.path() / "Quillstow/Work";
    writeFile(mirror / "old/gone.txt", "gone");
    // The drive goes after the last copy was made, before its swap and the archive phase.
    int copies = 0;
    fileSystem.afterCopy = [&](const fs::path&, const fs::path&) {
        if (++copies == 20) drive.unmount();
    };

    const BackupResult result = copier.scanAndCopy(
        source, mirror, drive.path() / ".Quillstow-Trash", ExclusionFilter{}, nullptr);

    EXPECT_TRUE(result.abortedDueToVolumeLoss);
    EXPECT_EQ(result.archivedFiles, 0);
    ASSERT_EQ(errorsWithCode(result, 1007).size(), 1u);
    // The bare mount point stays as it was: empty.
    EXPECT_TRUE(fs::is_empty(drive.path())) << fs::directory_iterator(drive.path())->path();
}

TEST_F(VolumeLossTest, AMirrorIsNeverMadeAtTheMountPointOfADriveThatIsNotThere) {
    // A path where removable drives appear, held by the root file system: no drive is there.
    const fs::path mountPoint = "/media/quillstow-test-" + std::to_string(::getpid());
    makeFolder(mountPoint);
    writeFile(root / "source/a.txt", "a");
    try {
        copier.scanAndCopy(root / "source", mountPoint / "Quillstow/Work",
                           mountPoint / ".Quillstow-Trash", ExclusionFilter{}, nullptr);
        ADD_FAILURE() << "the pass went on";
    } catch (const FileOperationFailure& failure) {
        EXPECT_EQ(failure.error().underlying.code, 1007);
    }
    EXPECT_TRUE(fs::is_empty(mountPoint));
    fs::remove(mountPoint);
}

}  // namespace
}  // namespace quillstow
