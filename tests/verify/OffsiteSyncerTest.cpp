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
using Files = std::map<std::string, std::string>;
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
    std::function<bool(const fs::path&)> folderAnswer = files::isFolder;
    OffsiteSyncer syncer{fileSystem, gate, sleeper, clock, [this](const fs::path& folder) {
                             folderTests.push_back(reported);
                             return folderAnswer(folder);
                         }};

    OffsiteSyncResult sync(std::stop_token stop = {}) {
        return syncer.sync(
            backup, offsite, filterForProfile(BackupProfile::standard),
            [this](double, const std::string&) { ++reported; }, stop);
    }
};

// Bookkeeping, leftovers of cut passes, links and excluded names stay home; what is only
// offsite stays there.
TEST_F(OffsiteSyncerTest, AddsAndOverwritesButNeverDeletesOffsite) {
    writeFile(backup / "notes.txt", "notes", referenceDate());
    writeFile(backup / "film/cut.txt", "the cut", referenceDate());
    for (const char* name :
         {".quillstow-hashes.json", ".quillstow-lastcheck", ".quillstow-checkpoint.json",
          ".quillstowtmp-12345678-a", ".quillstowresume-9-b", ".DS_Store", "node_modules/x.js"}) {
        writeFile(backup / name, "x");
    }
    makeLink(backup / "link.txt", backup / "notes.txt");
    writeFile(offsite / "only-offsite.txt", "kept");
    writeFile(offsite / "notes.txt", "old", referenceDate() - hours(24));

    const OffsiteSyncResult result = sync();
    EXPECT_EQ(result.copiedFiles, 2);
    EXPECT_EQ(result.bytesTransferred, 12);
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(
        filesBelow(offsite),
        (Files{{"film/cut.txt", "the cut"}, {"notes.txt", "notes"}, {"only-offsite.txt", "kept"}}));
    EXPECT_FALSE(fs::exists(offsite / "link.txt"));
    EXPECT_EQ(modificationDate(offsite / "notes.txt"), referenceDate()) << "the date comes along";
    EXPECT_EQ(sync().copiedFiles, 0) << "nothing changed, nothing copied";
    EXPECT_EQ(reported, 4u) << "every file is reported, also one that needs no copy";
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
    folderAnswer = [this](const fs::path&) { return folderTests.size() < 2; };
    const OffsiteSyncResult result = sync();
    EXPECT_TRUE(result.abortedDueToFolderLoss);
    EXPECT_EQ(result.copiedFiles, 50) << "what was copied stays";
    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0].operation, "offsiteReachability");
    EXPECT_EQ(result.errors[0].underlying.code, int(ErrorCode::offsiteFolderLost));
}

// Three attempts, half a second and a second apart; a copy is flushed and swapped in only once
// its size is its source's, so a torn one never reaches the final name, and no temporary stays.
TEST_F(OffsiteSyncerTest, ACopyIsTriedThreeTimesAndSwappedInOnlyWhole) {
    for (const bool isTorn : {true, false}) {
        SCOPED_TRACE(isTorn ? "torn every time" : "failing once");
        FaultyFileSystem fileSystem;
        RecordingSleeper sleeper;
        OffsiteSyncer syncer{fileSystem, gate, sleeper, clock};
        writeFile(backup / "a.txt", "new content");
        writeFile(offsite / "a.txt", "old", referenceDate());
        if (isTorn) {
            fileSystem.afterCopy = [](const fs::path&, const fs::path& to) { writeFile(to, "x"); };
        } else {
            fileSystem.failNext(FaultyFileSystem::Operation::copyItem, EIO);
        }
        const OffsiteSyncResult result =
            syncer.sync(backup, offsite, filterForProfile(BackupProfile::standard), nullptr, {});
        EXPECT_EQ(result.copiedFiles, isTorn ? 0 : 1);
        EXPECT_EQ(filesBelow(offsite), (Files{{"a.txt", isTorn ? "old" : "new content"}}));
        EXPECT_EQ(sleeper.slept, (isTorn ? std::vector{0.5, 1.0} : std::vector{0.5}));
        EXPECT_EQ(fileSystem.calls(FaultyFileSystem::Operation::copyItem), isTorn ? 3 : 2);
        EXPECT_EQ(fileSystem.calls(FaultyFileSystem::Operation::flushFile), isTorn ? 0 : 1);
        ASSERT_EQ(result.errors.size(), isTorn ? 1u : 0u);
        if (isTorn) {
            EXPECT_EQ(result.errors[0].underlying,
                      errors::quillstow(ErrorCode::offsiteSizeMismatch,
                                        "Offsite copy size mismatch: source=11, copied=1."));
        }
    }
}

}  // namespace
}  // namespace quillstow
