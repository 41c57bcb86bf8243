// Before and around the filing: the year and the name a project is filed under, the rebuildable
// folders the slimmer moves into a real Trash (never deleted), the freedesktop Trash itself, and
// the filing flow's model.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "PrivateMounts.hpp"
#include "ProjectFolders.hpp"
#include "TestTree.hpp"
#include "archive/PromoteViewModel.hpp"
#include "copy/FileSystem.hpp"
#include "platform/FreedesktopTrash.hpp"
#include "support/Dates.hpp"
#include "support/Error.hpp"
#include "support/FileInfo.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
using Files = std::map<std::string, std::string>;
namespace fs = std::filesystem;

Date deletedAt() {
    return *dates::parseISO8601("2026-03-01T09:30:05Z");
}

TEST(ProjectNames, SuggestsTheYearOfTheNameOrNone) {
    struct Case {
        const char* name;
        std::optional<int> year;
    };
    const Case cases[] = {
        {"Spring Collection 2023", 2023}, {"SS24 Lookbook", 2024}, {"PRE-FALL19", 2019},
        {"Holiday2021", std::nullopt},  // no boundary before 20, none after "holiday20"
        {"Archive 2099 sp18", 2018},    // first four-digit match out of range: on to seasons
        {"2014 sp22 su23", 2022},       // the short expression's first match
        {"Job 20", std::nullopt},         {"Wedding 2040", 2040},  {"Wedding 2041", std::nullopt},
        {"2041 and 2030", std::nullopt},  // only the first four-digit match counts
        {"fw14", std::nullopt},           // 2014 lies below the range
        {"Résumé Été 2022", 2022},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(projectnames::suggestedYear(c.name), c.year);
    }
}

TEST(ProjectNames, TidiesTheNameItFilesUnder) {
    struct Case {
        const char* name;
        const char* tidied;
    };
    const Case cases[] = {
        {"a:b/c", "a-b-c"},
        {"  Two   Words ", "Two Words"},
        // A no-break space is white space too; a line break is no blank at the ends.
        {"Film\u00a0\u00a0Cut\u00a0", "Film Cut"},
        {"Line\nBreak", "Line Break"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(projectnames::tidiedName(c.name), c.tidied);
    }
}

TEST(ProjectSlimmer, FindsTheOuterRebuildableFoldersOfTheWorkingFolderOnly) {
    TemporaryFolder root;
    const ManualWallClock clock(deletedAt());
    FreedesktopTrash trash(root / "Trash", ::getuid(), clock);
    const ProjectSlimmer slimmer(BackupProfile::film, trash);
    const auto film = makeFilmProject(root.path());
    // Elsewhere in the project, or a plain file of that name: no finding.
    writeFile(film / "3 Media/Render Files/x.mov", "x");
    writeFile(film / "2 Project Files/Proxy Media", "a file");
    // A link inside a finding adds nothing: its target is not the cache's.
    makeLink(film / "2 Project Files/Render Files/footage", film / "3 Media/A001.mov");
    const auto found = slimmer.findings(film);
    using Finding = ProjectSlimmer::Finding;
    EXPECT_THAT(found, ElementsAre(Finding{film / "2 Project Files/Old Cut/Media Cache",
                                           "2 Project Files/Old Cut/Media Cache", "Media Cache", 7},
                                   Finding{film / "2 Project Files/Render Files",
                                           "2 Project Files/Render Files", "Render Files", 8}));

    const auto code = makeCodeBase(root.path());
    writeFile(code / "2 Project Files/app/build/out.o", "0123456789");
    writeFile(code / "2 Project Files/lib/build/out.o", "0123");
    std::vector<std::string> paths;
    for (const auto& finding : slimmer.findings(code))
        paths.push_back(finding.relativePath);
    EXPECT_THAT(paths, ElementsAre("2 Project Files/.git", "2 Project Files/app/build",
                                   "2 Project Files/lib/build", "2 Project Files/node_modules"));
}

TEST(ProjectSlimmer, MovesWhatItFoundIntoTheTrashOrLeavesItWhereItWas) {
    TemporaryFolder root;
    const ManualWallClock clock(deletedAt());
    const auto project = makeFilmProject(root / "work");
    auto kept = filesBelow(project);
    // A trash that can't be made: nothing moves, and each folder says why.
    writeFile(root / "Blocked", "a file");
    FreedesktopTrash blocked(root / "Blocked", ::getuid(), clock);
    const auto found = ProjectSlimmer(BackupProfile::film, blocked).findings(project);
    const auto refused = ProjectSlimmer(BackupProfile::film, blocked).remove(found);
    EXPECT_EQ(refused.removed, 0);
    ASSERT_EQ(refused.failures.size(), 2u);
    EXPECT_TRUE(refused.failures[0].starts_with("2 Project Files/Old Cut/Media Cache: "));
    EXPECT_EQ(filesBelow(project), kept);

    FreedesktopTrash trash(root / "Trash", ::getuid(), clock);
    const ProjectSlimmer slimmer(BackupProfile::film, trash);
    const auto removal = slimmer.remove({found[1]});
    EXPECT_EQ(removal.removed, 1);
    EXPECT_EQ(removal.bytesFreed, 8);
    EXPECT_EQ(filesBelow(root / "Trash/files"), (Files{{"Render Files/a.mov", "abc"},
                                                       {"Render Files/b.mov", "defgh"},
                                                       {"Render Files/Render Files/c.mov", ""}}));
    std::erase_if(kept, [](const auto& item) {
        return item.first.starts_with("2 Project Files/Render Files/");
    });
    EXPECT_EQ(filesBelow(project), kept);
}

std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename());
    return names;
}

TEST(FreedesktopTrash, TakesAnItemWithAnInfoFileUnderANameOfItsOwn) {
    TemporaryFolder root;
    ::setenv("TZ", "EET-2", 1);
    ::tzset();
    const ManualWallClock clock(deletedAt());
    FreedesktopTrash trash(root / "data/Trash", ::getuid(), clock);
    writeFile(root / "Pröject/Render Files/a.mov", "abc");
    trash.moveToTrash(root / "Pröject/Render Files");
    EXPECT_FALSE(files::exists(root / "Pröject/Render Files"));
    EXPECT_EQ(readFile(root / "data/Trash/files/Render Files/a.mov"), "abc");
    // The path percent-encoded, the date in local time.
    EXPECT_EQ(readFile(root / "data/Trash/info/Render Files.trashinfo"),
              "[Trash Info]\nPath=" + root.path().native() + "/Pr%C3%B6ject/Render%20Files" +
                  "\nDeletionDate=2026-03-01T11:30:05\n");
    ::unsetenv("TZ");
    ::tzset();

    for (const char* folder : {"a", "b"}) {
        writeFile(root / folder / "Render Files/x", folder);
        writeFile(root / folder / "clip.mov", folder);
        trash.moveToTrash(root / folder / "Render Files");
        trash.moveToTrash(root / folder / "clip.mov");
    }
    // A stray item of that name without its info file is no free name either.
    writeFile(root / "data/Trash/files/notes", "stray");
    writeFile(root / "d/notes", "mine");
    trash.moveToTrash(root / "d/notes");
    EXPECT_THAT(namesIn(root / "data/Trash/files"),
                UnorderedElementsAre("Render Files", "Render Files 2", "Render Files 3", "clip.mov",
                                     "clip 2.mov", "notes", "notes 2"));
    EXPECT_EQ(readFile(root / "data/Trash/files/Render Files 3/x"), "b");
    EXPECT_EQ(readFile(root / "data/Trash/files/notes 2"), "mine");
}

TEST(FreedesktopTrash, UsesTheVolumesOwnTrashAndLeavesWhatItCannotRename) {
    QUILLSTOW_REQUIRE_PRIVATE_MOUNTS();
    TemporaryFolder root;
    testing::TmpfsMount drive(root / "drive", 1 << 20);
    writeFile(root / "drive/Film/Render Files/a.mov", "abc");
    writeFile(root / "drive/Film/Media Cache/c.cfa", "c");
    const ManualWallClock clock(deletedAt());
    FreedesktopTrash trash(root / "home/Trash", ::getuid(), clock);
    const std::string uid = std::to_string(::getuid());

    trash.moveToTrash(root / "drive/Film/Render Files");
    EXPECT_EQ(readFile(root / ("drive/.Trash-" + uid + "/files/Render Files/a.mov")), "abc");
    EXPECT_THAT(readFile(root / ("drive/.Trash-" + uid + "/info/Render Files.trashinfo")),
                ::testing::HasSubstr("\nPath=Film/Render%20Files\n"));

    drive.remountReadOnly();
    try {
        trash.moveToTrash(root / "drive/Film/Media Cache");
        ADD_FAILURE() << "a read-only volume can't take a trash";
    } catch (const Failure& failure) {
        EXPECT_TRUE(errors::isPosix(failure.error(), EROFS)) << failure.error().description;
    }
    EXPECT_EQ(readFile(root / "drive/Film/Media Cache/c.cfa"), "c");
    EXPECT_FALSE(files::exists(root / "home")) << "never copied into another volume's trash";
    EXPECT_THROW(trash.moveToTrash(root / "drive/Film/never there"), Failure);
}

using Step = PromoteViewModel::Step;

// The filing flow on a virtual main queue, on 15 June 2031.
struct Flow {
    TemporaryFolder root;
    ManualClock clock;
    VirtualMainQueue mainQueue{clock};
    ManualWallClock wallClock{*dates::parseISO8601("2031-06-15T12:00:00Z")};
    FreedesktopTrash trash{root / "home/Trash", ::getuid(), wallClock};
    LocalFileSystem fileSystem;
    std::shared_ptr<ProjectFiler> filer =
        std::make_shared<ProjectFiler>(fileSystem, ProjectManifestWriter(), wallClock, clock);
    TaskRunner tasks;  // after what the tasks use
    std::shared_ptr<PromoteViewModel> model =
        PromoteViewModel::make({mainQueue, tasks, wallClock, trash, filer});

    bool runUntilFinished() {
        return mainQueue.runUntil([&] { return model->step() == Step::finished; });
    }
};

TEST(PromoteViewModel, TidiesUpBeforeItFilesUnderTheYearOfTheNameOrThisYear) {
    Flow f;
    const auto project = makeFilmProject(f.root / "work");
    f.model->choose(project);
    f.model->chooseArchive(f.root / "Archive");
    f.model->setRemoveRebuildable(true);
    f.model->file();
    ASSERT_TRUE(f.runUntilFinished());
    EXPECT_TRUE(f.model->isSuccess()) << f.model->resultSentence();
    const auto filed = f.root / "Archive/2023/Spring Campaign 2023";
    EXPECT_EQ(readFile(filed / "6 Finals/Campaign.mp4"), std::string(1000, 'm'));
    EXPECT_FALSE(files::exists(filed / "2 Project Files/Render Files"))
        << "what was tidied away is not filed";

    f.model->reset();
    // No year in the name: this year, and only a year from 1990 to 2100 typed over it.
    writeFile(f.root / "Odds and Ends/6 Finals/a.txt", "a");
    f.model->choose(f.root / "Odds and Ends");
    EXPECT_EQ(f.model->year(), 2031);
    for (const auto& [year, taken] : {std::pair{1989, false}, {1990, true}, {2101, false}})
        EXPECT_EQ(f.model->setYear(year), taken) << year;
    EXPECT_EQ(f.model->year(), 1990);
}

}  // namespace
}  // namespace quillstow
