// What the restore window lists from a backup, in which order, what its filter shows, and the
// paths it will never restore to. How "Select All" acts is the window's own test.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "TestTree.hpp"
#include "archive/RestoreListing.hpp"
#include "archive/RestoreTexts.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

TEST(SafeRelativePath, RefusesWhatIsNotStrictlyBelowTheRoot) {
    struct Case {
        const char* name;
        const char* filePath;
        const char* rootPath;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {"file below", "/b/Work/a/x.txt", "/b/Work", "a/x.txt"},
        {"root given with its slash", "/b/Work/x.txt", "/b/Work/", "x.txt"},
        {"the root itself", "/b/Work/", "/b/Work", std::nullopt},
        {"a sibling sharing the prefix", "/b/Workshop/x.txt", "/b/Work", std::nullopt},
        {"outside", "/etc/passwd", "/b/Work", std::nullopt},
        {"double slash", "/b/Work//x.txt", "/b/Work", std::nullopt},
        {"climbs in the middle", "/b/Work/a/../../x.txt", "/b/Work", std::nullopt},
        {"climbs at the start", "/b/Work/../x.txt", "/b/Work", std::nullopt},
        {"a name starting with two dots", "/b/Work/..data", "/b/Work", std::nullopt},
        {"ends climbing", "/b/Work/a/..", "/b/Work", std::nullopt},
        {"two dots inside a deeper name", "/b/Work/a/..data", "/b/Work", "a/..data"},
        {"one leading dot", "/b/Work/.data", "/b/Work", ".data"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(safeRelativePath(c.filePath, c.rootPath), c.expected) << c.name;
    }
}

std::vector<std::string> relativePaths(const std::vector<RestoreFileItem>& items) {
    std::vector<std::string> paths;
    for (const auto& item : items)
        paths.push_back(item.relativePath);
    return paths;
}

TEST(BackupScan, ListsRegularFilesInFinderOrderAndNothingElse) {
    TemporaryFolder root;
    const fs::path backup = root / "drive/Quillstow/Work";
    writeFile(backup / "track10.wav", "10");
    writeFile(backup / "track2.wav", "2");
    writeFile(backup / "Notes.txt", "n");
    writeFile(backup / "a/notes.txt", "nn");
    writeFile(backup / ".data", "hidden");
    writeFile(backup / "..data", "two dots");
    writeFile(backup / ".quillstow-hashes.json", "{}");
    writeFile(backup / ".hidden/inside.txt", "in a hidden folder");
    writeFile(root / "outside.txt", "outside");
    makeLink(backup / "link.txt", root / "outside.txt");
    makeLink(backup / "linkedFolder", root / "drive");
    ASSERT_EQ(::mkfifo((backup / "pipe").c_str(), 0600), 0);

    // The backup reached through a link of its own is the same backup.
    makeLink(root / "alias", backup);
    const auto items = scanBackup(root / "alias");

    EXPECT_EQ(relativePaths(items),
              (std::vector<std::string>{"a/notes.txt", "Notes.txt", "track2.wav", "track10.wav"}));
    EXPECT_EQ(items[1].name, "Notes.txt");
    EXPECT_EQ(items[1].fileSize, 1);
    EXPECT_EQ(items[0].fileSize, 2);
    EXPECT_NE(items[0].id, items[1].id);
}

TEST(BackupScan, AMissingBackupOrAStopBeforeTheEndGivesNoList) {
    TemporaryFolder root;
    EXPECT_TRUE(scanBackup(root / "not-there").empty());
    writeFile(root / "a.txt", "a");
    std::stop_source stop;
    stop.request_stop();
    EXPECT_TRUE(scanBackup(root.path(), stop.get_token()).empty());
}

TEST(BackupScan, TenThousandFilesComeInNumericOrder) {
    // In memory where it can: the order is what is tested, and a busy disk makes ten thousand
    // creations slow.
    TemporaryFolder root(fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::path());
    constexpr int count = 10000;
    makeFolder(root / "Odd");
    makeFolder(root / "even");
    for (int i = count; i >= 1; --i) {
        const std::string folder = i % 2 ? "Odd/" : "even/";
        const fs::path file = root / (folder + "file" + std::to_string(i));
        const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        ASSERT_GE(fd, 0) << file;
        ::close(fd);
    }
    const auto started = std::chrono::steady_clock::now();
    const auto items = scanBackup(root.path());
    const auto took = std::chrono::steady_clock::now() - started;

    ASSERT_EQ(items.size(), std::size_t(count));
    // "even" before "Odd": case is ignored; within each, file2 before file10.
    for (int i = 0; i < count; ++i) {
        const int number = i < count / 2 ? 2 * (i + 1) : 2 * (i - count / 2) + 1;
        const std::string folder = i < count / 2 ? "even/" : "Odd/";
        ASSERT_EQ(items[i].relativePath, folder + "file" + std::to_string(number)) << i;
    }
    std::cout << "Scanned and sorted " << count << " files in "
              << std::chrono::duration<double>(took).count() << " s\n";
}

std::vector<RestoreFileItem> listOf(std::initializer_list<const char*> relativePaths) {
    std::vector<RestoreFileItem> items;
    for (const char* path : relativePaths) {
        const std::string text(path);
        items.push_back({Uuid::random(), text, text.substr(text.rfind('/') + 1), 1, false, false});
    }
    return items;
}

TEST(RestoreFilter, MatchesNameOrPathIgnoringCase) {
    const auto files =
        listOf({"Photos/2021/a.jpg", "track2.wav", "Docs/PHOTO-list.txt", "Été/Cafe\u0301.txt"});
    struct Case {
        const char* searchText;
        std::vector<std::size_t> shown;
    };
    const Case cases[] = {
        {"", {0, 1, 2, 3}},
        {"photo", {0, 2}},  // the first through its path, not its name
        {"TRACK", {1}},
        {"2021/a", {0}},
        {"nothing", {}},
        // Letters beyond ASCII, and an accent typed joined to its letter.
        {"été", {3}},
        {"CAFÉ", {3}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(filteredIndices(files, c.searchText), c.shown) << c.searchText;
    }
}

TEST(RestoreTexts, TheCounterKeepsItsPluralAndEachKindHasItsIcon) {
    // The counter of shown files keeps "files" for one, as the window always did.
    EXPECT_EQ(restoretext::fileCounter(1), "1 files");
    struct Case {
        const char* name;
        const char* icon;
    };
    const Case cases[] = {
        {"IMG_1.JPG", "photo"},     {"clip.mkv", "film"},
        {"song.m4a", "music.note"}, {"paper.pdf", "doc.richtext"},
        {"a.tar.gz", "doc.zipper"}, {"main.swift", "chevron.left.forwardslash.chevron.right"},
        {"notes.txt", "doc"},       {".json", "doc"},
        {"Makefile", "doc"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(restoretext::iconForFile(c.name), c.icon) << c.name;
    }
}

}  // namespace
}  // namespace quillstow
