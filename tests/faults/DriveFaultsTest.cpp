// Passes against drives that are full or read-only: real tmpfs mounts.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "PrivateMounts.hpp"
#include "TestTree.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "copy/FileCopier.hpp"
#include "copy/FileTransfer.hpp"
#include "environment/VolumeSpace.hpp"

namespace quillstow {
namespace {

using namespace testing;
using Op = FaultyFileSystem::Operation;
namespace fs = std::filesystem;

class DriveFaultsTest : public ::testing::Test {
  protected:
    void SetUp() override { QUILLSTOW_REQUIRE_PRIVATE_MOUNTS(); }

    TemporaryFolder root;
    fs::path source = root / "source";
    FaultyFileSystem fileSystem;
    FileCopier copier{fileSystem};

    std::vector<std::string> reservedNamesBelow(const fs::path& folder) {
        std::vector<std::string> names;
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            if (transfer::isReservedName(entry.path().filename().native()))
                names.push_back(entry.path());
        }
        return names;
    }
};

TEST_F(DriveFaultsTest, AFileTooLargeForTheDriveFailsAloneAndKeepsTheOldCopyWhole) {
    TmpfsMount drive(root / "drive", 256 * 1024);
    const fs::path mirror = drive.path() / "Quillstow/Work";
    const std::string oldCopy(40 * 1024, 'o');
    writeFile(mirror / "video.mov", oldCopy, referenceDate());
    writeFile(source / "video.mov", std::string(1024 * 1024, 'n'));
    writeFile(source / "small.txt", "fits");

    const BackupResult result = copier.scanAndCopy(
        source, mirror, drive.path() / ".Quillstow-Trash", ExclusionFilter{}, nullptr);

    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0].operation, "copy");
    EXPECT_EQ(result.errors[0].url, source / "video.mov");
    EXPECT_TRUE(errors::isPosix(result.errors[0].underlying, ENOSPC))
        << result.errors[0].underlying.description;
    EXPECT_EQ(result.copiedRelativePaths, (std::vector<std::string>{"small.txt"}));
    // At most one more attempt, after the copies waiting for their swap went in.
    EXPECT_LE(fileSystem.calls(Op::copyItem), 3);
    EXPECT_EQ(readFile(mirror / "video.mov"), oldCopy);
    EXPECT_TRUE(reservedNamesBelow(mirror).empty());
}

TEST_F(DriveFaultsTest, ANearlyFullDriveTakesUpdatesThatFitOneAtATime) {
    TmpfsMount drive(root / "drive", 8 << 20);
    const fs::path mirror = drive.path() / "Quillstow/Work";
    for (int i = 0; i < 10; ++i)
        writeFile(mirror / ("doc" + std::to_string(i)), std::string(600 * 1024, 'o'),
                  referenceDate());
    // Fill the drive until about 2.2 MB are left.
    const std::int64_t filler = *volumes::availableCapacity(drive.path()) - 2'200'000;
    writeFile(drive.path() / "filler", std::string(std::size_t(filler), 'f'));
    for (int i = 0; i < 10; ++i)
        writeFile(source / ("doc" + std::to_string(i)), std::string(600 * 1024, 'n'));

    const BackupResult result = copier.scanAndCopy(
        source, mirror, drive.path() / ".Quillstow-Trash", ExclusionFilter{}, nullptr);

    EXPECT_TRUE(result.errors.empty()) << result.errors.front().underlying.description;
    EXPECT_EQ(result.copiedFiles, 10);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(readFile(mirror / ("doc" + std::to_string(i))), std::string(600 * 1024, 'n'));
}

TEST_F(DriveFaultsTest, APartialFileLeftByAFullDriveGoesAtOnce) {
    TmpfsMount drive(root / "drive", 80 << 20);
    const fs::path mirror = drive.path() / "Quillstow/Work";
    // Streamed, and larger than the drive; the files after it fit once its head is gone.
    writeFile(source / "a-large.mov", std::string(100 << 20, 'v'));
    for (int i = 0; i < 20; ++i)
        writeFile(source / ("b" + std::to_string(i) + ".txt"), std::string(1 << 20, 't'));

    const BackupResult result = copier.scanAndCopy(
        source, mirror, drive.path() / ".Quillstow-Trash", ExclusionFilter{}, nullptr);

    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0].url, source / "a-large.mov");
    EXPECT_TRUE(errors::isPosix(result.errors[0].underlying, ENOSPC));
    EXPECT_EQ(result.copiedFiles, 20);
    EXPECT_TRUE(reservedNamesBelow(mirror).empty());
}

TEST_F(DriveFaultsTest, ASparseFileStaysSparseAndFitsADriveSmallerThanItsLength) {
    TmpfsMount drive(root / "drive", 1 << 30);
    const fs::path mirror = drive.path() / "Quillstow/Work";
    makeFolder(source);
    for (const std::int64_t length : {std::int64_t(3) << 30, std::int64_t(1) << 20}) {
        const fs::path file = source / ("sparse-" + std::to_string(length));
        writeFile(file, "");
        std::filesystem::resize_file(file, std::uintmax_t(length));
        std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp(length / 2);
        stream << "eighteen bytes :-)";
    }

    const BackupResult result = copier.scanAndCopy(
        source, mirror, drive.path() / ".Quillstow-Trash", ExclusionFilter{}, nullptr);

    EXPECT_TRUE(result.errors.empty()) << result.errors.front().underlying.description;
    for (const std::int64_t length : {std::int64_t(3) << 30, std::int64_t(1) << 20}) {
        const fs::path copy = mirror / ("sparse-" + std::to_string(length));
        struct stat status {};
        ASSERT_EQ(::stat(copy.c_str(), &status), 0);
        EXPECT_EQ(status.st_size, length);
        EXPECT_LE(status.st_blocks * 512, 64 * 1024) << length;
        std::ifstream stream(copy, std::ios::binary);
        stream.seekg(length / 2);
        std::string middle(18, '\0');
        stream.read(middle.data(), 18);
        EXPECT_EQ(middle, "eighteen bytes :-)");
    }
}

TEST_F(DriveFaultsTest, AReadOnlyDriveIsRefusedBeforeAnythingIsWritten) {
    TmpfsMount drive(root / "drive", 1024 * 1024);
    const fs::path mirror = drive.path() / "Quillstow/Work";
    makeFolder(mirror);
    writeFile(source / "a.txt", "a");
    drive.remountReadOnly();
    try {
        copier.scanAndCopy(source, mirror, drive.path() / ".Quillstow-Trash", ExclusionFilter{},
                           nullptr);
        ADD_FAILURE() << "the pass went on";
    } catch (const FileOperationFailure& failure) {
        EXPECT_EQ(failure.error().operation, "validateDestination");
        EXPECT_EQ(failure.error().url, mirror);
        EXPECT_EQ(failure.error().underlying,
                  errors::quillstow(ErrorCode::destinationNotWritable,
                                    "Destination folder is not writable — check "
                                    "permissions or disk space."));
    }
    EXPECT_EQ(fileSystem.calls(Op::copyItem), 0);
}

TEST_F(DriveFaultsTest, ADriveThatTurnsReadOnlyMidPassFailsItemsNotThePass) {
    TmpfsMount drive(root / "drive", 1024 * 1024);
    const fs::path mirror = drive.path() / "Quillstow/Work";
    writeFile(mirror / "f0", "old", referenceDate());
    for (int i = 0; i < 6; ++i)
        writeFile(source / ("f" + std::to_string(i)), "data");
    const BackupResult result =
        copier.scanAndCopy(source, mirror, drive.path() / ".Quillstow-Trash", ExclusionFilter{},
                           [&](double fraction, const std::string&) {
                               if (fraction >= 0.5 && fraction < 0.6) drive.remountReadOnly();
                           });
    // Copies made before the change wait for their swap, which the drive now refuses too:
    // every item fails on its own, in order, and no final name holds anything new.
    EXPECT_EQ(result.copiedFiles, 0);
    ASSERT_EQ(result.errors.size(), 6u);
    for (const auto& error : result.errors) {
        EXPECT_EQ(error.operation, "copy");
        EXPECT_TRUE(errors::isPosix(error.underlying, EROFS)) << error.underlying.description;
    }
    EXPECT_EQ(readFile(mirror / "f0"), "old");
    for (int i = 1; i < 6; ++i)
        EXPECT_FALSE(fs::exists(mirror / ("f" + std::to_string(i))));
}

TEST_F(DriveFaultsTest, ACopyOfAReadOnlySourceDriveWorks) {
    TmpfsMount sourceDrive(root / "source-drive", 1024 * 1024);
    writeFile(sourceDrive.path() / "photos/a.jpg", "jpeg");
    sourceDrive.remountReadOnly();
    const BackupResult result = copier.scanAndCopy(
        sourceDrive.path(), root / "mirror", root / ".Quillstow-Trash", ExclusionFilter{}, nullptr);
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(readFile(root / "mirror/photos/a.jpg"), "jpeg");
}

}  // namespace
}  // namespace quillstow
