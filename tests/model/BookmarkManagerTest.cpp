// Reaching chosen folders again: the same folder, another folder at the same path, a folder
// that moved away, and damaged records.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "LogCapture.hpp"
#include "TestTree.hpp"
#include "model/BookmarkManager.hpp"

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

// A record that no longer leads to the folder the pair names is stale: never followed elsewhere.
TEST(Bookmarks, ARecordThatNoLongerLeadsToItsFolderIsStale) {
    const auto recordOfA = [](const fs::path& root) {
        return BookmarkManager::bookmarkData(root / "A", true);
    };
    const auto text = [](std::string text) {
        return [text](const fs::path&) { return base64::Bytes(text.begin(), text.end()); };
    };
    const struct {
        const char* name;
        std::function<base64::Bytes(const fs::path&)> record;
        std::function<void(const fs::path&)> change;
        const char* pairFolder;
    } cases[] = {
        {"renamed while closed", recordOfA,
         [](const fs::path& root) { fs::rename(root / "A", root / "A (old)"); }, "A"},
        // The pair names B, the record A: the record may not lead the pair to another folder.
        {"the record of another folder", recordOfA,
         [](const fs::path& root) {
             fs::remove(root / "A");
             makeFolder(root / "A");
         },
         "B"},
        {"a file where the folder was", recordOfA,
         [](const fs::path& root) {
             fs::remove(root / "A");
             writeFile(root / "A", "a file now");
         },
         "A"},
        {"empty", text(""), nullptr, "A"},
        {"not JSON", text("not json"), nullptr, "A"},
        {"no fields", text("{}"), nullptr, "A"},
        {"a newer version", text(R"({"version": 2, "path": "/"})"), nullptr, "A"},
        {"a relative path",
         text(
             R"({"version": 1, "path": "relative", "volume": "", "belowMount": "", "inode": 1, "birth": 0, "readOnly": true})"),
         nullptr, "A"},
        {"a path that is not text", text(R"({"version": 1, "path": 7})"), nullptr, "A"},
    };
    for (const auto& test : cases) {
        TemporaryFolder root;
        makeFolder(root / "A");
        makeFolder(root / "B");
        const base64::Bytes record = test.record(root.path());
        if (test.change) test.change(root.path());
        EXPECT_EQ(raisedCase(record, root / test.pairFolder, true),
                  BackupError::Case::bookmarkStale)
            << test.name;
    }
}

// The same folder resolves as it is; another folder made at its path is taken, and the record
// refreshed in place.
TEST(Bookmarks, TheSameFolderResolvesAsItIsAndAnotherAtItsPathIsRefreshed) {
    TemporaryFolder root;
    makeFolder(root / "Drive");
    const auto data = BookmarkManager::bookmarkData(root / "Drive", false);
    const auto same = BookmarkManager::resolveBookmark(data, root / "Drive", false);
    EXPECT_EQ(same.url, root / "Drive");
    EXPECT_FALSE(same.newBytes);
    // A trailing slash in the stored URL names the same folder.
    EXPECT_FALSE(
        BookmarkManager::resolveBookmark(data, (root / "Drive/").native(), false).newBytes);

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

}  // namespace
}  // namespace quillstow
