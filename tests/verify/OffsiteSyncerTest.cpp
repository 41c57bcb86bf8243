// The weekly second copy over real folders: what goes offsite and what never does, the folder
// test every 25 files, retries, and copies that fail their size check. Whether a file needs a
// copy is needsCopy's (ChangeTestAndListingTest).

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestTree.hpp"
#include "copy/ExclusionFilter.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "support/FileInfo.hpp"
#include "support/ManualClocks.hpp"
#include "support/RecordingSleeper.hpp"
#include "verify/OffsiteSyncer.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
using ::testing::ElementsAre;
namespace fs = std::filesystem;

class OffsiteSyncerTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path backup = root / "Drive/Quillstow/Work";
    fs::path offsite = root / "Dropbox/Quillstow/Work";
    FaultyFileSystem fileSystem;
    ActivityGate gate;
    RecordingSleeper sleeper;
    ManualClock clock;
    std::vector<std::size_t> folderTests;
    std::size_t reported = 0;
    std::function<bool(const fs::path&)> folderAnswer = [](const fs::path& folder) {
        return files::isFolder(folder);
    };
    OffsiteSyncer syncer{fileSystem, gate, sleeper, clock, [this](const fs::path& folder) {
                             folderTests.push_back(reported);
                             return folderAnswer(folder);
                         }};
    ExclusionFilter filter = filterForProfile(BackupProfile::standard);

    OffsiteSyncResult sync(std::stop_token stop = {}) {
        return syncer.sync(
            backup, offsite, filter, [this](double, const std::string&) { ++reported; }, stop);
    }
};

TEST_F(OffsiteSyncerTest, AddsAndOverwritesButNeverDeletesOffsite) {
    writeFile(backup / "notes.txt", "notes", referenceDate());
    writeFile(backup / "film/cut.txt", "the cut", referenceDate());
    writeFile(offsite / "only-offsite.txt", "kept");
    writeFile(offsite / "notes.txt", "old", referenceDate() - hours(24));

    const OffsiteSyncResult result = sync();
    EXPECT_EQ(result.copiedFiles, 2);
    EXPECT_EQ(result.bytesTransferred, 12);
    EXPECT_TRUE(result.errors.empty());
    EXPECT_FALSE(result.abortedDueToFolderLoss);
    EXPECT_EQ(
        filesBelow(offsite),
        (std::map<std::string, std::string>{
            {"film/cut.txt", "the cut"}, {"notes.txt", "notes"}, {"only-offsite.txt", "kept"}}));
    EXPECT_EQ(modificationDate(offsite / "notes.txt"), referenceDate()) << "the date comes along";

    const OffsiteSyncResult again = sync();
    EXPECT_EQ(again.copiedFiles, 0) << "nothing changed, nothing copied";
    EXPECT_EQ(reported, 4u) << "every file is reported, also one that needs no copy";
}

TEST_F(OffsiteSyncerTest, BookkeepingLeftoversLinksAndExcludedNamesStayBehind) {
    writeFile(backup / "kept.txt", "x");
    for (const char* name :
         {".quillstow-hashes.json", ".quillstow-lastcheck", ".quillstow-checkpoint.json",
          ".quillstowtmp-12345678-a", ".quillstowresume-9-b", ".DS_Store", "Thumbs.db"}) {
        writeFile(backup / name, "x");
    }
    writeFile(backup / "node_modules/lib/index.js", "x");
    makeLink(backup / "link.txt", backup / "kept.txt");
    EXPECT_THAT(syncer.scan(backup, filter), ElementsAre("kept.txt"));
    sync();
    EXPECT_EQ(filesBelow(offsite).size(), 1u);
    EXPECT_FALSE(fs::exists(offsite / "link.txt"));
}

// The folder is tested before files 25 and 50, never before the first; gone at the second test,
// the copy pauses with one error, and what was copied stays.
TEST_F(OffsiteSyncerTest, TheFolderIsTestedEveryTwentyFiveFilesAndItsLossPausesTheCopy) {
    for (int i = 0; i < 60; ++i)
        writeFile(backup / ("f" + std::to_string(i)), "x");
    EXPECT_EQ(sync().copiedFiles, 60);
    EXPECT_THAT(folderTests, ElementsAre(25u, 50u)) << "files reported before each test";

    fs::remove_all(offsite);
    folderTests.clear();
    reported = 0;
    folderAnswer = [this](const fs::path&) { return folderTests.size() < 2; };
    const OffsiteSyncResult result = sync();
    EXPECT_TRUE(result.abortedDueToFolderLoss);
    EXPECT_EQ(result.copiedFiles, 50) << "what was copied stays";
    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0].operation, "offsiteReachability");
    EXPECT_EQ(result.errors[0].url, offsite);
    EXPECT_EQ(
        result.errors[0].underlying,
        errors::quillstow(ErrorCode::offsiteFolderLost,
                          "Offsite folder became unavailable mid-sync — pausing offsite copy."));
}

TEST_F(OffsiteSyncerTest, ACopyWhoseSizeDiffersNeverReachesTheFinalName) {
    writeFile(backup / "a.txt", "new content");
    writeFile(offsite / "a.txt", "old", referenceDate());
    fileSystem.afterCopy = [](const fs::path&, const fs::path& to) { writeFile(to, "torn"); };
    const OffsiteSyncResult result = sync();
    EXPECT_EQ(result.copiedFiles, 0);
    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0].operation, "offsiteCopy");
    EXPECT_EQ(result.errors[0].url, backup / "a.txt");
    EXPECT_EQ(result.errors[0].underlying,
              errors::quillstow(ErrorCode::offsiteSizeMismatch,
                                "Offsite copy size mismatch: source=11, copied=4."));
    EXPECT_EQ(readFile(offsite / "a.txt"), "old");
    EXPECT_EQ(filesBelow(offsite).size(), 1u) << "no temporary is left";
    EXPECT_THAT(sleeper.slept, ElementsAre(0.5, 1.0)) << "three attempts";
    EXPECT_EQ(fileSystem.calls(FaultyFileSystem::Operation::copyItem), 3);
}

TEST_F(OffsiteSyncerTest, AFailedAttemptIsMadeAgainAfterHalfASecond) {
    writeFile(backup / "a.txt", "alpha");
    fileSystem.failNext(FaultyFileSystem::Operation::copyItem, EIO);
    const OffsiteSyncResult result = sync();
    EXPECT_EQ(result.copiedFiles, 1);
    EXPECT_TRUE(result.errors.empty());
    EXPECT_THAT(sleeper.slept, ElementsAre(0.5));
    EXPECT_EQ(readFile(offsite / "a.txt"), "alpha");
    EXPECT_EQ(fileSystem.calls(FaultyFileSystem::Operation::flushFile), 1)
        << "the copy is flushed before it is swapped in";

    // A stop ends the sync between files only: the file under way still gets its retry.
    writeFile(backup / "b.txt", "beta");
    fileSystem.failNext(FaultyFileSystem::Operation::copyItem, ENOSPC);
    std::stop_source stop;
    stop.request_stop();
    EXPECT_EQ(syncer.copyFile(backup / "b.txt", offsite / "b.txt", stop.get_token()), 4);
    EXPECT_EQ(readFile(offsite / "b.txt"), "beta");
    EXPECT_THAT(sleeper.slept, ElementsAre(0.5, 0.5));
    EXPECT_EQ(filesBelow(offsite).size(), 2u) << "no temporary is left";
}

TEST_F(OffsiteSyncerTest, AnOffsiteFolderThatCannotBeMadeIsAFolderLoss) {
    writeFile(backup / "a.txt", "a");
    writeFile(root / "Dropbox", "a file where the folder should be");
    const OffsiteSyncResult result = sync();
    EXPECT_TRUE(result.abortedDueToFolderLoss);
    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0].operation, "createOffsiteDirectory");
    EXPECT_EQ(result.errors[0].url, offsite);
}

TEST_F(OffsiteSyncerTest, AMissingBackupOrACancelledSyncStopsQuietly) {
    EXPECT_EQ(sync().copiedFiles, 0);
    EXPECT_FALSE(fs::exists(offsite)) << "no backup: nothing is made offsite";

    writeFile(backup / "a.txt", "a");
    writeFile(backup / "b.txt", "b");
    std::stop_source stop;
    stop.request_stop();
    const OffsiteSyncResult result = sync(stop.get_token());
    EXPECT_EQ(result.copiedFiles, 0);
    EXPECT_FALSE(result.abortedDueToFolderLoss);
    EXPECT_TRUE(result.errors.empty());
}

}  // namespace
}  // namespace quillstow
