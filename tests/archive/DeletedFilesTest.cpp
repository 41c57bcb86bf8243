// Files that left the source, found in the dated archive as the pass leaves them, and put back
// where they were without changing the archive.

#include <gtest/gtest.h>

#include "TestTree.hpp"
#include "archive/DeletedFiles.hpp"
#include "archive/FileRestorer.hpp"
#include "copy/DeletionArchive.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "model/Results.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
namespace fs = std::filesystem;

TEST(ArchiveNames, DayFoldersAndTakenNameVariantsAreKnownBack) {
    for (const char* day : {"2026-11-23", "1999-01-31"}) {
        EXPECT_TRUE(isDatedFolderName(day)) << day;
    }
    for (const char* other : {"2026-13-01", "2026-00-10", "2026-11-32", "2026-1-23", "26-11-23",
                              "2026-11-23x", "abcd-ef-gh", "Photos"}) {
        EXPECT_FALSE(isDatedFolderName(other)) << other;
    }
    struct Case {
        const char* archived;
        std::optional<std::string> original;
    };
    const Case cases[] = {
        {"report-0A1B2C3D.txt", "report.txt"}, {"a.tar-0A1B2C3D.gz", "a.tar.gz"},
        {"Makefile-FFFFFFFF", "Makefile"},     {".env-12345678", ".env"},
        {"file.-12345678", "file."},           {"report.txt", std::nullopt},
        {"report-0a1b2c3d.txt", std::nullopt},  // the archive writes upper case
        {"report-0A1B2C3.txt", std::nullopt},  {"report_0A1B2C3D.txt", std::nullopt},
        {"-0A1B2C3D.txt", std::nullopt},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(nameBeforeCollision(c.archived), c.original) << c.archived;
    }
}

class DeletedFilesTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path mirror = root / "drive/Quillstow/Work";
    fs::path trash = root / "drive/.Quillstow-Trash";
    FaultyFileSystem fileSystem;
    Date monday = referenceDate();
    Date tuesday = referenceDate() + 24h;

    // The pass's own archive step: the file, as the mirror holds it now, leaves on `day`.
    void deleteOn(Date day, const std::string& relativePath, const std::string& content) {
        writeFile(mirror / relativePath, content);
        ArchiveMover mover(fileSystem, transfer::MirrorRoot::at(mirror), trash, day);
        BackupResult result;
        ASSERT_EQ(mover.move(relativePath, result), ArchiveMover::Outcome::moved);
    }

    static std::vector<std::string> pathsOf(const std::vector<DeletedFileItem>& items) {
        std::vector<std::string> paths;
        for (const auto& item : items)
            paths.push_back(item.day + " " + item.file.relativePath);
        return paths;
    }
};

TEST(SharedArchive, PairsWithOneDestinationShareItsArchiveHoweverItIsReached) {
    TemporaryFolder root;
    makeFolder(root / "drive");
    makeFolder(root / "other drive");
    makeLink(root / "drive link", root / "drive");
    const auto pairAt = [&](const fs::path& destination) {
        BackupPair pair;
        pair.id = Uuid::random();
        pair.destinationURL = destination;
        return pair;
    };
    const BackupPair work = pairAt(root / "drive");
    struct Case {
        const char* name;
        std::vector<BackupPair> pairs;
        bool shared;
    };
    const Case cases[] = {
        {"alone", {work}, false},
        {"another drive", {work, pairAt(root / "other drive")}, false},
        {"the same drive", {work, pairAt(root / "drive")}, true},
        {"the same drive through a link", {work, pairAt(root / "drive link")}, true},
    };
    for (const Case& c : cases)
        EXPECT_EQ(sharesArchive(work, c.pairs), c.shared) << c.name;
}

TEST_F(DeletedFilesTest, ACopyArchivedTwiceOnOneDayHasItsTimeAndItsOriginalName) {
    deleteOn(monday, "report.txt", "morning");
    deleteOn(monday, "report.txt", "afternoon");
    // A user's own name of the same shape, with nothing beside it, is no variant.
    deleteOn(monday, "notes-0A1B2C3D.txt", "notes");
    const auto archiveBefore = filesBelow(trash);
    ASSERT_EQ(archiveBefore.size(), 3u);

    auto items = scanArchive(trash);
    const std::string day = datedFolderName(monday);
    ASSERT_EQ(pathsOf(items), (std::vector<std::string>{day + " notes-0A1B2C3D.txt",
                                                        day + " report.txt", day + " report.txt"}));
    EXPECT_FALSE(items[0].wasRenamed);
    // The later copy first; it stands under the taken-name variant.
    EXPECT_TRUE(items[1].wasRenamed);
    EXPECT_FALSE(items[2].wasRenamed);
    EXPECT_NE(items[1].archivedPath, day + "/report.txt");
    ASSERT_TRUE(items[1].deletedAt && items[2].deletedAt);
    EXPECT_GE(*items[1].deletedAt, *items[2].deletedAt);

    // Both selected: one name can hold one of them, the newer.
    items[1].file.isSelected = true;
    items[2].file.isSelected = true;
    const auto jobs = recoveryJobs(items, trash);
    ASSERT_EQ(jobs.size(), 1u);
    const fs::path chosen = root / "chosen";
    makeFolder(chosen);
    const auto outcome = restoreFiles(fileSystem, jobs, chosen);
    EXPECT_EQ(outcome.message(), "1 file restored successfully.");
    EXPECT_EQ(filesBelow(chosen),
              (std::map<std::string, std::string>{{"report.txt", "afternoon"}}));
    EXPECT_EQ(filesBelow(trash), archiveBefore);
}

TEST_F(DeletedFilesTest, OnlyDayFoldersCountAndHiddenNamesAndLinksStayOut) {
    deleteOn(monday, "a.txt", "a");
    writeFile(trash / "not-a-day/b.txt", "b");
    writeFile(trash / (datedFolderName(monday) + "/.hidden"), "h");
    makeLink(trash / (datedFolderName(monday) + "/link.txt"), root / "elsewhere");
    EXPECT_EQ(pathsOf(scanArchive(trash)),
              (std::vector<std::string>{datedFolderName(monday) + " a.txt"}));
    EXPECT_TRUE(scanArchive(root / "no-archive").empty());
}

TEST_F(DeletedFilesTest, FilterAndDayRangeChooseTheShownGroups) {
    deleteOn(monday, "Photos/a.jpg", "a");
    deleteOn(monday, "notes.txt", "n");
    deleteOn(tuesday, "Photos/b.jpg", "b");
    const std::string mon = datedFolderName(monday);
    const std::string tue = datedFolderName(tuesday);
    auto items = scanArchive(trash);
    ASSERT_EQ(items.size(), 3u);

    struct Case {
        const char* name;
        const char* searchText;
        DayRange range;
        std::vector<std::size_t> shown;
    };
    const Case cases[] = {
        {"everything", "", {}, {0, 1, 2}},
        {"the last day", "", {tue, tue}, {0}},
        {"up to the first day", "", {"", mon}, {1, 2}},
        {"text and range", "photos", {mon, ""}, {0, 2}},
        {"a range with no files", "", {"1999-01-01", "1999-12-31"}, {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(filteredIndices(items, c.searchText, c.range), c.shown) << c.name;
    }

    const auto groups = groupedByDay(items, filteredIndices(items, "", {}));
    ASSERT_EQ(groups.size(), 2u);
    EXPECT_EQ(groups[0].day, tue);
    EXPECT_EQ(groups[1].indices, (std::vector<std::size_t>{1, 2}));
}

}  // namespace
}  // namespace quillstow
