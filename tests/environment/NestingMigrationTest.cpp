// A destination nested twice by an older layout, repaired on real folders: what moves, what
// stays where its name is taken, and which folders go.

#include <gtest/gtest.h>

#include "TestTree.hpp"
#include "environment/NestingMigration.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;

TEST(NestingMigration, MovesWhatIsFreeKeepsWhatIsTakenAndRemovesOnlyEmptiedFolders) {
    struct Case {
        const char* name;
        const char* destination;
        Files before;
        Files after;
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
        {"everything moves, hidden files too, and the emptied folders go",
         "Quillstow",
         {{"Quillstow/Quillstow/Work/a", "a"},
          {"Quillstow/Quillstow/Work/.quillstow-hashes.json", "{}"},
          {"Quillstow/Quillstow/Work/sub/b", "b"}},
         {{"Quillstow/Work/a", "a"},
          {"Quillstow/Work/.quillstow-hashes.json", "{}"},
          {"Quillstow/Work/sub/b", "b"}},
         {},
         {"Quillstow/Quillstow"}},
        {"a name taken at the right place stays nested, and the copy there wins",
         "Quillstow",
         {{"Quillstow/Quillstow/Work/a", "nested"},
          {"Quillstow/Quillstow/Work/b", "b"},
          {"Quillstow/Work/a", "correct"}},
         {{"Quillstow/Quillstow/Work/a", "nested"},
          {"Quillstow/Work/b", "b"},
          {"Quillstow/Work/a", "correct"}}},
        {"another pair's folder keeps the inner folder",
         "Quillstow",
         {{"Quillstow/Quillstow/Work/a", "a"}, {"Quillstow/Quillstow/Home/h", "h"}},
         {{"Quillstow/Work/a", "a"}, {"Quillstow/Quillstow/Home/h", "h"}},
         {"Quillstow/Quillstow"},
         {"Quillstow/Quillstow/Work"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder root;
        for (const auto& [path, content] : c.before)
            writeFile(root / path, content);
        BackupPair pair;
        pair.id = Uuid::random();
        pair.name = "Work";
        pair.destinationURL = root / c.destination;
        // A record that can't be resolved falls back to the folder the pair names.
        pair.destinationBookmark = base64::Bytes{'x'};
        for (int run = 1; run <= 2; ++run) {
            NestingMigration::run({pair});
            EXPECT_EQ(filesBelow(root.path()), c.after) << "run " << run;
        }
        for (const auto* folder : c.foldersAfter)
            EXPECT_TRUE(fs::is_directory(root / folder)) << folder;
        for (const auto* gone : c.goneAfter)
            EXPECT_FALSE(fs::exists(root / gone)) << gone;
    }
}

}  // namespace
}  // namespace quillstow
