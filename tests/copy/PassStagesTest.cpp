// The stages inside whole passes: refusal before anything is touched, the marker of a pass under
// way, package units, and the archive phase as a pass runs it.

#include <gtest/gtest.h>

#include "FaultyFileSystem.hpp"
#include "TestTree.hpp"
#include "copy/Checkpoint.hpp"
#include "copy/FileCopier.hpp"
#include "support/Json.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
namespace fs = std::filesystem;

class PassStagesTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path source = root / "source";
    fs::path mirror = root / "drive/Quillstow/Work";
    fs::path trash = root / "drive/.Quillstow-Trash";
    FaultyFileSystem fileSystem;
    RunningEditors noEditors;
    ManualWallClock wallClock{sys_days{2026y / November / 23} + 23h + 59min + 59s};
    ManualClock clock;
    FileCopier copier{fileSystem, noEditors, wallClock, clock};

    void SetUp() override {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        makeFolder(source);
    }

    BackupResult pass(BackupProfile profile = BackupProfile::standard,
                      const FileCopier::ProgressCallback& onProgress = nullptr,
                      std::stop_token stop = {}) {
        return copier.scanAndCopy(source, mirror, trash, filterForProfile(profile), onProgress,
                                  stop);
    }
};

TEST_F(PassStagesTest, UnsafePairsAreRefusedBeforeAnythingIsWritten) {
    try {
        copier.scanAndCopy(source, source / "Backup", trash,
                           filterForProfile(BackupProfile::standard), nullptr);
        FAIL() << "accepted a mirror inside its source";
    } catch (const FileOperationFailure& failure) {
        EXPECT_EQ(failure.error().underlying.code, 1101);
    }
    EXPECT_FALSE(fs::exists(source / "Backup"));
    EXPECT_EQ(fileSystem.calls(FaultyFileSystem::Operation::createDirectories), 0);
}

TEST_F(PassStagesTest, TheMarkerStandsWhileThePassRunsAndGoesAfterEveryEnding) {
    writeFile(source / "a.txt", "a");
    writeFile(source / "b.txt", "b");
    json::Value marker;
    pass(BackupProfile::standard, [&](double, const std::string&) {
        marker = json::read(readFile(mirror / checkpointFileName));
    });
    EXPECT_EQ(marker, (json::Value{{"phase", "copying"}, {"startTime", "2026-11-23T23:59:59Z"}}));
    EXPECT_FALSE(fs::exists(mirror / checkpointFileName)) << "after a normal pass";

    std::stop_source stop;
    stop.request_stop();
    pass(BackupProfile::standard, nullptr, stop.get_token());
    EXPECT_FALSE(fs::exists(mirror / checkpointFileName)) << "after a cancelled pass";

    fs::remove(source / "a.txt");
    fs::remove(source / "b.txt");
    EXPECT_EQ(pass().errors.at(0).underlying.code, 1001);
    EXPECT_FALSE(fs::exists(mirror / checkpointFileName)) << "after a rail fired";
}

TEST_F(PassStagesTest, ALeftoverMarkerChangesNothing) {
    writeFile(source / "a.txt", "a");
    writeFile(mirror / checkpointFileName,
              "{\"phase\":\"copying\",\"startTime\":\"2020-01-01T00:00:00Z\"}");
    writeFile(source / checkpointFileName, "a source that is itself a mirror");
    const BackupResult result = pass();
    EXPECT_EQ(result.copiedRelativePaths, std::vector<std::string>{"a.txt"});
    EXPECT_EQ(result.archivedFiles, 0);
    EXPECT_TRUE(result.errors.empty());
    EXPECT_FALSE(fs::exists(mirror / checkpointFileName));
}

TEST_F(PassStagesTest, ExcludedItemsAreNotCopiedAndFoldersOfThemNotMade) {
    writeFile(source / "cut.mov", "film");
    writeFile(source / "Render Files/r1.mov", "render");
    writeFile(source / "cache-only/.DS_Store", "finder");
    writeFile(source / "scratch.tmp", "tmp");
    const BackupResult result = pass(BackupProfile::film);
    EXPECT_EQ(result.copiedRelativePaths, std::vector<std::string>{"cut.mov"});
    EXPECT_FALSE(fs::exists(mirror / "Render Files"));
    EXPECT_FALSE(fs::exists(mirror / "cache-only"));
}

TEST_F(PassStagesTest, APackageIsCopiedWholeAndItsTopDateDecides) {
    writeFile(source / "Song.logicx/Alternatives/000/ProjectData", "v1");
    setModificationDate(source / "Song.logicx", modificationDate(source / "Song.logicx") - 10s);
    BackupResult result = pass(BackupProfile::music);
    EXPECT_EQ(result.copiedRelativePaths, std::vector<std::string>{"Song.logicx"});
    EXPECT_EQ(readFile(mirror / "Song.logicx/Alternatives/000/ProjectData"), "v1");
    EXPECT_EQ(result.recommendedProfile, BackupProfile::music);

    // A change deep inside that leaves the top folder's date alone isn't seen.
    const Date top = modificationDate(source / "Song.logicx");
    writeFile(source / "Song.logicx/Alternatives/000/ProjectData", "v2, longer");
    setModificationDate(source / "Song.logicx", top);
    EXPECT_EQ(pass(BackupProfile::music).copiedFiles, 0);

    setModificationDate(source / "Song.logicx", top + 5s);
    result = pass(BackupProfile::music);
    EXPECT_EQ(result.copiedFiles, 1);
    EXPECT_EQ(readFile(mirror / "Song.logicx/Alternatives/000/ProjectData"), "v2, longer");
}

TEST_F(PassStagesTest, UnderStandardTheSameFolderIsListedFileByFile) {
    writeFile(source / "Song.logicx/Alternatives/000/ProjectData", "v1");
    writeFile(source / "Song.logicx/Resources/x", "r");
    EXPECT_EQ(pass().copiedFiles, 2);
}

TEST_F(PassStagesTest, AFileThatLeftTheSourceIsArchivedUnderTheFirstDayOfAPassOverMidnight) {
    writeFile(source / "keep.txt", "keep");
    writeFile(source / "drop.txt", "drop");
    ASSERT_EQ(pass().copiedFiles, 2);
    fs::remove(source / "drop.txt");

    const BackupResult result = pass(BackupProfile::standard, [&](double, const std::string&) {
        wallClock.set(sys_days{2026y / November / 24} + 1s);  // midnight passes mid-run
    });

    EXPECT_EQ(result.archivedFiles, 1);
    EXPECT_EQ(readFile(trash / "2026-11-23/drop.txt"), "drop");
    EXPECT_FALSE(fs::exists(trash / "2026-11-24"));
    EXPECT_FALSE(fs::exists(mirror / "drop.txt"));
}

TEST_F(PassStagesTest, ALinkThatReplacedAFileLeavesTheOldCopyToTheArchive) {
    writeFile(source / "notes.txt", "notes");
    writeFile(source / "other.txt", "other");
    ASSERT_EQ(pass().copiedFiles, 2);
    fs::remove(source / "notes.txt");
    makeLink(source / "notes.txt", source / "other.txt");
    EXPECT_EQ(pass().archivedFiles, 1);
    EXPECT_EQ(readFile(trash / "2026-11-23/notes.txt"), "notes");
}

TEST_F(PassStagesTest, ACancelledPassArchivesNothing) {
    for (int i = 0; i < 5; ++i)
        writeFile(source / ("f" + std::to_string(i)), "x");
    writeFile(mirror / "orphan.txt", "orphan");
    std::stop_source stop;
    const BackupResult result = pass(
        BackupProfile::standard, [&](double, const std::string&) { stop.request_stop(); },
        stop.get_token());
    EXPECT_EQ(result.copiedFiles, 1);
    EXPECT_EQ(result.archivedFiles, 0);
    EXPECT_TRUE(fs::exists(mirror / "orphan.txt"));
}

TEST_F(PassStagesTest, TheVolumeCheckRunsBeforeTheEleventhItemAndNotAtTen) {
    for (int i = 0; i < 10; ++i)
        writeFile(source / ("f" + std::to_string(i)), "x");
    int removedAt = -1;
    // The source vanishes while the tenth item is reported: with ten items no check follows.
    BackupResult result = pass(BackupProfile::standard, [&](double fraction, const std::string&) {
        if (fraction >= 0.9 && removedAt < 0) {
            removedAt = 9;
            fs::rename(source, root / "moved-away");
        }
    });
    // No check ran in the loop: the item is read through the source's open folder, which moved
    // with it, and only the archive phase noticed.
    std::vector<std::string> operations;
    for (const auto& error : result.errors)
        operations.push_back(error.operation);
    EXPECT_EQ(operations, (std::vector<std::string>{"archive"}));
    EXPECT_EQ(result.errors.back().underlying.code, 1006);
    fs::rename(root / "moved-away", source);

    // With eleven, the check before the eleventh item ends the pass.
    fs::remove_all(root / "drive");
    writeFile(source / "f10", "x");
    int reports = 0;
    result = pass(BackupProfile::standard, [&](double, const std::string&) {
        if (++reports == 10) fs::rename(source, root / "moved-away");
    });
    EXPECT_TRUE(result.abortedDueToVolumeLoss);
    EXPECT_EQ(result.errors.back().operation, "sourceVolumeCheck");
    EXPECT_EQ(result.errors.back().underlying.code, 1006);
    EXPECT_EQ(reports, 10);
    EXPECT_EQ(result.archivedFiles, 0);
}

TEST_F(PassStagesTest, APartlyPresentSourceMeetsTheMassRail) {
    // A drive that comes back with most of its files unreadable looks like a mass deletion.
    for (int i = 0; i < 20; ++i)
        writeFile(source / ("f" + std::to_string(i)), "data");
    ASSERT_EQ(
        copier
            .scanAndCopy(source, mirror, trash, filterForProfile(BackupProfile::standard), nullptr)
            .copiedFiles,
        20);
    for (int i = 2; i < 20; ++i)
        fs::remove(source / ("f" + std::to_string(i)));

    const BackupResult result = copier.scanAndCopy(
        source, mirror, trash, filterForProfile(BackupProfile::standard), nullptr);

    EXPECT_EQ(result.errors.at(0).underlying.code, 1002);
    EXPECT_NE(result.errors[0].underlying.description.find("(18)"), std::string::npos);
    EXPECT_EQ(filesBelow(mirror).size(), 20u);
}

TEST_F(PassStagesTest, OnlyItemsThatAreCopiedPauseForTheUser) {
    struct CountingSleeper final : Sleeper {
        void sleep(double seconds, std::stop_token) const override { pauses.push_back(seconds); }
        mutable std::vector<double> pauses;
    } sleeper;
    const UserActivity away;
    const ActivityGate gate(away, sleeper);
    FileCopier throttled(fileSystem, noEditors, wallClock, clock, gate);
    writeFile(source / "same.txt", "same", sys_days{2026y / January / 1});
    writeFile(mirror / "same.txt", "same", sys_days{2026y / January / 1});
    writeFile(source / "new1.txt", "1");
    writeFile(source / "new2.txt", "2");

    setCurrentBandwidthMode(BandwidthMode::quiet);
    const BackupResult result = throttled.scanAndCopy(
        source, mirror, trash, filterForProfile(BackupProfile::standard), nullptr);
    setCurrentBandwidthMode(BandwidthMode::automatic);

    EXPECT_EQ(result.copiedFiles, 2);
    EXPECT_EQ(sleeper.pauses, (std::vector<double>{0.030, 0.030}));
}

}  // namespace
}  // namespace quillstow
