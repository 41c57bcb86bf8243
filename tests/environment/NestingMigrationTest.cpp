// A destination nested twice by an older layout, repaired on real folders: what moves, what
// stays, what is removed and what the log says.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LogCapture.hpp"
#include "TestTree.hpp"
#include "environment/NestingMigration.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;

BackupPair pairAt(const fs::path& destination, const std::string& name = "Work") {
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = name;
    pair.destinationURL = destination;
    return pair;
}

TEST(NestingMigration, MovesWhatIsFreeKeepsWhatIsTakenAndLogsIt) {
    // What the log shows of the pair's name, and of the paths and item names it keeps private.
    const std::string work = formatLogMessage("%{private,mask.hash}s", {"Work"});
    const std::string detected = "Detected double-nested path for \"" + work + "\": <private>";
    const std::string moved = "Moved: <private>";
    const std::string complete = "Migration complete for \"" + work + "\"";
    struct Case {
        const char* name;
        const char* destination;
        Files before;
        Files after;
        std::vector<std::string> log = {};
        std::vector<const char*> foldersAfter = {};
        std::vector<const char*> goneAfter = {};
    };
    const auto nothingToDo = [](const char* name, const char* destination, Files files) {
        return Case{name, destination, files, files};
    };
    const Case cases[] = {
        nothingToDo("a destination that doesn't end in Quillstow", "Backups",
                    {{"Backups/Quillstow/Work/a", "a"}}),
        nothingToDo("nothing nested", "Quillstow", {{"Quillstow/Work/a", "a"}}),
        nothingToDo("a file where the nested folder would be", "Quillstow",
                    {{"Quillstow/Quillstow/Work", "file"}}),
        {"everything moves, hidden files too, and the empty folders go",
         "Quillstow",
         {{"Quillstow/Quillstow/Work/a", "a"},
          {"Quillstow/Quillstow/Work/.quillstow-hashes.json", "{}"},
          {"Quillstow/Quillstow/Work/sub/b", "b"}},
         {{"Quillstow/Work/a", "a"},
          {"Quillstow/Work/.quillstow-hashes.json", "{}"},
          {"Quillstow/Work/sub/b", "b"}},
         {detected, moved, moved, moved, "Removed empty directory: <private>",
          "Cleaned up empty inner Quillstow directory", complete},
         {},
         {"Quillstow/Quillstow"}},
        {"a name taken at the right place stays nested, and the copy there wins",
         "Quillstow",
         {{"Quillstow/Quillstow/Work/a", "nested"},
          {"Quillstow/Quillstow/Work/b", "b"},
          {"Quillstow/Work/a", "correct"}},
         {{"Quillstow/Quillstow/Work/a", "nested"},
          {"Quillstow/Work/b", "b"},
          {"Quillstow/Work/a", "correct"}},
         {detected, "Skipping <private> — already exists at correct location", moved, complete}},
        {"another pair's folder keeps the inner folder",
         "Quillstow",
         {{"Quillstow/Quillstow/Work/a", "a"}, {"Quillstow/Quillstow/Home/h", "h"}},
         {{"Quillstow/Work/a", "a"}, {"Quillstow/Quillstow/Home/h", "h"}},
         {detected, moved, "Removed empty directory: <private>", complete},
         {"Quillstow/Quillstow"},
         {"Quillstow/Quillstow/Work"}},
    };
    for (const auto& c : cases) {
        TemporaryFolder root;
        for (const auto& [path, content] : c.before)
            writeFile(root / path, content);
        const std::vector<BackupPair> pairs{pairAt(root / c.destination)};
        LogCapture log;
        NestingMigration::run(pairs);
        EXPECT_EQ(filesBelow(root.path()), c.after) << c.name;
        EXPECT_EQ(log.messages("NestingMigration"), c.log) << c.name;
        for (const auto* folder : c.foldersAfter)
            EXPECT_TRUE(fs::is_directory(root / folder)) << c.name << ": " << folder;
        for (const auto* gone : c.goneAfter)
            EXPECT_FALSE(fs::exists(root / gone)) << c.name << ": " << gone;

        LogCapture again;
        NestingMigration::run(pairs);
        EXPECT_EQ(filesBelow(root.path()), c.after) << c.name << ", run again";
        // Only a skipped item is looked at again, and skipped again.
        const bool skipped = fs::is_directory(root / "Quillstow/Quillstow/Work");
        if (!skipped) {
            EXPECT_THAT(again.messages("NestingMigration"), IsEmpty()) << c.name;
        }
    }
}

TEST(NestingMigration, ABookmarkThatCantBeResolvedFallsBackToThePlainFolder) {
    TemporaryFolder root;
    writeFile(root / "Quillstow/Quillstow/Work/a", "a");
    BackupPair pair = pairAt(root / "Quillstow");
    pair.destinationBookmark = base64::Bytes{'x'};
    LogCapture log;
    NestingMigration::run({pair});
    EXPECT_EQ(readFile(root / "Quillstow/Work/a"), "a");
    EXPECT_THAT(log.messages("NestingMigration").front(),
                "Could not resolve destination bookmark for \"" +
                    formatLogMessage("%{private,mask.hash}s", {"Work"}) +
                    "\": Quillstow needs permission to access this folder again.");
}

}  // namespace
}  // namespace quillstow
