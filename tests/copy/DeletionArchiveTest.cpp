// Files that left the source move into the dated archive, behind the rails that judge the whole
// phase; no move loses a file.

#include <gtest/gtest.h>

#include "TestTree.hpp"
#include "copy/DeletionArchive.hpp"
#include "copy/FileSystem.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
namespace fs = std::filesystem;

TEST(ArchiveRefusal, AnEmptySourceOrNineTenthsOfAMirrorNeverGo) {
    struct Case {
        const char* name;
        std::size_t sourceItems;
        std::size_t mirrorItems;
        std::size_t orphans;
        int code;          // 0 when the phase may go on
        const char* says;  // part of the refusal's text
    };
    const Case cases[] = {
        {"an empty mirror", 0, 0, 0, 0, ""},
        {"an empty source", 0, 3, 3, 1001, "skipped archival of 3 backup file(s)"},
        {"an empty source, most of it unreadable", 0, 100, 5, 1001, "skipped archival of 100"},
        {"the one item of a mirror", 1, 1, 1, 0, ""},
        {"9 of 10 items", 1, 10, 9, 0, ""},
        {"10 of 10 items", 1, 10, 10, 1002, "(10)"},
        {"9 of 11 items", 1, 11, 9, 0, ""},
        {"10 of 11 items", 1, 11, 10, 1002, "(10)"},
        {"17 of 20 items", 3, 20, 17, 0, ""},
        {"18 of 20 items", 2, 20, 18, 1002, "(18)"},
        {"899 of 1000 items", 101, 1000, 899, 0, ""},
        {"900 of 1000 items", 100, 1000, 900, 1002, "(900)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto refusal = archiveRefusal("/data/Work", c.sourceItems, c.mirrorItems, c.orphans);
        EXPECT_EQ(refusal ? refusal->underlying.code : 0, c.code);
        if (!refusal) continue;
        EXPECT_EQ(refusal->operation, "archive");
        EXPECT_EQ(refusal->url, "/data/Work");
        EXPECT_NE(refusal->underlying.description.find(c.says), std::string::npos);
    }
}

class DeletionArchiveTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        makeFolder(source);
    }

    TemporaryFolder root;
    fs::path source = root / "source";
    fs::path mirror = root / "drive/Quillstow/Work";
    fs::path trash = root / "drive/.Quillstow-Trash";
    fs::path day = trash / "2026-11-23";
    LocalFileSystem fileSystem;
    BackupResult result;

    int archive() {
        return archiveOrphans(fileSystem, source, mirror, trash,
                              filterForProfile(BackupProfile::standard),
                              sys_days{2026y / November / 23} + 14h, result, {});
    }
};

TEST_F(DeletionArchiveTest, MovesOrphansUnderTheDayOfTheStartKeepingTheirPaths) {
    writeFile(source / "kept", "k");
    writeFile(mirror / "kept", "k");
    EXPECT_EQ(archive(), 0);
    EXPECT_FALSE(fs::exists(trash)) << "no trace without orphans";

    writeFile(mirror / "old/deep/gone.txt", "gone");
    writeFile(mirror / "Old.app/Contents/MacOS/old", "binary");
    writeFile(mirror / ".DS_Store", "excluded");
    writeFile(mirror / "node_modules/x/index.js", "excluded");
    writeFile(mirror / ".quillstowtmp-12345678-kept", "leftover");
    writeFile(mirror / ".quillstow-hashes.json", "{}");
    makeLink(mirror / "link", mirror / "kept");

    EXPECT_EQ(archive(), 2);
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(filesBelow(day),
              (std::map<std::string, std::string>{{"Old.app/Contents/MacOS/old", "binary"},
                                                  {"old/deep/gone.txt", "gone"}}));
    EXPECT_EQ(filesBelow(mirror),
              (std::map<std::string, std::string>{{".DS_Store", "excluded"},
                                                  {".quillstow-hashes.json", "{}"},
                                                  {".quillstowtmp-12345678-kept", "leftover"},
                                                  {"kept", "k"},
                                                  {"node_modules/x/index.js", "excluded"}}));
    EXPECT_TRUE(fs::is_symlink(mirror / "link"));
}

TEST_F(DeletionArchiveTest, TwoDeletionsOfOnePathOnOneDayAreBothKept) {
    writeFile(source / "other", "o");
    for (const char* version : {"first", "second", "third"}) {
        writeFile(mirror / "notes.txt", version);
        writeFile(mirror / "Makefile", version);
        writeFile(mirror / "other", "o");
        EXPECT_EQ(archive(), 2);
    }
    std::map<std::string, std::string> archived = filesBelow(day);
    ASSERT_EQ(archived.size(), 6u);
    EXPECT_EQ(archived["notes.txt"], "first");
    EXPECT_EQ(archived["Makefile"], "first");
    for (const auto& [name, content] : archived) {
        if (name == "notes.txt" || name == "Makefile") continue;
        const bool text = name.ends_with(".txt");
        const std::string stem = text ? "notes-" : "Makefile-";
        EXPECT_TRUE(name.starts_with(stem)) << name;
        EXPECT_EQ(name.size(), stem.size() + 8 + (text ? 4 : 0)) << name;
    }
}

}  // namespace
}  // namespace quillstow
