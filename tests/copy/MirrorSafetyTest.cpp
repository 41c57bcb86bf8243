// What a pass must never do to a mirror: destroy a backup that stands in the way of a new item,
// write through a link inside it, record a copy of a file that moved under it as current,
// remove a user's file that only looks like a temporary, or skip a name in silence.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "DeepTree.hpp"
#include "FaultyFileSystem.hpp"
#include "TestTree.hpp"
#include "copy/FileCopier.hpp"
#include "copy/FileTransfer.hpp"
#include "copy/StreamedCopy.hpp"
#include "support/AtomicFile.hpp"
#include "support/FileHandle.hpp"
#include "support/Retry.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
namespace fs = std::filesystem;
using Op = FaultyFileSystem::Operation;

class MirrorSafetyTest : public ::testing::Test {
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

    BackupResult pass(const FileCopier::ProgressCallback& onProgress = nullptr,
                      std::stop_token stop = {}) {
        return copier.scanAndCopy(source, mirror, trash, ExclusionFilter{}, onProgress, stop);
    }

    std::vector<std::string> reservedNamesIn(const fs::path& folder) {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (transfer::isReservedName(entry.path().filename().native()))
                names.push_back(entry.path().filename());
        }
        return names;
    }

    // `count` files that stay, so that the mass rail lets a few items go.
    void addBystanders(int count) {
        for (int i = 0; i < count; ++i)
            writeFile(source / "other" / std::to_string(i), "o");
    }
};

TEST_F(MirrorSafetyTest, ItemsOfAnotherKindInTheWayGoToTheArchiveBeforeTheNewItemGoesIn) {
    struct Case {
        const char* name;
        std::function<void(const fs::path&)> before;  // a tree at "photos" in the source
        std::function<void(const fs::path&)> after;
        std::map<std::string, std::string> archived;  // below the day folder
    };
    const auto folderOfPhotos = [](const fs::path& at) {
        for (int i = 0; i < 3; ++i)
            writeFile(at / ("p" + std::to_string(i) + ".jpg"), "photo");
    };
    const auto aFile = [](const fs::path& at) { writeFile(at, "now a file"); };
    const Case cases[] = {
        {"a folder became a file",
         folderOfPhotos,
         aFile,
         {{"photos/p0.jpg", "photo"}, {"photos/p1.jpg", "photo"}, {"photos/p2.jpg", "photo"}}},
        {"a file became a folder", aFile, folderOfPhotos, {{"photos", "now a file"}}},
    };
    for (const auto& c : cases) {
        fs::remove_all(root / "drive");
        fs::remove_all(source);
        addBystanders(40);
        c.before(source / "photos");
        ASSERT_TRUE(pass().errors.empty()) << c.name;
        fs::remove_all(source / "photos");
        c.after(source / "photos");

        const BackupResult result = pass();

        EXPECT_TRUE(result.errors.empty()) << c.name << ": " << result.errors.size();
        EXPECT_EQ(filesBelow(day), c.archived) << c.name;
        EXPECT_EQ(result.archivedFiles, int(c.archived.size())) << c.name;
        std::map<std::string, std::string> expected = filesBelow(source);
        EXPECT_EQ(filesBelow(mirror), expected) << c.name;
    }
}

TEST_F(MirrorSafetyTest, WhenTheRailsRefuseTheOldItemStaysAndTheNewOneWaits) {
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

TEST_F(MirrorSafetyTest, ALinkInsideTheMirrorIsNeverWrittenThrough) {
    addBystanders(20);
    writeFile(source / "docs/a.txt", "a");
    makeFolder(root / "elsewhere");
    makeFolder(mirror);
    makeLink(mirror / "docs", root / "elsewhere");

    const BackupResult result = pass();

    EXPECT_TRUE(result.errors.empty());
    EXPECT_TRUE(fs::is_empty(root / "elsewhere"));
    EXPECT_FALSE(fs::is_symlink(mirror / "docs"));
    EXPECT_EQ(readFile(mirror / "docs/a.txt"), "a");
    EXPECT_TRUE(fs::is_symlink(day / "docs"));
}

TEST_F(MirrorSafetyTest, NamesThatOnlyLookLikeTemporariesAreBackedUpAndKept) {
    const std::vector<std::string> lookAlikes{
        ".quillstowtmp-notes.txt", ".quillstowtmp-abcdef12-lower.txt", ".quillstowresume-x-y",
        ".quillstowresume-12-", ".quillstowtmp-ABCDEF12-"};
    for (const auto& name : lookAlikes)
        writeFile(source / name, name);
    const std::string leftover = transfer::temporaryName("report.txt");
    const std::string partial = partialName(99, "clip.mov");
    writeFile(mirror / leftover, "left by a crash");
    writeFile(mirror / partial, "left by a crash");

    for (int round = 0; round < 2; ++round) {
        copier.removeStaleTemporaries(source, mirror);
        const BackupResult result = pass();
        EXPECT_TRUE(result.errors.empty()) << round;
        EXPECT_EQ(result.copiedFiles, round == 0 ? int(lookAlikes.size()) : 0) << round;
        EXPECT_EQ(result.archivedFiles, 0) << round;
        for (const auto& name : lookAlikes)
            EXPECT_EQ(readFile(mirror / name), name) << round;
    }
    EXPECT_FALSE(fs::exists(mirror / leftover));
    EXPECT_FALSE(fs::exists(mirror / partial));
}

TEST_F(MirrorSafetyTest, NamesOfEveryLengthAreBackedUp) {
    const std::string longest(255, 'n');
    const std::string longestInUtf8 = std::string(250, 'n') + "\xC3\xA9\xC3\xA9";  // 254 bytes
    for (const auto& name : {longest, longestInUtf8, std::string("a")})
        writeFile(source / name, name);

    const BackupResult result = pass();

    EXPECT_TRUE(result.errors.empty()) << result.errors.front().underlying.description;
    EXPECT_EQ(filesBelow(mirror), filesBelow(source));
    // Two long names that share their head get two temporary names that fit.
    const std::string a = atomicfile::temporaryName(longest);
    const std::string b = atomicfile::temporaryName(std::string(254, 'n') + "m");
    EXPECT_LE(a.size(), 255u);
    EXPECT_NE(a.substr(23), b.substr(23));
    EXPECT_TRUE(transfer::isReservedName(a));
    EXPECT_LE(partialName(std::int64_t(1) << 40, longest).size(), 255u);
}

TEST_F(MirrorSafetyTest, AFolderDeeperThanAPathCanNameIsBackedUpAndArchivedLikeAnyOther) {
    const std::string name(200, 'd');
    const std::string deep = makeDeepFile(source, name, 25, "deep.txt", "deep");
    const std::string gone = makeDeepFile(source, name, 25, "gone.txt", "to be archived");
    ASSERT_GT(deep.size(), std::size_t(PATH_MAX));
    addBystanders(20);
    const std::string deepFolder = deep.substr(0, deep.rfind('/'));
    const auto inDeepFolder = [&](const fs::path& root, const auto& call) {
        const FileHandle top = handles::openFolder(root);
        call(handles::openFolderBelow(top.get(), deepFolder).get());
    };

    BackupResult result = pass();
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(result.copiedFiles, 22);
    EXPECT_EQ(filesBelowAtAnyDepth(mirror), filesBelowAtAnyDepth(source));

    // A change is seen, and a file gone from the source goes to the archive at its depth.
    makeDeepFile(source, name, 25, "deep.txt", "deeper now");
    inDeepFolder(source, [](int folder) { ::unlinkat(folder, "gone.txt", 0); });
    result = pass();
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(result.copiedRelativePaths, std::vector<std::string>{deep});
    EXPECT_EQ(result.archivedFiles, 1);
    EXPECT_EQ(filesBelowAtAnyDepth(mirror), filesBelowAtAnyDepth(source));
    EXPECT_EQ(filesBelowAtAnyDepth(day),
              (std::map<std::string, std::string>{{gone, "to be archived"}}));
    EXPECT_EQ(copier.differingSizes(source, mirror, {deep}), std::vector<std::string>{});

    result = pass();
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(result.copiedFiles, 0);
    removeTree(AT_FDCWD, source);
    removeTree(AT_FDCWD, root / "drive");
}

TEST_F(MirrorSafetyTest, ALinkMadeInPlaceOfAMirrorFolderDuringThePassIsNeverFollowed) {
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

TEST_F(MirrorSafetyTest, FoldersKeepTheSourcesModificationDates) {
    writeFile(source / "a/b/c.txt", "c");
    writeFile(source / "a/d.txt", "d");
    const auto stamp = [&](Date date) {
        setModificationDate(source / "a/b", date);
        setModificationDate(source / "a", date + 1s);
    };
    stamp(referenceDate());
    pass();
    EXPECT_EQ(modificationDate(mirror / "a/b"), referenceDate());
    EXPECT_EQ(modificationDate(mirror / "a"), referenceDate() + 1s);

    // A change below a folder moves the mirror's date; the pass sets it back.
    writeFile(source / "a/b/e.txt", "e");
    fs::remove(source / "a/d.txt");
    stamp(referenceDate() + 10s);
    addBystanders(20);
    pass();
    EXPECT_EQ(modificationDate(mirror / "a/b"), referenceDate() + 10s);
    EXPECT_EQ(modificationDate(mirror / "a"), referenceDate() + 11s);
}

TEST_F(MirrorSafetyTest, AFileThatChangesWhileItIsCopiedIsNeverRecordedAsCurrent) {
    const fs::path file = source / "render.mov";
    const std::size_t size = std::size_t(streamThreshold) + 3 * chunkSize;
    const auto holds = [](const fs::path& path, char byte, std::size_t length) {
        const std::string content = readFile(path);
        return content.size() == length && content.find_first_not_of(byte) == std::string::npos;
    };
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

        EXPECT_EQ(result.copiedFiles, 0) << c.name;
        ASSERT_EQ(result.errors.size(), 1u) << c.name;
        EXPECT_EQ(result.errors[0].underlying, transfer::sourceChangedError()) << c.name;
        EXPECT_EQ(readFile(mirror / "render.mov"), "old copy") << c.name;
        EXPECT_TRUE(reservedNamesIn(mirror).empty()) << c.name;
        // The next pass copies what the source holds now.
        EXPECT_EQ(pass().copiedFiles, 1) << c.name;
        EXPECT_TRUE(readFile(mirror / "render.mov") == readFile(file)) << c.name;
        EXPECT_FALSE(holds(mirror / "render.mov", 'a', size)) << c.name;
    }
}

TEST_F(MirrorSafetyTest, TheRetryOfAFailedSwapHearsAStop) {
    writeFile(source / "a.txt", "new a");
    writeFile(source / "b.txt", "new b");
    writeFile(mirror / "a.txt", "old a", referenceDate());
    fileSystem.failNext(Op::replaceItem, EIO);
    std::stop_source stop;
    const BackupResult result = pass(
        [&](double fraction, const std::string&) {
            if (fraction > 0) stop.request_stop();
        },
        stop.get_token());

    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_TRUE(errors::isPosix(result.errors[0].underlying, EIO));
    EXPECT_EQ(fileSystem.calls(Op::copyItem), 2) << "no second copy after the stop";
    EXPECT_EQ(readFile(mirror / "a.txt"), "old a");
}

}  // namespace
}  // namespace quillstow
