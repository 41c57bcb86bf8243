// Reaching chosen folders again: the same folder, another folder at the same path, a folder
// that moved away, and damaged records.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "LogCapture.hpp"
#include "TestTree.hpp"
#include "model/BookmarkManager.hpp"
#include "model/ConfigStore.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

BackupError::Case raisedCase(const base64::Bytes& data, const fs::path& fallback, bool readOnly) {
    try {
        BookmarkManager::resolveBookmark(data, fallback, readOnly);
    } catch (const BackupFailure& failure) {
        EXPECT_EQ(failure.error().url(), fallback) << "the error names the folder the user knows";
        return failure.error().kind();
    }
    ADD_FAILURE() << "resolved";
    return BackupError::Case::timedOut;
}

TEST(Bookmarks, TheSameFolderResolvesWithoutNewBytes) {
    TemporaryFolder root;
    makeFolder(root / "Projects");
    const auto data = BookmarkManager::bookmarkData(root / "Projects", true);
    const auto resolved = BookmarkManager::resolveBookmark(data, root / "Projects", true);
    EXPECT_EQ(resolved.url, root / "Projects");
    EXPECT_FALSE(resolved.newBytes);
    // A trailing slash in the stored URL names the same folder.
    EXPECT_FALSE(
        BookmarkManager::resolveBookmark(data, (root / "Projects/").native(), true).newBytes);
}

TEST(Bookmarks, AFolderRenamedWhileClosedIsStaleAndNeverFollowed) {
    TemporaryFolder root;
    makeFolder(root / "Projects");
    const auto data = BookmarkManager::bookmarkData(root / "Projects", true);
    fs::rename(root / "Projects", root / "Projects (old)");
    EXPECT_EQ(raisedCase(data, root / "Projects", true), BackupError::Case::bookmarkStale);
}

TEST(Bookmarks, AnotherFolderAtTheSamePathIsRefreshedInPlace) {
    TemporaryFolder root;
    makeFolder(root / "Drive");
    const auto data = BookmarkManager::bookmarkData(root / "Drive", false);
    fs::remove(root / "Drive");
    makeFolder(root / "elsewhere-to-take-the-inode");
    makeFolder(root / "Drive");

    const auto resolved = BookmarkManager::resolveBookmark(data, root / "Drive", false);

    EXPECT_EQ(resolved.url, root / "Drive");
    ASSERT_TRUE(resolved.newBytes);
    EXPECT_NE(*resolved.newBytes, data);
    EXPECT_FALSE(
        BookmarkManager::resolveBookmark(*resolved.newBytes, root / "Drive", false).newBytes);
}

TEST(Bookmarks, ARefreshedBookmarkReachesTheSettingsFile) {
    TemporaryFolder root;
    makeFolder(root / "Drive");
    ManualClock clock;
    VirtualMainQueue queue(clock);
    InMemoryUserDefaults defaults;
    ConfigStore store(root / "settings", queue, defaults);
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = "Work";
    pair.sourceURL = root / "Work";
    pair.destinationURL = root / "Drive";
    pair.destinationBookmark = BookmarkManager::bookmarkData(root / "Drive", false);
    store.addPair(pair);

    fs::remove(root / "Drive");
    makeFolder(root / "placeholder");
    makeFolder(root / "Drive");
    const auto resolved =
        BookmarkManager::resolveBookmark(*pair.destinationBookmark, pair.destinationURL, false);
    ASSERT_TRUE(resolved.newBytes);
    pair.destinationBookmark = resolved.newBytes;
    store.updatePair(pair);
    store.flush();

    const auto written = configFileFromJson(json::read(readFile(root / "settings/config.json")));
    EXPECT_EQ(written.pairs[0].destinationBookmark, resolved.newBytes);
}

TEST(Bookmarks, ARecordThatFollowedElsewhereIsStale) {
    TemporaryFolder root;
    makeFolder(root / "A");
    makeFolder(root / "B");
    const auto data = BookmarkManager::bookmarkData(root / "A", true);
    fs::remove(root / "A");
    makeFolder(root / "A");
    // The pair names B, the record A: the record may not lead the pair to another folder.
    EXPECT_EQ(raisedCase(data, root / "B", true), BackupError::Case::bookmarkStale);
}

TEST(Bookmarks, DamagedRecordsAreStale) {
    TemporaryFolder root;
    makeFolder(root / "A");
    for (
        const std::string text :
        {"", "not json", "{}", R"({"version": 2, "path": "/"})",
         R"({"version": 1, "path": "relative", "volume": "", "belowMount": "", "inode": 1, "birth": 0, "readOnly": true})",
         R"({"version": 1, "path": 7})"}) {
        EXPECT_EQ(raisedCase(base64::Bytes(text.begin(), text.end()), root / "A", true),
                  BackupError::Case::bookmarkStale)
            << text;
    }
}

TEST(Bookmarks, AFileWhereTheFolderWasIsStale) {
    TemporaryFolder root;
    makeFolder(root / "A");
    const auto data = BookmarkManager::bookmarkData(root / "A", true);
    fs::remove(root / "A");
    writeFile(root / "A", "a file now");
    EXPECT_EQ(raisedCase(data, root / "A", true), BackupError::Case::bookmarkStale);
}

TEST(Bookmarks, AnUnreadableFolderIsDenied) {
    if (::geteuid() == 0)
        GTEST_SKIP() << "root reads every folder; the read-only drive test covers denial";
    TemporaryFolder root;
    makeFolder(root / "Locked");
    const auto data = BookmarkManager::bookmarkData(root / "Locked", true);
    ::chmod((root / "Locked").c_str(), 0);
    EXPECT_EQ(raisedCase(data, root / "Locked", true), BackupError::Case::bookmarkAccessDenied);
    ::chmod((root / "Locked").c_str(), 0755);
}

TEST(Bookmarks, NewPairsGetTheirBookmarksOrALogLineInTheFlowsWords) {
    TemporaryFolder root;
    makeFolder(root / "Source");
    BackupPair pair;
    pair.sourceURL = root / "Source";
    pair.destinationURL = root / "Missing Drive";
    pair.offsiteURL = root / "Missing Cloud";
    LogCapture log;

    BookmarkManager::makeBookmarksForNewPair(pair, false);
    EXPECT_TRUE(pair.sourceBookmark);
    EXPECT_FALSE(pair.destinationBookmark);
    EXPECT_FALSE(pair.offsiteBookmark);
    BookmarkManager::makeBookmarksForNewPair(pair, true);

    const auto messages = log.messages("Bookmark");
    ASSERT_EQ(messages.size(), 4u);
    EXPECT_EQ(messages[0], "Could not create destination bookmark: No such file or directory");
    EXPECT_EQ(messages[1], "Could not create offsite bookmark: No such file or directory");
    EXPECT_EQ(messages[2],
              "Could not create destination bookmark for <private>: No such file or directory");
}

TEST(BookmarkError, NamesThePath) {
    EXPECT_EQ((BookmarkError{"/media/ana/Drive"}).errorDescription(),
              "Access denied for security-scoped resource at /media/ana/Drive.");
}

}  // namespace
}  // namespace quillstow
