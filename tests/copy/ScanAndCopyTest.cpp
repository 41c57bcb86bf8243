// Whole passes over real folders: what a pass copies, reports and archives, and what it must
// never do to a mirror: write before its checks, destroy a backup that stands in the way of a
// new item, write through a link inside it, record a copy of a file that moved under it as
// current, or skip a name in silence.

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <set>

#include "DeepTree.hpp"
#include "TestTree.hpp"
#include "copy/FakeEditors.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "copy/FileCopier.hpp"
#include "copy/FileTransfer.hpp"
#include "support/FileHandle.hpp"
#include "support/ManualClocks.hpp"
#include "support/Paths.hpp"
#include "support/Retry.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
namespace fs = std::filesystem;

class ScanAndCopyTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path source = root / "source";
    fs::path mirror = root / "drive/Quillstow/Work";
    fs::path trash = root / "drive/.Quillstow-Trash";
    fs::path day = trash / "2026-11-23";
    FaultyFileSystem fileSystem;
    FakeEditors editors;
    ManualWallClock wallClock{sys_days{2026y / November / 23} + 12h};
    ManualClock clock;
    FileCopier copier{fileSystem, editors, wallClock, clock};

    void SetUp() override {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        makeFolder(source);
    }

    BackupResult pass(const FileCopier::ProgressCallback& onProgress = nullptr) {
        return copier.scanAndCopy(source, mirror, trash, ExclusionFilter{}, onProgress);
    }

    // `count` files that stay, so that the mass rail lets a few items go.
    void addBystanders(int count) {
        for (int i = 0; i < count; ++i)
            writeFile(source / "other" / std::to_string(i), "o");
    }

    bool hasReservedNames(const fs::path& folder) {
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            if (transfer::isReservedName(entry.path().filename().native())) return true;
        }
        return false;
    }
};

TEST_F(ScanAndCopyTest, MirrorsTheTreeAndReportsEveryItemInTheOrderOfCopying) {
    writeFile(source / "a.txt", "alpha");
    writeFile(source / "docs/b.txt", "bravo!");
    writeFile(source / "docs/deep/c.txt", "");
    makeFolder(source / "nothing/inside");
    std::vector<std::pair<double, std::string>> progress;
    const auto record = [&](double fraction, const std::string& text) {
        progress.emplace_back(fraction, text);
    };

    const BackupResult result = pass(record);

    EXPECT_EQ(result.copiedFiles, 3);
    EXPECT_EQ(result.bytesTransferred, 11);
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(filesBelow(mirror), filesBelow(source));
    EXPECT_FALSE(fs::exists(mirror / "nothing"));
    ASSERT_EQ(progress.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_DOUBLE_EQ(progress[i].first, double(i) / 3);
        EXPECT_EQ(progress[i].second, fs::path(result.copiedRelativePaths[i]).filename());
    }
    progress.clear();
    EXPECT_EQ(pass(record).copiedFiles, 0);
    EXPECT_EQ(progress.size(), 3u) << "skipped items are reported too";
}

TEST_F(ScanAndCopyTest, UnsafeDestinationsAreRefusedBeforeAnythingIsWritten) {
    writeFile(source / "a.txt", "a");
    makeFolder(root / "real-target");
    makeLink(root / "link-destination", root / "real-target");
    writeFile(root / "plain-file", "x");
    const auto everything = [&] {
        std::set<fs::path> paths;
        for (const auto& entry : fs::recursive_directory_iterator(root.path()))
            paths.insert(entry.path());
        return paths;
    };
    const std::set<fs::path> before = everything();
    struct Case {
        const char* name;
        fs::path destination;
        const char* operation;
        int code;
    };
    const Case cases[] = {
        {"a link", root / "link-destination", "validateDestination", 1003},
        {"inside the source", source / "Backup", "validatePath", 1101},
        {"below a file", root / "plain-file/mirror", "createDirectory", ENOTDIR},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        try {
            copier.scanAndCopy(source, c.destination, trash, ExclusionFilter{}, nullptr);
            ADD_FAILURE() << "accepted";
        } catch (const FileOperationFailure& failure) {
            EXPECT_EQ(failure.error().operation, c.operation);
            EXPECT_EQ(failure.error().underlying.code, c.code);
        }
        EXPECT_EQ(everything(), before);
    }
}

// The check runs on the copy before it is swapped in: the bad copy goes, and the mirror keeps
// the copy it had.
TEST_F(ScanAndCopyTest, ASizeMismatchLeavesNoCopyAndOneVerifySizeError) {
    writeFile(source / "good.txt", "fine");
    writeFile(source / "bad.txt", "will grow in the copy");
    writeFile(mirror / "bad.txt", "an old copy");
    fileSystem.afterCopy = [](const fs::path& from, const fs::path& to) {
        if (from.filename() == "bad.txt") writeFile(to, "will grow in the copy, and more");
    };

    const BackupResult result = pass();

    EXPECT_EQ(result.copiedRelativePaths, (std::vector<std::string>{"good.txt"}));
    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0].operation, "verifySize");
    EXPECT_EQ(result.errors[0].url, mirror / "bad.txt");
    EXPECT_EQ(result.errors[0].underlying.code, int(ErrorCode::sizeMismatch));
    EXPECT_EQ(readFile(mirror / "bad.txt"), "an old copy");
    EXPECT_FALSE(hasReservedNames(mirror));

    fileSystem.afterCopy = nullptr;
    EXPECT_EQ(pass().copiedRelativePaths, (std::vector<std::string>{"bad.txt"}));
}

// Held by its path, or by its file under another name (read at the copy: the listing keeps no
// inode).
TEST_F(ScanAndCopyTest, AFileOpenInAnEditorWaitsAndCountsForEveryRunningEditor) {
    writeFile(source / "edit.blend", "being saved");
    writeFile(source / "current.blend", "unchanged", referenceDate());
    writeFile(mirror / "current.blend", "unchanged", referenceDate());
    writeFile(source / "free.txt", "free");
    writeFile(root / "elsewhere.kra", "held under this name");
    fs::create_hard_link(root / "elsewhere.kra", source / "linked.kra");
    const auto held = files::readInfo(root / "elsewhere.kra");
    ASSERT_TRUE(held);
    EditorSnapshot running;
    running.names = {"Blender", "Krita"};
    running.openPaths = {paths::resolved(source / "edit.blend").native(),
                         paths::resolved(source / "current.blend").native()};
    running.openFiles = {{held->device, held->inode}};
    editors.set(running);

    const BackupResult result = pass();

    EXPECT_EQ(result.copiedRelativePaths, (std::vector<std::string>{"free.txt"}));
    EXPECT_EQ(result.filesDeferredByEditor,
              (std::map<std::string, int>{{"Blender", 2}, {"Krita", 2}}));
    EXPECT_TRUE(result.errors.empty());
    EXPECT_FALSE(fs::exists(mirror / "edit.blend"));
    EXPECT_FALSE(fs::exists(mirror / "linked.kra"));
}

TEST_F(ScanAndCopyTest, AFileThatLeftTheSourceIsArchivedUnderTheFirstDayOfAPassOverMidnight) {
    writeFile(source / "keep.txt", "keep");
    writeFile(mirror / "drop.txt", "drop");
    wallClock.set(sys_days{2026y / November / 23} + 23h + 59min + 59s);

    const BackupResult result = pass([&](double, const std::string&) {
        wallClock.set(sys_days{2026y / November / 24} + 1s);  // midnight passes mid-run
    });

    EXPECT_EQ(result.archivedFiles, 1);
    EXPECT_EQ(readFile(day / "drop.txt"), "drop");
    EXPECT_FALSE(fs::exists(trash / "2026-11-24"));
    EXPECT_FALSE(fs::exists(mirror / "drop.txt"));
}

TEST_F(ScanAndCopyTest, ItemsOfAnotherKindInTheWayGoToTheArchiveBeforeTheNewItemGoesIn) {
    const auto folderOfPhotos = [](const fs::path& at) {
        for (int i = 0; i < 3; ++i)
            writeFile(at / ("p" + std::to_string(i) + ".jpg"), "photo");
    };
    const auto aFile = [](const fs::path& at) { writeFile(at, "now a file"); };
    struct Case {
        const char* name;
        std::function<void(const fs::path&)> before;  // a tree at "photos" in the source
        std::function<void(const fs::path&)> after;
        std::map<std::string, std::string> archived;  // below the day folder
    };
    const Case cases[] = {
        {"a folder became a file",
         folderOfPhotos,
         aFile,
         {{"photos/p0.jpg", "photo"}, {"photos/p1.jpg", "photo"}, {"photos/p2.jpg", "photo"}}},
        {"a file became a folder", aFile, folderOfPhotos, {{"photos", "now a file"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove_all(root / "drive");
        fs::remove_all(source);
        addBystanders(40);
        c.before(source / "photos");
        ASSERT_TRUE(pass().errors.empty());
        fs::remove_all(source / "photos");
        c.after(source / "photos");

        const BackupResult result = pass();

        EXPECT_TRUE(result.errors.empty());
        EXPECT_EQ(filesBelow(day), c.archived);
        EXPECT_EQ(result.archivedFiles, int(c.archived.size()));
        EXPECT_EQ(filesBelow(mirror), filesBelow(source));
    }
}

TEST_F(ScanAndCopyTest, WhenTheRailsRefuseTheOldItemStaysAndTheNewOneWaits) {
    for (int i = 0; i < 200; ++i)
        writeFile(source / "photos" / (std::to_string(i) + ".jpg"), "photo");
    ASSERT_EQ(pass().copiedFiles, 200);
    fs::remove_all(source / "photos");
    writeFile(source / "photos", "a file now");

    const BackupResult result = pass();

    EXPECT_EQ(filesBelow(mirror).size(), 200u);
    EXPECT_FALSE(fs::exists(trash));
    EXPECT_EQ(result.copiedFiles, 0);
    EXPECT_EQ(result.archivedFiles, 0);
    ASSERT_EQ(result.errors.size(), 2u);
    // The item that waits, with the rail's reason, then the rail itself.
    EXPECT_EQ(result.errors[0].operation, "copy");
    EXPECT_EQ(result.errors[0].url, mirror / "photos");
    EXPECT_EQ(result.errors[0].underlying.code, 1002);
    EXPECT_EQ(result.errors[1].underlying.code, 1002);
}

TEST_F(ScanAndCopyTest, ALinkInsideTheMirrorIsNeverFollowedEvenWhenMadeDuringThePass) {
    addBystanders(20);
    writeFile(source / "docs/a.txt", "old a");
    writeFile(source / "docs/gone.txt", "gone");
    ASSERT_TRUE(pass().errors.empty());
    writeFile(source / "docs/a.txt", "new a, longer");
    writeFile(source / "docs/b.txt", "b");
    fs::remove(source / "docs/gone.txt");
    const std::map<std::string, std::string> before = filesBelow(mirror / "docs");

    // After the listing, the mirror's folder moves away and a link to it takes its place.
    bool swapped = false;
    const BackupResult result = pass([&](double, const std::string&) {
        if (swapped) return;
        swapped = true;
        fs::rename(mirror / "docs", root / "elsewhere");
        makeLink(mirror / "docs", root / "elsewhere");
    });

    EXPECT_EQ(filesBelow(root / "elsewhere"), before);
    EXPECT_EQ(result.archivedFiles, 0);
    ASSERT_EQ(result.errors.size(), 3u);  // two copies and the archive of gone.txt
    for (const auto& error : result.errors) {
        EXPECT_TRUE(errors::isPosix(error.underlying, ELOOP) ||
                    errors::isPosix(error.underlying, ENOTDIR))
            << error.url << ": " << error.underlying.description;
    }

    // The next pass finds the link where a folder belongs: archived, and the folder made anew.
    const BackupResult next = pass();
    EXPECT_TRUE(next.errors.empty());
    EXPECT_EQ(filesBelow(root / "elsewhere"), before);
    EXPECT_TRUE(fs::is_symlink(day / "docs"));
    EXPECT_EQ(filesBelow(mirror), filesBelow(source));
}

TEST_F(ScanAndCopyTest, NamesOfEveryLengthAreBackedUp) {
    const std::string longest(255, 'n');
    const std::string longestInUtf8 = std::string(250, 'n') + "\xC3\xA9\xC3\xA9";  // 254 bytes
    for (const auto& name : {longest, longestInUtf8, std::string("a")})
        writeFile(source / name, name);

    const BackupResult result = pass();

    EXPECT_TRUE(result.errors.empty()) << result.errors.front().underlying.description;
    EXPECT_EQ(filesBelow(mirror), filesBelow(source));
    // Two long names that share their head get two temporary names that tell them apart.
    EXPECT_NE(transfer::temporaryName(longest).substr(23),
              transfer::temporaryName(std::string(254, 'n') + "m").substr(23));
    EXPECT_LE(partialName(std::int64_t(1) << 40, longest).size(), 255u);
}

TEST_F(ScanAndCopyTest, AFolderDeeperThanAPathCanNameIsBackedUpAndArchivedLikeAnyOther) {
    const std::string name(200, 'd');
    const std::string deep = makeDeepFile(source, name, 25, "deep.txt", "deep");
    makeDeepFile(source, name, 25, "gone.txt", "to be archived");
    ASSERT_GT(deep.size(), std::size_t(PATH_MAX));
    const std::string folder = deep.substr(0, deep.rfind('/'));
    // A path to a file of the deep folder below `top`, through the folder opened step by step.
    std::optional<FileHandle> opened;
    const auto inDeepFolder = [&](const fs::path& top, const char* file) {
        opened.emplace(handles::openFolderBelow(handles::openFolder(top).get(), folder));
        return "/proc/self/fd/" + std::to_string(opened->get()) + "/" + file;
    };
    addBystanders(20);
    EXPECT_EQ(pass().copiedFiles, 22);
    EXPECT_EQ(readFile(inDeepFolder(mirror, "gone.txt")), "to be archived");

    // A change is seen, and a file gone from the source goes to the archive at its depth.
    makeDeepFile(source, name, 25, "deep.txt", "deeper now");
    fs::remove(inDeepFolder(source, "gone.txt"));
    const BackupResult result = pass();
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(result.copiedRelativePaths, std::vector<std::string>{deep});
    EXPECT_EQ(result.archivedFiles, 1);
    EXPECT_EQ(readFile(inDeepFolder(mirror, "deep.txt")), "deeper now");
    EXPECT_FALSE(fs::exists(inDeepFolder(mirror, "gone.txt")));
    EXPECT_EQ(readFile(inDeepFolder(day, "gone.txt")), "to be archived");
    EXPECT_EQ(copier.differingSizes(source, mirror, {deep}), std::vector<std::string>{});
    opened.reset();
    removeTree(AT_FDCWD, source);
    removeTree(AT_FDCWD, root / "drive");
}

TEST_F(ScanAndCopyTest, AFileThatChangesWhileItIsCopiedIsNeverRecordedAsCurrent) {
    const fs::path file = source / "render.mov";
    const std::size_t size = std::size_t(streamThreshold) + 3 * chunkSize;
    struct Case {
        const char* name;
        std::function<void()> midCopy;
    };
    const Case cases[] = {
        {"written in place",
         [&] {
             std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
             stream << "changed";
         }},
        {"replaced by a rename",
         [&] {
             writeFile(source / "new.tmp", std::string(size, 'b'));
             fs::rename(source / "new.tmp", file);
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        writeFile(file, std::string(size, 'a'), referenceDate());
        writeFile(mirror / "render.mov", "old copy", referenceDate() - 1h);
        bool changed = false;
        fileSystem.afterChunk = [&](std::int64_t reached) {
            if (!changed && reached >= 2 * std::int64_t(chunkSize)) {
                changed = true;
                c.midCopy();
            }
        };
        const BackupResult result = pass();
        fileSystem.afterChunk = nullptr;

        EXPECT_EQ(result.copiedFiles, 0);
        ASSERT_EQ(result.errors.size(), 1u);
        EXPECT_EQ(result.errors[0].underlying, transfer::sourceChangedError());
        EXPECT_EQ(readFile(mirror / "render.mov"), "old copy");
        EXPECT_FALSE(hasReservedNames(mirror));
        // The next pass copies what the source holds now.
        EXPECT_EQ(pass().copiedFiles, 1);
        EXPECT_TRUE(readFile(mirror / "render.mov") == readFile(file));
    }
}

}  // namespace
}  // namespace quillstow
