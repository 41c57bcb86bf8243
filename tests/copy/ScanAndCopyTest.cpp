// Whole passes over real folders.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>

#include "TestTree.hpp"
#include "copy/FakeEditors.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "copy/FileCopier.hpp"
#include "copy/FileTransfer.hpp"
#include "copy/SourceListing.hpp"
#include "copy/SwapBatch.hpp"
#include "support/ManualClocks.hpp"
#include "support/Paths.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
using Op = FaultyFileSystem::Operation;
namespace fs = std::filesystem;

class ScanAndCopyTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path source = root / "source";
    fs::path mirror = root / "drive/Quillstow/Work";
    fs::path trash = root / "drive/.Quillstow-Trash";
    FaultyFileSystem fileSystem;
    FakeEditors editors;
    ManualWallClock wallClock{referenceDate()};
    ManualClock clock;
    FileCopier copier{fileSystem, editors, wallClock, clock};
    std::vector<std::pair<double, std::string>> progress;

    void SetUp() override { makeFolder(source); }

    BackupResult pass(std::stop_token stop = {}) {
        progress.clear();
        return copier.scanAndCopy(
            source, mirror, trash, ExclusionFilter{},
            [&](double fraction, const std::string& text) {
                progress.emplace_back(fraction, text);
            },
            stop);
    }

    FileOperationError raisedBy(const fs::path& destination) {
        try {
            copier.scanAndCopy(source, destination, trash, ExclusionFilter{}, nullptr);
        } catch (const FileOperationFailure& failure) {
            return failure.error();
        }
        ADD_FAILURE() << "nothing raised";
        return {};
    }
};

std::vector<std::string> sorted(std::vector<std::string> values) {
    std::sort(values.begin(), values.end());
    return values;
}

TEST_F(ScanAndCopyTest, AnEmptySourceGivesAnEmptyResult) {
    const BackupResult result = pass();
    EXPECT_EQ(result.copiedFiles, 0);
    EXPECT_EQ(result.bytesTransferred, 0);
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(result.recommendedProfile, BackupProfile::standard);
    EXPECT_TRUE(fs::is_directory(mirror));
    EXPECT_TRUE(progress.empty());
}

TEST_F(ScanAndCopyTest, MirrorsTheTreeAndReportsEveryItemByCount) {
    writeFile(source / "a.txt", "alpha");
    writeFile(source / "docs/b.txt", "bravo!");
    writeFile(source / "docs/deep/c.txt", "");
    makeFolder(source / "nothing/inside");

    const BackupResult result = pass();

    EXPECT_EQ(result.copiedFiles, 3);
    EXPECT_EQ(result.bytesTransferred, 11);
    EXPECT_EQ(result.approximateSourceBytes, 11);
    EXPECT_EQ(sorted(result.copiedRelativePaths),
              (std::vector<std::string>{"a.txt", "docs/b.txt", "docs/deep/c.txt"}));
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(filesBelow(mirror), filesBelow(source));
    EXPECT_FALSE(fs::exists(mirror / "nothing"));

    ASSERT_EQ(progress.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_DOUBLE_EQ(progress[i].first, double(i) / 3);
    // Items come in listing order, which is also the order of copying.
    std::vector<std::string> names;
    for (const auto& path : result.copiedRelativePaths)
        names.push_back(fs::path(path).filename());
    std::vector<std::string> reported;
    for (const auto& [fraction, text] : progress)
        reported.push_back(text);
    EXPECT_EQ(reported, names);

    const BackupResult again = pass();
    EXPECT_EQ(again.copiedFiles, 0);
    EXPECT_EQ(progress.size(), 3u) << "skipped items are reported too";
}

TEST_F(ScanAndCopyTest, CopiesAcrossTheTwoSecondBoundaryInBothDirections) {
    const Date t = referenceDate();
    writeFile(source / "exactly-two.txt", "same", t + 2s);
    writeFile(mirror / "exactly-two.txt", "same", t);
    writeFile(source / "older-mirror.txt", "new!", t + 2001ms);
    writeFile(mirror / "older-mirror.txt", "old!", t);
    writeFile(source / "newer-mirror.txt", "new!", t);
    writeFile(mirror / "newer-mirror.txt", "old!", t + 2001ms);

    const BackupResult result = pass();

    EXPECT_EQ(sorted(result.copiedRelativePaths),
              (std::vector<std::string>{"newer-mirror.txt", "older-mirror.txt"}));
    EXPECT_EQ(readFile(mirror / "exactly-two.txt"), "same");
    EXPECT_EQ(readFile(mirror / "newer-mirror.txt"), "new!");
    EXPECT_EQ(modificationDate(mirror / "newer-mirror.txt"), t);
}

TEST_F(ScanAndCopyTest, ALinkIsNeitherCopiedNorFollowed) {
    writeFile(root / "elsewhere/private.txt", "not in the source");
    writeFile(source / "real.txt", "r");
    makeLink(source / "to-file", source / "real.txt");
    makeLink(source / "to-folder", root / "elsewhere");

    const BackupResult result = pass();

    EXPECT_EQ(result.copiedRelativePaths, (std::vector<std::string>{"real.txt"}));
    EXPECT_FALSE(fs::exists(fs::symlink_status(mirror / "to-file")));
    EXPECT_FALSE(fs::exists(fs::symlink_status(mirror / "to-folder")));
    EXPECT_EQ(readFile(root / "elsewhere/private.txt"), "not in the source");
}

// Watches folders for files being opened, through inotify.
class OpenWatcher {
  public:
    OpenWatcher() : fd_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}
    ~OpenWatcher() { ::close(fd_); }

    void watchTree(const fs::path& root) {
        ::inotify_add_watch(fd_, root.c_str(), IN_OPEN);
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            if (entry.is_directory()) ::inotify_add_watch(fd_, entry.path().c_str(), IN_OPEN);
        }
    }

    std::vector<std::string> openedFiles() {
        std::vector<std::string> names;
        alignas(inotify_event) char buffer[65536];
        for (ssize_t length; (length = ::read(fd_, buffer, sizeof buffer)) > 0;) {
            for (char* at = buffer; at < buffer + length;) {
                const auto* event = reinterpret_cast<const inotify_event*>(at);
                if (!(event->mask & IN_ISDIR) && event->len > 0) names.emplace_back(event->name);
                at += sizeof(inotify_event) + event->len;
            }
        }
        return names;
    }

  private:
    int fd_;
};

TEST_F(ScanAndCopyTest, AnUnchangedTreeOpensNoFile) {
    for (int i = 0; i < 30; ++i) {
        writeFile(source / ("f" + std::to_string(i % 3)) / ("file" + std::to_string(i)), "data");
    }
    ASSERT_EQ(pass().copiedFiles, 30);

    OpenWatcher watcher;
    watcher.watchTree(source);
    watcher.watchTree(mirror);
    const BackupResult result = pass();

    EXPECT_EQ(result.copiedFiles, 0);
    std::vector<std::string> opened = watcher.openedFiles();
    // The marker of a pass under way, and its temporary file, are the pass's own files.
    std::erase_if(opened, [](const std::string& name) {
        return isInternalFileName(name) || transfer::isReservedName(name);
    });
    EXPECT_TRUE(opened.empty()) << opened.size() << " files opened, first " << opened.front();
}

TEST_F(ScanAndCopyTest, CancellationReturnsWhatWasDoneAndStopsAtTheNextItem) {
    for (int i = 0; i < 20; ++i)
        writeFile(source / ("file" + std::to_string(i)), "data");
    std::stop_source stop;
    int reportsAfterStop = 0;
    const BackupResult result = copier.scanAndCopy(
        source, mirror, trash, ExclusionFilter{},
        [&](double fraction, const std::string&) {
            if (stop.stop_requested()) ++reportsAfterStop;
            if (fraction >= 5.0 / 20) stop.request_stop();
        },
        stop.get_token());

    // The item whose report asked to stop is still copied; nothing after it is.
    EXPECT_EQ(result.copiedFiles, 6);
    EXPECT_EQ(reportsAfterStop, 0);
    EXPECT_EQ(filesBelow(mirror).size(), 6u);
    EXPECT_EQ(result.archivedFiles, 0);
    EXPECT_TRUE(result.errors.empty());
}

TEST_F(ScanAndCopyTest, ASizeMismatchLeavesNoCopyAndOneVerifySizeError) {
    // The check runs on the copy before it is swapped in: the bad copy goes, and the mirror
    // keeps the copy it had.
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
    EXPECT_EQ(result.errors[0].underlying,
              errors::quillstow(ErrorCode::sizeMismatch,
                                "File was copied but size doesn't match source — will "
                                "retry on next backup."));
    EXPECT_EQ(readFile(mirror / "bad.txt"), "an old copy");
    for (const auto& entry : fs::directory_iterator(mirror)) {
        EXPECT_FALSE(transfer::isReservedName(entry.path().filename().native())) << entry.path();
    }

    fileSystem.afterCopy = nullptr;
    EXPECT_EQ(pass().copiedRelativePaths, (std::vector<std::string>{"bad.txt"}));
}

TEST_F(ScanAndCopyTest, ErrorsComeInTheOrderOfTheItemsAndTheRestIsCopied) {
    // Listing order is the file system's; the expected order is read from it.
    writeFile(source / "a.txt", "a");
    writeFile(mirror / "a.txt", "old a");
    writeFile(source / "b.txt", "b");
    writeFile(source / "c.txt", "c");
    const std::vector<std::string> order = [&] {
        std::vector<std::string> names;
        for (const auto& item : listSource(source, ExclusionFilter{}))
            names.emplace_back(item.relativePath());
        return names;
    }();
    // The swap of a.txt fails for good (it has an old copy, so it is a replace); the copy of
    // whichever item comes last fails for good too.
    fileSystem.failNext(Op::replaceItem, ENOSPC);
    const std::string last = order.back();
    fileSystem.afterCopy = [&](const fs::path& from, const fs::path&) {
        if (from.filename() == last) throwPosix(EPERM);
    };

    const BackupResult result = pass();

    std::vector<std::string> failed;
    for (const auto& error : result.errors)
        failed.push_back(fs::path(error.url).filename());
    std::vector<std::string> expected;
    for (const auto& name : order) {
        if (name == "a.txt" || name == last) expected.push_back(name);
    }
    EXPECT_EQ(failed, expected);
    EXPECT_EQ(readFile(mirror / "a.txt"), "old a");
    EXPECT_EQ(result.copiedFiles, 3 - int(expected.size()));
}

TEST_F(ScanAndCopyTest, ATransientSwapFailureInAPassIsRetriedOnce) {
    writeFile(source / "a.txt", "new a");
    writeFile(mirror / "a.txt", "old a", referenceDate());
    fileSystem.failNext(Op::replaceItem, EIO);
    BackupResult result = pass();
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(result.copiedFiles, 1);
    EXPECT_EQ(readFile(mirror / "a.txt"), "new a");

    writeFile(source / "a.txt", "newer a");
    fileSystem.failNext(Op::replaceItem, EIO, 2);
    result = pass();
    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0].operation, "copy");
    EXPECT_EQ(result.errors[0].url, source / "a.txt");
    EXPECT_TRUE(errors::isPosix(result.errors[0].underlying, EIO));
    EXPECT_EQ(readFile(mirror / "a.txt"), "new a");
}

// Bounded by the copies, not by the folders they lie in: a change spread over many folders
// still takes one flush for each batch.
TEST_F(ScanAndCopyTest, ManySmallFilesAreFlushedInBatches) {
    const int count = int(SwapBatch::maximumCopies) + 1;
    for (int i = 0; i < count; ++i)
        writeFile(source / ("d" + std::to_string(i % 600)) / std::to_string(i), "x");
    const BackupResult result = pass();
    EXPECT_EQ(result.copiedFiles, count);
    EXPECT_EQ(fileSystem.calls(Op::flushVolume), 2);
    EXPECT_EQ(filesBelow(mirror).size(), std::size_t(count));
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

TEST_F(ScanAndCopyTest, RefusesALinkAsDestinationBeforeTouchingAnything) {
    writeFile(source / "a.txt", "a");
    makeFolder(root / "real-target");
    makeLink(root / "link-destination", root / "real-target");
    const FileOperationError error = raisedBy(root / "link-destination");
    EXPECT_EQ(error.operation, "validateDestination");
    EXPECT_EQ(error.underlying.code, 1003);
    EXPECT_EQ(error.underlying.description,
              "Destination path is a symbolic link — refusing to write to prevent data "
              "redirection.");
    EXPECT_TRUE(fs::is_empty(root / "real-target"));
}

TEST_F(ScanAndCopyTest, RaisesWhenTheDestinationCannotBeMade) {
    writeFile(root / "plain-file", "x");
    const FileOperationError error = raisedBy(root / "plain-file/mirror");
    EXPECT_EQ(error.operation, "createDirectory");
    EXPECT_EQ(error.url, root / "plain-file/mirror");
    EXPECT_TRUE(errors::isPosix(error.underlying, ENOTDIR));
}

TEST_F(ScanAndCopyTest, DifferingSizesKeepsTheOrderAndCountsUnreadableAsDifferent) {
    writeFile(source / "same", "12345");
    writeFile(mirror / "same", "54321");
    writeFile(source / "grown", "123456");
    writeFile(mirror / "grown", "12345");
    writeFile(source / "gone", "1");
    makeFolder(source / "Unit.app");
    makeFolder(mirror / "Unit.app");
    EXPECT_EQ(
        copier.differingSizes(source, mirror, {"grown", "same", "gone", "Unit.app", "nowhere"}),
        (std::vector<std::string>{"grown", "gone", "Unit.app", "nowhere"}));
}

}  // namespace
}  // namespace quillstow
