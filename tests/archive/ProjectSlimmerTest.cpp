// The rebuildable folders of a project: which count and how big they are, the offer's sentence,
// and their move into a real Trash, which takes them and nothing else.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "LogCapture.hpp"
#include "ProjectFolders.hpp"
#include "TestTree.hpp"
#include "archive/ProjectSlimmer.hpp"
#include "platform/FreedesktopTrash.hpp"
#include "support/Dates.hpp"
#include "support/FileInfo.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Finding = ProjectSlimmer::Finding;
namespace fs = std::filesystem;

// A trash that takes nothing, saying why.
class RefusingTrash final : public Trash {
  public:
    void moveToTrash(const fs::path& item) override {
        refused.push_back(item);
        throw Failure(errors::posix(EXDEV));
    }
    std::vector<fs::path> refused;
};

TEST(ProjectSlimmer, FindsTheOuterRebuildableFoldersOfTheWorkingFolder) {
    TemporaryFolder root;
    const auto project = makeFilmProject(root.path());
    // Elsewhere in the project, or a plain file of that name: no finding.
    writeFile(project / "3 Media/Render Files/x.mov", "x");
    writeFile(project / "2 Project Files/Proxy Media", "a file");
    // A link inside a finding adds nothing: its target is not the cache's.
    makeLink(project / "2 Project Files/Render Files/footage", project / "3 Media/A001.mov");
    RefusingTrash trash;

    const auto found = ProjectSlimmer(BackupProfile::film, trash).findings(project);
    EXPECT_THAT(found, ElementsAre(Finding{project / "2 Project Files/Old Cut/Media Cache",
                                           "2 Project Files/Old Cut/Media Cache", "Media Cache", 7},
                                   Finding{project / "2 Project Files/Render Files",
                                           "2 Project Files/Render Files", "Render Files", 8}));
    EXPECT_EQ(ProjectSlimmer::summary({found}),
              "15 bytes in 2 folders your editing apps rebuild on their own. Removing it won't "
              "affect your footage or finished videos.");
}

TEST(ProjectSlimmer, CountsBuildOutputAndKeepsFindingsOfTheSameNameApart) {
    TemporaryFolder root;
    const auto project = makeCodeBase(root.path());
    writeFile(project / "2 Project Files/app/build/out.o", "0123456789");
    writeFile(project / "2 Project Files/lib/build/out.o", "0123");
    RefusingTrash trash;
    std::vector<std::string> paths;
    for (const auto& finding : ProjectSlimmer(BackupProfile::film, trash).findings(project))
        paths.push_back(finding.relativePath);
    EXPECT_THAT(paths, ElementsAre("2 Project Files/.git", "2 Project Files/app/build",
                                   "2 Project Files/lib/build", "2 Project Files/node_modules"));
    EXPECT_THAT(ProjectSlimmer(BackupProfile::film, trash).findings(makePhotoFolder(root.path())),
                IsEmpty())
        << "no working folder, nothing searched";
}

TEST(ProjectSlimmer, SaysNothingOrOneFolder) {
    EXPECT_EQ(ProjectSlimmer::summary({}),
              "Nothing to tidy up — this project has no rebuildable files.");
    EXPECT_EQ(ProjectSlimmer::summary({{Finding{"/p/R", "R", "R", 1'300'000}}}),
              "1.3 MB in 1 folder your editing apps rebuild on their own. Removing it won't affect "
              "your footage or finished videos.");
}

TEST(ProjectSlimmer, MovesACacheIntoARealTrashAndNothingElse) {
    TemporaryFolder root;
    const ScopedEnvironment dataHome("XDG_DATA_HOME", (root / "data").native());
    const auto project = makeFilmProject(root / "work");
    auto kept = filesBelow(project);
    FreedesktopTrash trash;
    const ProjectSlimmer slimmer(BackupProfile::film, trash);
    const auto found = slimmer.findings(project);
    ASSERT_EQ(found.size(), 2u);

    const auto removal = slimmer.remove({found[1]});
    EXPECT_EQ(removal.removed, 1);
    EXPECT_EQ(removal.bytesFreed, 8);
    EXPECT_THAT(removal.failures, IsEmpty());
    EXPECT_EQ(filesBelow(root / "data/Trash/files"),
              (std::map<std::string, std::string>{{"Render Files/a.mov", "abc"},
                                                  {"Render Files/b.mov", "defgh"},
                                                  {"Render Files/Render Files/c.mov", ""}}));
    // What the info file says is the trash's own test.
    EXPECT_EQ(filesBelow(root / "data/Trash/info").size(), 1u);
    std::erase_if(kept, [](const auto& item) {
        return item.first.starts_with("2 Project Files/Render Files/");
    });
    EXPECT_EQ(filesBelow(project), kept);

    // Gone since the review: passed over without a word.
    const auto again = slimmer.remove({found[1]});
    EXPECT_EQ(again.removed, 0);
    EXPECT_THAT(again.failures, IsEmpty());
}

TEST(ProjectSlimmer, ReportsAndLogsAFolderItCannotMoveAndGoesOn) {
    TemporaryFolder root;
    const auto project = makeFilmProject(root.path());
    RefusingTrash trash;
    const ProjectSlimmer slimmer(BackupProfile::film, trash);
    const testing::LogCapture log;
    const auto removal = slimmer.remove(slimmer.findings(project));
    EXPECT_EQ(removal.removed, 0);
    EXPECT_EQ(removal.bytesFreed, 0);
    EXPECT_EQ(trash.refused.size(), 2u);
    ASSERT_EQ(removal.failures.size(), 2u);
    EXPECT_THAT(removal.failures[0], StartsWith("2 Project Files/Old Cut/Media Cache: "));
    EXPECT_THAT(log.messages("app"), ElementsAre(HasSubstr("Could not trash rebuildable folder"),
                                                 HasSubstr("Could not trash rebuildable folder")));
    EXPECT_TRUE(files::exists(project / "2 Project Files/Render Files/a.mov"));
}

}  // namespace
}  // namespace quillstow
