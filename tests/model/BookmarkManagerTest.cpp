// Reaching chosen folders again: the same folder, another folder made at the same path, and a
// record that no longer leads to the folder the pair names.

#include <gtest/gtest.h>

#include "TestTree.hpp"
#include "model/BookmarkManager.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

void unchanged(const fs::path&) {}
void renamed(const fs::path& root) {
    fs::rename(root / "A", root / "A (old)");
}
void madeAnew(const fs::path& root) {
    fs::remove(root / "A");
    makeFolder(root / "elsewhere-to-take-the-inode");
    makeFolder(root / "A");
}
void aFileInstead(const fs::path& root) {
    fs::remove(root / "A");
    writeFile(root / "A", "a file now");
}

// Each row: the record (none: the one of folder A), what happens to A, and the folder the pair
// names. A record that no longer leads to that folder is stale: never followed elsewhere.
TEST(Bookmarks, LeadOnlyToTheFolderThePairNamesAndAreMadeAnewForAnotherAtItsPath) {
    const auto text = [](std::string text) { return base64::Bytes(text.begin(), text.end()); };
    enum Outcome { same, refreshed, stale };
    const struct {
        const char* name;
        std::optional<base64::Bytes> record;
        void (*change)(const fs::path&);
        const char* pairFolder;
        Outcome outcome;
    } cases[] = {
        {"the same folder", std::nullopt, unchanged, "A", same},
        {"the same folder, a slash behind", std::nullopt, unchanged, "A/", same},
        {"another folder at its path", std::nullopt, madeAnew, "A", refreshed},
        {"renamed", std::nullopt, renamed, "A", stale},
        // The pair names B, the record A: the record may not lead the pair to another folder.
        {"another folder's", std::nullopt, madeAnew, "B", stale},
        {"a file where the folder was", std::nullopt, aFileInstead, "A", stale},
        {"not JSON", text("not json"), unchanged, "A", stale},
        {"a newer version", text(R"({"version": 2, "path": "/"})"), unchanged, "A", stale},
        {"a relative path",
         text(R"({"version": 1, "path": "relative", "volume": "", "belowMount": "", "inode": 1,
                  "birth": 0, "readOnly": true})"),
         unchanged, "A", stale},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder root;
        makeFolder(root / "A");
        makeFolder(root / "B");
        const auto record = c.record.value_or(BookmarkManager::bookmarkData(root / "A", true));
        c.change(root.path());
        try {
            const auto resolved =
                BookmarkManager::resolveBookmark(record, root / c.pairFolder, true);
            EXPECT_EQ(resolved.newBytes ? refreshed : same, c.outcome);
            EXPECT_EQ(resolved.url, root / "A");
            if (resolved.newBytes) {
                EXPECT_FALSE(BookmarkManager::resolveBookmark(*resolved.newBytes, root / "A", true)
                                 .newBytes);
            }
        } catch (const BackupFailure& failure) {
            EXPECT_EQ(c.outcome, stale);
            EXPECT_EQ(failure.error().kind(), BackupError::Case::bookmarkStale);
            EXPECT_EQ(failure.error().url(), root / c.pairFolder) << "the folder the user knows";
        }
    }
}

}  // namespace
}  // namespace quillstow
