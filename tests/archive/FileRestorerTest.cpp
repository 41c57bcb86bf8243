// Putting files back into a user's folder: whole or not at all, never through a link, the
// failures counted and told in the window's words.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TestTree.hpp"
#include "archive/FileRestorer.hpp"
#include "archive/RestoreTexts.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "support/Uuid.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

TEST(RestoreSummary, SaysWhatHappenedInTheWindowsWords) {
    struct Case {
        int restored;
        int failed;
        bool cancelled;
        const char* text;
    };
    const Case cases[] = {
        {1, 0, false, "1 file restored successfully."},
        {0, 0, false, "0 files restored successfully."},
        {12, 0, false, "12 files restored successfully."},
        {2, 1, false, "Error: Restored 2 files. 1 file failed."},
        {1, 1, false, "Error: Restored 1 files. 1 file failed."},
        {0, 3, false, "Error: Restored 0 files. 3 files failed."},
        {2, 0, true, "Restore cancelled. 2 files restored successfully."},
        {2, 1, true, "Error: Restore cancelled. Restored 2 files. 1 file failed."},
    };
    for (const auto& c : cases) {
        const RestoreOutcome outcome{c.restored, c.failed, c.cancelled};
        EXPECT_EQ(outcome.message(), c.text);
        EXPECT_EQ(restoretext::isError(outcome.message()), c.failed > 0) << c.text;
    }
}

TEST(RestoreTemporaryName, SitsHiddenBesideTheTargetAndFitsAFolderEntry) {
    const std::string name = restoreTemporaryName("report.txt");
    EXPECT_TRUE(name.starts_with(".report.txt.restore-")) << name;
    EXPECT_EQ(name.size(), std::string(".report.txt.restore-").size() + 8);
    EXPECT_NE(restoreTemporaryName("report.txt"), name);
    EXPECT_LE(restoreTemporaryName(std::string(255, 'x')).size(), 255u);
}

class FileRestorerTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path backup = root / "drive/Quillstow/Work";
    fs::path target = root / "home/Work";
    FaultyFileSystem fileSystem;

    std::vector<RestoreJob> jobsFor(std::initializer_list<const char*> relativePaths) {
        std::vector<RestoreJob> jobs;
        for (const char* relative : relativePaths) {
            jobs.push_back(
                {backup / relative, relative, std::int64_t(fs::file_size(backup / relative))});
        }
        return jobs;
    }

    // Every file below the target, temporaries included: none may be left.
    std::map<std::string, std::string> targetFiles() { return filesBelow(target); }
};

TEST_F(FileRestorerTest, PutsFilesBackWithTheirFoldersAndMetadata) {
    writeFile(backup / "a/b/deep.txt", "deep", referenceDate());
    writeFile(backup / "top.txt", "new top");
    ASSERT_EQ(::chmod((backup / "top.txt").c_str(), 0640), 0);
    writeFile(target / "top.txt", "old top");

    std::vector<RestoreProgress> reports;
    const auto outcome =
        restoreFiles(fileSystem, jobsFor({"a/b/deep.txt", "top.txt"}), target,
                     [&](const RestoreProgress& progress) { reports.push_back(progress); });

    EXPECT_EQ(outcome.message(), "2 files restored successfully.");
    EXPECT_EQ(targetFiles(), (std::map<std::string, std::string>{{"a/b/deep.txt", "deep"},
                                                                 {"top.txt", "new top"}}));
    EXPECT_EQ(modificationDate(target / "a/b/deep.txt"), referenceDate());
    EXPECT_EQ(fs::status(target / "top.txt").permissions(),
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    ASSERT_FALSE(reports.empty());
    EXPECT_EQ(reports.back().filesDone, 2);
    EXPECT_EQ(reports.back().filesTotal, 2);
    EXPECT_EQ(reports.back().bytesDone, 11);
    EXPECT_EQ(reports.back().bytesTotal, 11);
}

TEST_F(FileRestorerTest, AFolderThatCannotBeMadeFailsItsFileAndTheRestGoOn) {
    writeFile(backup / "one.txt", "1");
    writeFile(backup / "blocked/two.txt", "2");
    writeFile(backup / "three.txt", "3");
    // A file stands where the folder would have to be made.
    writeFile(target / "blocked", "a file of the user's");

    const auto outcome =
        restoreFiles(fileSystem, jobsFor({"one.txt", "blocked/two.txt", "three.txt"}), target);

    EXPECT_EQ(outcome.restored, 2);
    EXPECT_EQ(outcome.failed, 1);
    EXPECT_EQ(outcome.message(), "Error: Restored 2 files. 1 file failed.");
    EXPECT_EQ(targetFiles(),
              (std::map<std::string, std::string>{
                  {"blocked", "a file of the user's"}, {"one.txt", "1"}, {"three.txt", "3"}}));
}

TEST_F(FileRestorerTest, ALinkInTheTargetTreeNeverLeadsOutOfIt) {
    const fs::path outside = root / "outside";
    writeFile(outside / "a.txt", "outside a");
    writeFile(outside / "secret.txt", "outside secret");
    writeFile(backup / "docs/a.txt", "backup a");
    writeFile(backup / "secret.txt", "backup secret");
    writeFile(backup / "inside.txt", "backup inside");
    makeLink(target / "docs", outside);
    makeLink(target / "secret.txt", outside / "secret.txt");

    const auto outcome =
        restoreFiles(fileSystem, jobsFor({"docs/a.txt", "secret.txt", "inside.txt"}), target);

    EXPECT_EQ(outcome.restored, 1);
    EXPECT_EQ(outcome.failed, 2);
    EXPECT_EQ(filesBelow(outside), (std::map<std::string, std::string>{
                                       {"a.txt", "outside a"}, {"secret.txt", "outside secret"}}));
    EXPECT_TRUE(fs::is_symlink(target / "secret.txt"));
    EXPECT_EQ(readFile(target / "inside.txt"), "backup inside");
}

TEST_F(FileRestorerTest, AClimbingPathFailsWithoutTouchingAnything) {
    writeFile(backup / "a.txt", "a");
    makeFolder(target);
    const std::vector<RestoreJob> jobs{{backup / "a.txt", "../escaped.txt", 1},
                                       {backup / "a.txt", "/etc/x", 1},
                                       {backup / "a.txt", "", 1}};
    const auto outcome = restoreFiles(fileSystem, jobs, target);
    EXPECT_EQ(outcome.failed, 3);
    EXPECT_FALSE(fs::exists(root / "home/escaped.txt"));
    EXPECT_TRUE(targetFiles().empty());
}

TEST_F(FileRestorerTest, AShortCopyLeavesTheOldFileAsItWas) {
    // Two chunks' worth, so the source can shrink between them.
    const std::string content(3 << 20, 'n');
    writeFile(backup / "big.bin", content);
    writeFile(target / "big.bin", "the user's old version");
    fileSystem.afterChunk = [&](std::int64_t) {
        fs::resize_file(backup / "big.bin", 1 << 20);
        fileSystem.afterChunk = nullptr;
    };

    const auto outcome = restoreFiles(fileSystem, jobsFor({"big.bin"}), target);

    EXPECT_EQ(outcome.message(), "Error: Restored 0 files. 1 file failed.");
    EXPECT_EQ(targetFiles(),
              (std::map<std::string, std::string>{{"big.bin", "the user's old version"}}));
}

TEST_F(FileRestorerTest, AFailedCopyIsRemovedAndTheNextFileGoes) {
    writeFile(backup / "a.txt", "a");
    writeFile(backup / "b.txt", "b");
    writeFile(target / "a.txt", "old a");
    fileSystem.failNext(FaultyFileSystem::Operation::copyChunk, EIO);

    const auto outcome = restoreFiles(fileSystem, jobsFor({"a.txt", "b.txt"}), target);

    EXPECT_EQ(outcome.message(), "Error: Restored 1 files. 1 file failed.");
    EXPECT_EQ(targetFiles(),
              (std::map<std::string, std::string>{{"a.txt", "old a"}, {"b.txt", "b"}}));
}

TEST_F(FileRestorerTest, AMissingDestinationIsMadeUnlessItsDriveIsNotThere) {
    writeFile(backup / "docs/a.txt", "a");

    // The original folder was lost: the restore puts it back with the folders above it.
    auto outcome = restoreFiles(fileSystem, jobsFor({"docs/a.txt"}), root / "gone/Documents");
    EXPECT_EQ(outcome.message(), "1 file restored successfully.");
    EXPECT_EQ(readFile(root / "gone/Documents/docs/a.txt"), "a");

    // Below a removable-media root with no drive mounted, making it would fill the system disk.
    struct stat mnt {
    }, top{};
    if (::stat("/mnt", &mnt) == 0 && ::stat("/", &top) == 0 && mnt.st_dev != top.st_dev)
        GTEST_SKIP() << "a drive is mounted at /mnt";
    const fs::path unplugged = "/mnt/quillstow-unplugged-" + Uuid::random().text() + "/Photos";
    ASSERT_FALSE(fs::exists(unplugged.parent_path()));
    outcome = restoreFiles(fileSystem, jobsFor({"docs/a.txt"}), unplugged);
    EXPECT_EQ(outcome.message(), "Error: Restored 0 files. 1 file failed.");
    EXPECT_FALSE(fs::exists(unplugged.parent_path()));
}

TEST_F(FileRestorerTest, ACancelStopsBetweenFilesAndLeavesNoTemporary) {
    for (int i = 0; i < 5; ++i)
        writeFile(backup / ("f" + std::to_string(i)), "data");
    makeFolder(target);
    std::stop_source stop;
    int copiedAfterCancel = 0;
    const auto outcome = restoreFiles(
        fileSystem, jobsFor({"f0", "f1", "f2", "f3", "f4"}), target,
        [&](const RestoreProgress& progress) {
            if (stop.stop_requested()) ++copiedAfterCancel;
            if (progress.filesDone == 2) stop.request_stop();
        },
        stop.get_token());

    EXPECT_TRUE(outcome.cancelled);
    EXPECT_EQ(outcome.restored, 2);
    EXPECT_EQ(copiedAfterCancel, 0);
    EXPECT_EQ(fileSystem.calls(FaultyFileSystem::Operation::copyChunk), 4);  // two files, two calls
    EXPECT_EQ(targetFiles(), (std::map<std::string, std::string>{{"f0", "data"}, {"f1", "data"}}));
}

TEST(FileRestorerBatches, MoreFilesThanOneFlushHoldsAllArriveWithProgressInStep) {
    TemporaryFolder root(fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::path());
    LocalFileSystem fileSystem;
    std::vector<RestoreJob> jobs;
    std::map<std::string, std::string> expected;
    for (int i = 0; i < 600; ++i) {
        const std::string name = "folder" + std::to_string(i % 7) + "/f" + std::to_string(i);
        writeFile(root / "backup" / name, name);
        jobs.push_back({root / "backup" / name, name, std::int64_t(name.size())});
        expected[name] = name;
    }
    makeFolder(root / "target");
    RestoreProgress last;
    const auto outcome =
        restoreFiles(fileSystem, jobs, root / "target", [&](const RestoreProgress& progress) {
            EXPECT_EQ(progress.filesDone, last.filesDone + 1);
            EXPECT_GT(progress.bytesDone, last.bytesDone);
            last = progress;
        });
    EXPECT_EQ(outcome.message(), "600 files restored successfully.");
    EXPECT_EQ(last.bytesDone, last.bytesTotal);
    EXPECT_EQ(filesBelow(root / "target"), expected);
}

TEST_F(FileRestorerTest, ACancelInsideALargeFileRemovesItsTemporary) {
    writeFile(backup / "large.bin", std::string(3 << 20, 'l'));
    writeFile(target / "large.bin", "old");
    std::stop_source stop;
    fileSystem.afterChunk = [&](std::int64_t) { stop.request_stop(); };

    const auto outcome =
        restoreFiles(fileSystem, jobsFor({"large.bin"}), target, {}, stop.get_token());

    EXPECT_TRUE(outcome.cancelled);
    EXPECT_EQ(outcome.restored + outcome.failed, 0);
    EXPECT_EQ(fileSystem.calls(FaultyFileSystem::Operation::copyChunk), 1);
    EXPECT_EQ(targetFiles(), (std::map<std::string, std::string>{{"large.bin", "old"}}));
}

}  // namespace
}  // namespace quillstow
