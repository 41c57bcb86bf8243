// What a whole pass over real folders must never do to a mirror: write before its checks, swap
// in a copy of the wrong size or one whose file moved under it, destroy a backup that stands in
// the way of a new item, write through a link inside it, or skip a name or a depth in silence.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <functional>
#include <set>

#include "DeepTree.hpp"
#include "TestTree.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "copy/FileCopier.hpp"
#include "copy/FileTransfer.hpp"
#include "support/FileHandle.hpp"
#include "support/ManualClocks.hpp"
#include "support/Paths.hpp"
#include "support/Retry.hpp"

namespace quillstow {

// The path of a source file to overwrite right after the next in-kernel copy returns: a change
// that lands while a small file is copied in one call.
std::atomic<const char*> changeAfterKernelCopy = nullptr;

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
    RunningEditors noEditors;
    ManualWallClock wallClock{sys_days{2026y / November / 23} + 12h};
    ManualClock clock;
    FileCopier copier{fileSystem, noEditors, wallClock, clock};

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

// The copy and the archive of a run read one plan: each tree is walked once, whatever the run
// finds to do, and a run with nothing to do copies nothing.
TEST_F(ScanAndCopyTest, ARunWalksEachTreeOnce) {
    for (int i = 0; i < 30; ++i)
        writeFile(source / ("d" + std::to_string(i % 3)) / ("f" + std::to_string(i)), "new");
    writeFile(mirror / "gone.txt", "gone");
    const std::vector<fs::path> eachOnce{paths::resolved(mirror), paths::resolved(source)};
    for (const int expectedCopies : {30, 0}) {
        const int copiesBefore = fileSystem.calls(FaultyFileSystem::Operation::copyItem);
        const std::size_t walksBefore = fileSystem.walkedRoots().size();
        EXPECT_EQ(pass().copiedFiles, expectedCopies);
        std::vector<fs::path> walked(fileSystem.walkedRoots().begin() + long(walksBefore),
                                     fileSystem.walkedRoots().end());
        std::sort(walked.begin(), walked.end());
        EXPECT_EQ(walked, eachOnce);
        EXPECT_EQ(fileSystem.calls(FaultyFileSystem::Operation::copyItem) - copiesBefore,
                  expectedCopies);
    }
    EXPECT_TRUE(fs::exists(day / "gone.txt"));
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
    const std::tuple<fs::path, const char*, int> cases[] = {
        {root / "link-destination", "validateDestination", 1003},
        {source / "Backup", "validatePath", 1101},
        {root / "plain-file/mirror", "createDirectory", ENOTDIR},
    };
    for (const auto& [destination, operation, code] : cases) {
        SCOPED_TRACE(destination);
        try {
            copier.scanAndCopy(source, destination, trash, ExclusionFilter{}, nullptr);
            ADD_FAILURE() << "accepted";
        } catch (const FileOperationFailure& failure) {
            EXPECT_EQ(failure.error().operation, operation);
            EXPECT_EQ(failure.error().underlying.code, code);
        }
        EXPECT_EQ(everything(), before);
    }
}

// The check runs on the copy before it is swapped in: the bad copy, longer or cut short, goes,
// and the mirror keeps the copy it had.
TEST_F(ScanAndCopyTest, ASizeMismatchLeavesNoCopyAndOneVerifySizeError) {
    for (const std::string tampered : {"will grow in the copy, and more", "will grow"}) {
        SCOPED_TRACE(tampered);
        fs::remove_all(root / "drive");
        writeFile(source / "good.txt", "fine");
        writeFile(source / "bad.txt", "will grow in the copy");
        writeFile(mirror / "bad.txt", "an old copy");
        fileSystem.afterCopy = [&](const fs::path& from, const fs::path& to) {
            if (from.filename() == "bad.txt") writeFile(to, tampered);
        };

        const BackupResult result = pass();

        EXPECT_EQ(result.copiedRelativePaths, (std::vector<std::string>{"good.txt"}));
        ASSERT_EQ(result.errors.size(), 1u);
        EXPECT_EQ(result.errors[0].operation, "verifySize");
        EXPECT_EQ(result.errors[0].url, mirror / "bad.txt");
        EXPECT_EQ(result.errors[0].underlying.code, int(ErrorCode::sizeMismatch));
        EXPECT_EQ(readFile(mirror / "bad.txt"), "an old copy");
        EXPECT_FALSE(hasReservedNames(mirror));
    }
    fileSystem.afterCopy = nullptr;
    EXPECT_EQ(pass().copiedRelativePaths, (std::vector<std::string>{"bad.txt"}));
}

// A folder that became a file, or a file that became a folder, since the last pass.
TEST_F(ScanAndCopyTest, ItemsOfAnotherKindInTheWayGoToTheArchiveBeforeTheNewItemGoesIn) {
    const auto folder = [](const fs::path& at) { writeFile(at / "p.jpg", "photo"); };
    const auto file = [](const fs::path& at) { writeFile(at, "a file"); };
    using Make = std::function<void(const fs::path&)>;
    const std::tuple<Make, Make, std::map<std::string, std::string>> cases[] = {
        {folder, file, {{"photos/p.jpg", "photo"}}},
        {file, folder, {{"photos", "a file"}}},
    };
    for (const auto& [before, after, archived] : cases) {
        SCOPED_TRACE(archived.begin()->first);
        fs::remove_all(root / "drive");
        fs::remove_all(source);
        addBystanders(20);
        before(source / "photos");
        ASSERT_TRUE(pass().errors.empty());
        fs::remove_all(source / "photos");
        after(source / "photos");

        const BackupResult result = pass();

        EXPECT_TRUE(result.errors.empty());
        EXPECT_EQ(filesBelow(day), archived);
        EXPECT_EQ(result.archivedFiles, 1);
        EXPECT_EQ(filesBelow(mirror), filesBelow(source));
    }
}

TEST_F(ScanAndCopyTest, WhenTheRailsRefuseTheOldItemStaysAndTheNewOneWaits) {
    for (int i = 0; i < 10; ++i)
        writeFile(source / "photos" / (std::to_string(i) + ".jpg"), "photo");
    ASSERT_EQ(pass().copiedFiles, 10);
    fs::remove_all(source / "photos");
    writeFile(source / "photos", "a file now");

    const BackupResult result = pass();

    EXPECT_EQ(filesBelow(mirror).size(), 10u);
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

// Written in place, or replaced by a rename, two chunks into its copy.
TEST_F(ScanAndCopyTest, AFileThatChangesWhileItIsCopiedIsNeverRecordedAsCurrent) {
    const fs::path file = source / "render.mov";
    const std::size_t size = std::size_t(streamThreshold) + 3 * chunkSize;
    for (const bool byRename : {false, true}) {
        SCOPED_TRACE(byRename ? "replaced by a rename" : "written in place");
        writeFile(file, std::string(size, 'a'), referenceDate());
        writeFile(mirror / "render.mov", "old copy", referenceDate() - 1h);
        fileSystem.afterChunk = [&](std::int64_t reached) {
            if (reached != 2 * std::int64_t(chunkSize)) return;
            if (byRename) {
                writeFile(source / "new.tmp", std::string(size, 'b'));
                fs::rename(source / "new.tmp", file);
            } else {
                std::fstream(file, std::ios::in | std::ios::out | std::ios::binary) << "changed";
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

TEST_F(ScanAndCopyTest, ASmallFileChangedDuringItsOneCallCopyIsNeverRecordedAsCurrent) {
    const fs::path file = source / "notes.txt";
    writeFile(file, std::string(1000, 'a'), referenceDate());
    writeFile(mirror / "notes.txt", "old copy", referenceDate() - 1h);
    changeAfterKernelCopy = file.c_str();
    const BackupResult result = pass();
    if (changeAfterKernelCopy.exchange(nullptr)) {
        GTEST_SKIP() << "this file system clones the file: there is no copy call to change it in";
    }
    // Either the change was seen and the old copy stands, or a second attempt copied the file
    // as it is now; never the bytes from before the change under the name.
    if (readFile(mirror / "notes.txt") == "old copy") {
        ASSERT_EQ(result.errors.size(), 1u);
        EXPECT_EQ(result.errors[0].underlying, transfer::sourceChangedError());
    } else {
        EXPECT_TRUE(readFile(mirror / "notes.txt") == readFile(file));
    }
    EXPECT_FALSE(hasReservedNames(mirror));
}

}  // namespace
}  // namespace quillstow

// Stands in for the C library's copy_file_range in this test program, and passes every call on.
extern "C" ssize_t copy_file_range(int in, loff_t* inOffset, int out, loff_t* outOffset,
                                   size_t length, unsigned flags) {
    const auto copied =
        ssize_t(::syscall(SYS_copy_file_range, in, inOffset, out, outOffset, length, flags));
    if (const char* path = quillstow::changeAfterKernelCopy.exchange(nullptr)) {
        std::fstream(path, std::ios::in | std::ios::out | std::ios::binary) << "changed";
    }
    return copied;
}
