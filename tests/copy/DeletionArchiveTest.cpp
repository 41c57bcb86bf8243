// Files that left the source move into the dated archive, behind the three rails.

#include <gtest/gtest.h>

#include <cstdlib>

#include "FaultyFileSystem.hpp"
#include "TestTree.hpp"
#include "copy/DeletionArchive.hpp"
#include "copy/FileCopier.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
namespace fs = std::filesystem;

// Sets the local time zone for the length of a test.
class TimeZone {
  public:
    explicit TimeZone(const char* zone) {
        if (const char* current = std::getenv("TZ")) saved_ = current;
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    ~TimeZone() {
        if (saved_) {
            ::setenv("TZ", saved_->c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
        ::tzset();
    }

  private:
    std::optional<std::string> saved_;
};

class DeletionArchiveTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path source = root / "source";
    fs::path mirror = root / "drive/Quillstow/Work";
    fs::path trash = root / "drive/.Quillstow-Trash";
    FaultyFileSystem fileSystem;
    TimeZone zone{"UTC"};
    Date start = sys_days{2026y / November / 23} + 14h;
    BackupResult result;

    // A mirror of `count` items and a source that still holds the first `kept` of them.
    std::vector<ListedItem> mirrorWithKept(int count, int kept) {
        std::vector<ListedItem> sourceItems;
        makeFolder(source);
        for (int i = 0; i < count; ++i) {
            const std::string name = "item" + std::to_string(i);
            writeFile(mirror / name, name);
            if (i < kept) {
                writeFile(source / name, name);
                sourceItems.push_back({name, {}});
            }
        }
        return sourceItems;
    }

    int archive(const std::vector<ListedItem>& sourceItems, std::stop_token stop = {}) {
        return archiveOrphans(fileSystem, source, mirror, trash,
                              filterForProfile(BackupProfile::standard), start, sourceItems, result,
                              stop);
    }
};

TEST_F(DeletionArchiveTest, MovesOrphansUnderTheDayOfTheStartKeepingTheirPaths) {
    writeFile(source / "kept.txt", "kept");
    writeFile(mirror / "kept.txt", "kept");
    writeFile(mirror / "old/deep/gone.txt", "gone");
    const int archived = archive({{"kept.txt", {}}});
    EXPECT_EQ(archived, 1);
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(readFile(trash / "2026-11-23/old/deep/gone.txt"), "gone");
    EXPECT_FALSE(fs::exists(mirror / "old/deep/gone.txt"));
    EXPECT_EQ(readFile(mirror / "kept.txt"), "kept");
}

TEST_F(DeletionArchiveTest, LeavesNoTraceWithoutOrphans) {
    writeFile(source / "a", "a");
    writeFile(mirror / "a", "a");
    EXPECT_EQ(archive({{"a", {}}}), 0);
    EXPECT_FALSE(fs::exists(trash));
}

TEST_F(DeletionArchiveTest, TheMassRailHoldsAtItsThresholdAndNotBelow) {
    struct Row {
        int mirrorItems;
        int threshold;
    };
    for (const Row row : {Row{1, 10}, Row{9, 10}, Row{10, 10}, Row{11, 10}, Row{12, 10},
                          Row{20, 18}, Row{100, 90}, Row{1000, 900}}) {
        EXPECT_EQ(massRailThreshold(std::size_t(row.mirrorItems)), row.threshold)
            << row.mirrorItems;
    }
    for (const Row row :
         {Row{10, 10}, Row{11, 10}, Row{12, 10}, Row{20, 18}, Row{100, 90}, Row{1000, 900}}) {
        for (const int orphans : {row.threshold - 1, row.threshold}) {
            if (orphans >= row.mirrorItems) continue;  // the source must keep one item
            SCOPED_TRACE(std::to_string(row.mirrorItems) + " items, " + std::to_string(orphans) +
                         " orphans");
            fs::remove_all(root.path() / "drive");
            fs::remove_all(source);
            result = {};
            const int archived =
                archive(mirrorWithKept(row.mirrorItems, row.mirrorItems - orphans));
            if (orphans < row.threshold) {
                EXPECT_EQ(archived, orphans);
                EXPECT_TRUE(result.errors.empty());
            } else {
                EXPECT_EQ(archived, 0);
                ASSERT_EQ(result.errors.size(), 1u);
                EXPECT_EQ(result.errors[0].operation, "archive");
                EXPECT_EQ(result.errors[0].url, source);
                EXPECT_EQ(result.errors[0].underlying,
                          errors::quillstow(
                              1002, "Unusually large number of files (" + std::to_string(orphans) +
                                        ") would be archived — skipping archival as a "
                                        "safety measure."));
                EXPECT_FALSE(fs::exists(trash));
                EXPECT_FALSE(result.abortedDueToVolumeLoss);
            }
        }
    }
}

TEST_F(DeletionArchiveTest, TenItemsAllGoneFromASourceWithOthersFireTheRailAndNineDoNot) {
    std::vector<ListedItem> sourceItems = mirrorWithKept(10, 0);
    writeFile(source / "new.txt", "new");
    sourceItems.push_back({"new.txt", {}});
    EXPECT_EQ(archive(sourceItems), 0);
    EXPECT_EQ(result.errors.at(0).underlying.code, 1002);

    fs::remove_all(root.path() / "drive");
    result = {};
    sourceItems = mirrorWithKept(9, 0);
    sourceItems.push_back({"new.txt", {}});
    EXPECT_EQ(archive(sourceItems), 9);
}

TEST_F(DeletionArchiveTest, AnEmptySourceNeverEmptiesAMirror) {
    mirrorWithKept(3, 0);
    EXPECT_EQ(archive({}), 0);
    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0].underlying,
              errors::quillstow(1001,
                                "Source appears empty or unreadable — skipped archival of 3 "
                                "backup file(s) to protect existing backups."));
    EXPECT_FALSE(result.abortedDueToVolumeLoss);
    EXPECT_EQ(filesBelow(mirror).size(), 3u);

    result = {};
    fs::remove_all(mirror);
    makeFolder(mirror);
    EXPECT_EQ(archive({}), 0);
    EXPECT_TRUE(result.errors.empty()) << "an empty mirror with an empty source is fine";
}

TEST_F(DeletionArchiveTest, AMissingSourceStopsTheArchivalAsAVolumeLoss) {
    writeFile(mirror / "a", "a");
    EXPECT_EQ(archive({{"b", {}}}), 0);
    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0].underlying.code, 1006);
    EXPECT_TRUE(result.abortedDueToVolumeLoss);
    EXPECT_TRUE(fs::exists(mirror / "a"));
}

TEST_F(DeletionArchiveTest, TwoDeletionsOfOnePathOnOneDayAreBothKept) {
    makeFolder(source);
    writeFile(source / "other", "o");
    for (const char* version : {"first", "second", "third"}) {
        writeFile(mirror / "notes.txt", version);
        writeFile(mirror / "Makefile", version);
        writeFile(mirror / "other", "o");
        EXPECT_EQ(archive({{"other", {}}}), 2);
    }
    std::map<std::string, std::string> day = filesBelow(trash / "2026-11-23");
    ASSERT_EQ(day.size(), 6u);
    EXPECT_EQ(day["notes.txt"], "first");
    EXPECT_EQ(day["Makefile"], "first");
    for (const auto& [name, content] : day) {
        if (name == "notes.txt" || name == "Makefile") continue;
        const bool text = name.ends_with(".txt");
        const std::string stem = text ? "notes-" : "Makefile-";
        EXPECT_TRUE(name.starts_with(stem)) << name;
        EXPECT_EQ(name.size(), stem.size() + 8 + (text ? 4 : 0)) << name;
    }
}

TEST_F(DeletionArchiveTest, APackageIsOneItemAndExcludedFilesAreNoOrphans) {
    writeFile(source / "kept", "k");
    writeFile(mirror / "kept", "k");
    writeFile(mirror / "Old.app/Contents/Info.plist", "plist");
    writeFile(mirror / "Old.app/Contents/MacOS/old", "binary");
    writeFile(mirror / ".DS_Store", "excluded");
    writeFile(mirror / "node_modules/x/index.js", "excluded");
    writeFile(mirror / ".quillstowtmp-12345678-kept", "leftover");
    writeFile(mirror / ".quillstow-hashes.json", "{}");
    makeLink(mirror / "link", mirror / "kept");

    EXPECT_EQ(listDestination(mirror, filterForProfile(BackupProfile::standard)).size(), 2u);
    EXPECT_EQ(archive({{"kept", {}}}), 1);
    EXPECT_EQ(readFile(trash / "2026-11-23/Old.app/Contents/MacOS/old"), "binary");
    EXPECT_TRUE(fs::exists(mirror / ".DS_Store"));
    EXPECT_TRUE(fs::exists(mirror / "node_modules/x/index.js"));
    EXPECT_TRUE(fs::exists(mirror / ".quillstowtmp-12345678-kept"));
    EXPECT_TRUE(fs::exists(mirror / ".quillstow-hashes.json"));
    EXPECT_TRUE(fs::is_symlink(mirror / "link"));
}

TEST_F(DeletionArchiveTest, CancellationStopsBeforeTheNextItemAndKeepsWhatMoved) {
    std::vector<ListedItem> kept = mirrorWithKept(4, 2);
    std::stop_source stop;
    int moves = 0;
    // The first move asks to stop; nothing after it moves.
    struct StopAfterFirstMove final : ForwardingFileSystem {
        std::stop_source& stop;
        int& moves;
        StopAfterFirstMove(FileSystem& target, std::stop_source& s, int& m)
            : ForwardingFileSystem(target), stop(s), moves(m) {}
        void moveItem(const ItemRef& from, const ItemRef& to) override {
            ForwardingFileSystem::moveItem(from, to);
            ++moves;
            stop.request_stop();
        }
    } stopping(fileSystem, stop, moves);
    const int archived =
        archiveOrphans(stopping, source, mirror, trash, filterForProfile(BackupProfile::standard),
                       start, kept, result, stop.get_token());
    EXPECT_EQ(archived, 1);
    EXPECT_EQ(moves, 1);
}

TEST(DatedFolderName, UsesTheLocalDay) {
    const Date lateEvening = sys_days{2026y / November / 23} + 23h + 30min;  // UTC
    {
        TimeZone zone("UTC");
        EXPECT_EQ(datedFolderName(lateEvening), "2026-11-23");
    }
    {
        TimeZone zone("Asia/Tokyo");
        EXPECT_EQ(datedFolderName(lateEvening), "2026-11-24");
    }
    {
        TimeZone zone("America/New_York");
        EXPECT_EQ(datedFolderName(sys_days{2026y / January / 1} + 3h), "2025-12-31");
    }
}

TEST(TrashSize, AddsVisibleFilesAndAnswersNothingWithoutAFolder) {
    TemporaryFolder root;
    EXPECT_FALSE(trashSize(root / ".Quillstow-Trash"));
    writeFile(root / ".Quillstow-Trash/2026-11-23/a.txt", std::string(1000, 'a'));
    writeFile(root / ".Quillstow-Trash/2026-11-24/deep/b.txt", std::string(24, 'b'));
    writeFile(root / ".Quillstow-Trash/2026-11-24/.hidden", std::string(5000, 'h'));
    writeFile(root / ".Quillstow-Trash/.hidden-folder/c.txt", std::string(5000, 'c'));
    EXPECT_EQ(trashSize(root / ".Quillstow-Trash"), 1024);
}

}  // namespace
}  // namespace quillstow
