// What the inspector reads of a project: the name it proposes and the year, what makes a finals
// folder empty, and which folders count as missing and which files as loose. A well-formed film
// and a photo shoot with every warning are read through the filing window (FilingWindowTest).

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ProjectFolders.hpp"
#include "TestTree.hpp"
#include "archive/ProjectInspector.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Problem = ProjectNameProblem;

struct YearCase {
    const char* name;
    std::optional<int> year;
};

TEST(ProjectNames, SuggestsTheYearOfTheNameOrNone) {
    const YearCase cases[] = {
        {"Spring Collection 2023", 2023},
        {"SS24 Lookbook", 2024},
        {"Fall 23", 2023},
        {"pre-fall19", 2019},
        {"PRE-FALL19", 2019},
        {"Holiday2021", std::nullopt},  // no boundary before 20, none after "holiday20"
        {"Archive 2099 sp18", 2018},    // first four-digit match out of range: on to seasons
        {"2014 sp22 su23", 2022},       // the short expression's first match
        {"Lookbook 1999", std::nullopt},
        {"Job 20", std::nullopt},
        {"Wedding 2015", 2015},
        {"Wedding 2040", 2040},
        {"Wedding 2041", std::nullopt},
        {"2041 and 2030", std::nullopt},  // only the first four-digit match counts
        {"fw14", std::nullopt},           // 2014 lies below the range
        {"Résumé Été 2022", 2022},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(projectnames::suggestedYear(each.name), each.year) << each.name;
    }
}

struct NameCase {
    const char* name;
    const char* tidied;
    std::vector<Problem> problems;
};

TEST(ProjectNames, TidiesTheNameAndSaysWhatWasWrong) {
    const NameCase cases[] = {
        {"Wedding 2023", "Wedding 2023", {}},
        {"a:b/c", "a-b-c", {Problem::awkwardCharacters}},
        {"  Two   Words ", "Two Words", {Problem::surroundingWhitespace, Problem::repeatedSpaces}},
        {"   ", "", {Problem::surroundingWhitespace, Problem::repeatedSpaces}},
        {"\tTabbed", "Tabbed", {Problem::surroundingWhitespace}},
        // A no-break space is white space too; a line break is no blank at the ends.
        {"Film\u00a0\u00a0Cut\u00a0",
         "Film Cut",
         {Problem::surroundingWhitespace, Problem::repeatedSpaces}},
        {"Line\nBreak", "Line Break", {}},
        {" a: b ", "a- b", {Problem::surroundingWhitespace, Problem::awkwardCharacters}},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(projectnames::tidiedName(each.name), each.tidied) << each.name;
        EXPECT_EQ(projectnames::problemsOf(each.name), each.problems) << each.name;
    }
}

TEST(ProjectInspector, CountsAFileInPlaceOfAFolderAsMissingAndALinkAsLoose) {
    TemporaryFolder root;
    const auto project = makeCodeBase(root.path());
    writeFile(project / "3 Media", "not a folder");
    makeLink(project / "shortcut", project / "1 Documents");
    writeFile(project / ".env", "hidden");
    writeFile(project / "Thumbs.db", "clutter");
    const auto inspection = ProjectInspector().inspect(project);
    EXPECT_THAT(inspection.missingFolders, ElementsAre("3 Media", "4 Renders", "5 Drafts"));
    EXPECT_THAT(inspection.looseFilesAtRoot, UnorderedElementsAre("3 Media", "shortcut"));
    EXPECT_EQ(inspection.suggestedYear, std::nullopt);
}

struct FinalsCase {
    const char* label;
    std::vector<const char*> files;
    bool emptyFolder = false;
    bool finalsAreEmpty;
};

TEST(ProjectInspector, JudgesTheFinalsFolderByWhatCountsAsContent) {
    const FinalsCase cases[] = {
        {"only .DS_Store", {".DS_Store"}, false, true},
        {"only Thumbs.db", {"Thumbs.db"}, false, true},
        {"only desktop.ini", {"desktop.ini"}, false, true},
        {"all three", {".DS_Store", "Thumbs.db", "desktop.ini"}, false, true},
        {"a hidden file of another name", {".final.mov"}, false, false},
        {"an empty sub-folder", {}, true, false},
        {"a film", {"cut.mp4"}, false, false},
        {"nothing", {}, false, true},
    };
    for (const auto& each : cases) {
        TemporaryFolder root;
        const auto finals = root / "P/6 Finals";
        makeFolder(finals);
        for (const char* name : each.files)
            writeFile(finals / name, "x");
        if (each.emptyFolder) makeFolder(finals / "Extras");
        EXPECT_EQ(ProjectInspector().inspect(root / "P").finalsAreEmpty, each.finalsAreEmpty)
            << each.label;
    }
}

TEST(ProjectInspector, TellsAMissingFinalsFolderTwiceAndAnUnreadableProjectCalmly) {
    TemporaryFolder root;
    writeFile(root / "P/3 Media/a.mov", "a");
    const auto warnings = ProjectInspector().inspect(root / "P").warnings();
    ASSERT_FALSE(warnings.empty());
    EXPECT_EQ(warnings.front(),
              "There's nothing in the finals folder. This project may not be finished yet.");
    EXPECT_EQ(warnings.back(),
              "Missing 1 Documents, 2 Project Files, 4 Renders, 5 Drafts, 6 Finals.");

    const auto gone = ProjectInspector().inspect(root / "never made");
    EXPECT_THAT(gone.looseFilesAtRoot, IsEmpty());
    EXPECT_TRUE(gone.finalsAreEmpty);
    EXPECT_EQ(gone.missingFolders.size(), expectedProjectFolders.size());
}

TEST(ProjectInspector, SaysOneLooseFileAndEachNameProblem) {
    TemporaryFolder root;
    const auto project = root / " Two  Words";
    writeFile(project / "notes.txt", "x");
    writeFile(project / "6 Finals/cut.mp4", "x");
    EXPECT_THAT(ProjectInspector().inspect(project).warnings(),
                ElementsAre("1 file is sitting loose at the top instead of in one of the numbered "
                            "folders.",
                            "Missing 1 Documents, 2 Project Files, 3 Media, 4 Renders, 5 Drafts.",
                            "This name starts or ends with a space, which is invisible and easy "
                            "to trip over later.",
                            "This name has double spaces in it."));
}

}  // namespace
}  // namespace quillstow
