// What a pass leaves out, which folders it copies whole, and which profile a folder suggests.

#include <gtest/gtest.h>

#include "TestTree.hpp"
#include "copy/ExclusionFilter.hpp"
#include "copy/ProfileRecommendation.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

TEST(MatchesPattern, TakesTheFirstOccurrenceAndNeverBacktracks) {
    struct Case {
        const char* name;
        const char* pattern;
        bool matches;
    };
    const Case cases[] = {
        {"a.tmp", "*.tmp", true},
        {"a.tmp.tmp", "*.tmp", false},  // the first ".tmp" doesn't end the name
        {".tmp", "*.tmp", true},
        {"A.TMP", "*.tmp", true},
        {"tmp", "*.tmp", false},
        {"Thumbs.db", "Thumbs.db", true},
        {"THUMBS.DB", "Thumbs.db", true},
        {"Thumbs.db.bak", "Thumbs.db", false},
        {".env.production.local", ".env.*.local", true},
        {".ENV.Staging.LOCAL", ".env.*.local", true},
        {".env.local", ".env.*.local", false},
        {"x.env.a.local", ".env.*.local", false},
        {"Project.xcuserstate", "*.xcuserstate", true},
        {"anything", "*", true},
        {"", "*", true},
        {"abc", "a**c", true},
        {"abcbc", "a*bc", false},  // the first "bc" doesn't end the name either
        {"abXbc", "*b*c", true},
        {"acb", "a*b*c", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(matchesPattern(c.name, c.pattern), c.matches) << c.name << " ~ " << c.pattern;
    }
}

TEST(ExclusionFilter, MatchesNamesWithCaseAndPatternsWithout) {
    const ExclusionFilter filter = filterForProfile(BackupProfile::standard);
    EXPECT_TRUE(filter.isExcluded("build", true));
    EXPECT_TRUE(filter.isExcluded("Build", true));
    EXPECT_FALSE(filter.isExcluded("BUILD", true));
    EXPECT_FALSE(filter.isExcluded("BUILD", false));
    EXPECT_TRUE(filter.isExcluded("THUMBS.DB", false));
    EXPECT_TRUE(filter.isExcluded(".env.local", false));
    EXPECT_FALSE(filter.isExcluded(".ENV.LOCAL", false));
    EXPECT_TRUE(filter.isExcluded(".env.Production.local", false));
    EXPECT_TRUE(filter.isExcluded(".DS_Store", false));
    EXPECT_TRUE(filter.isExcluded(".Quillstow-Trash", true));
    EXPECT_TRUE(filter.isExcluded(".TemporaryItems", true));
    // Patterns and extensions never exclude a folder.
    EXPECT_FALSE(filter.isExcluded("Thumbs.db", true));
    EXPECT_FALSE(filter.isExcluded("notes.txt", false));
}

TEST(ExclusionFilter, ExtensionsExcludeFilesOfTheirProfileOnly) {
    const ExclusionFilter film = filterForProfile(BackupProfile::film);
    const ExclusionFilter standard = filterForProfile(BackupProfile::standard);
    EXPECT_TRUE(film.isExcluded("notes.tmp", false));
    EXPECT_TRUE(film.isExcluded("NOTES.TMP", false));
    EXPECT_FALSE(film.isExcluded("notes.tmp", true));
    EXPECT_FALSE(standard.isExcluded("notes.tmp", false));
    EXPECT_TRUE(film.isExcluded("Render Files", true));
    EXPECT_FALSE(standard.isExcluded("Render Files", true));
    EXPECT_TRUE(filterForProfile(BackupProfile::developer).isExcluded("main.o", false));
    // Kept with its capitals, and so never matching a lower-cased extension.
    EXPECT_FALSE(filterForProfile(BackupProfile::developer).isExcluded("App.dSYM", false));
    EXPECT_TRUE(filterForProfile(BackupProfile::photography).isExcluded("Thumbnails", true));
    EXPECT_TRUE(filterForProfile(BackupProfile::music).isExcluded("kick.asd", false));
}

TEST(ExclusionFilter, HasEveryTableRowAndSharesItsSets) {
    const ExclusionFilter standard = filterForProfile(BackupProfile::standard);
    EXPECT_EQ(standard.excludedNames->size(), 22u);  // 20 base and 5 universal, 3 in both
    EXPECT_EQ(standard.excludedFilePatterns->size(), 4u);
    EXPECT_TRUE(standard.excludedExtensions->empty());
    EXPECT_EQ(filterForProfile(BackupProfile::film).excludedNames->size(), 22u + 14u);
    EXPECT_EQ(filterForProfile(BackupProfile::developer).excludedExtensions->size(), 9u);
    EXPECT_EQ(filterForProfile(BackupProfile::documents).excludedNames->size(), 22u);

    EXPECT_EQ(filterForProfile(BackupProfile::film).excludedNames,
              filterForProfile(BackupProfile::film).excludedNames);
    EXPECT_EQ(filterForProfile(BackupProfile::film).excludedFilePatterns,
              filterForProfile(BackupProfile::music).excludedFilePatterns);

    const ExclusionFilter extended = filterForProfile(BackupProfile::standard, {"Scratch"});
    EXPECT_TRUE(extended.isExcluded("Scratch", true));
    EXPECT_FALSE(standard.isExcluded("Scratch", true));

    BackupPair pair;
    pair.profile = BackupProfile::music;
    EXPECT_EQ(filterForPair(pair).profile, BackupProfile::music);
    EXPECT_TRUE(filterForPair(pair).isExcluded("Freeze Files", true));
}

TEST(PackageUnits, AreChosenByExtensionAndProfile) {
    for (const auto& [profile, name] : backupProfileNames) {
        EXPECT_TRUE(isPackageUnit("app", profile)) << name;
        EXPECT_TRUE(isPackageUnit("APP", profile)) << name;
        EXPECT_TRUE(isPackageUnit("photoslibrary", profile)) << name;
    }
    EXPECT_TRUE(isPackageUnit("logicx", BackupProfile::music));
    EXPECT_FALSE(isPackageUnit("logicx", BackupProfile::standard));
    EXPECT_TRUE(isPackageUnit("fcpbundle", BackupProfile::film));
    EXPECT_TRUE(isPackageUnit("lrcat", BackupProfile::photography));
    EXPECT_FALSE(isPackageUnit("lrcat", BackupProfile::film));
    EXPECT_FALSE(isPackageUnit("", BackupProfile::standard));
}

TEST(InternalFileNames, AreTheThreeFilesOfAMirror) {
    EXPECT_TRUE(isInternalFileName(".quillstow-checkpoint.json"));
    EXPECT_TRUE(isInternalFileName(".quillstow-hashes.json"));
    EXPECT_TRUE(isInternalFileName(".quillstow-lastcheck"));
    EXPECT_FALSE(isInternalFileName(".quillstow-lastcheck.bak"));
}

TEST(PathExtension, FollowsTheLastDotThatIsNotFirstOrLast) {
    EXPECT_EQ(pathExtension("a.tar.gz"), "gz");
    EXPECT_EQ(pathExtension(".env"), "");
    EXPECT_EQ(pathExtension("a."), "");
    EXPECT_EQ(pathExtension("README"), "");
    EXPECT_EQ(deletingPathExtension("a.tar.gz"), "a.tar");
    EXPECT_EQ(deletingPathExtension(".env"), ".env");
}

// Listing a real folder, so that the recommendation also scans its real markers.
class RecommendProfileTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    BackupProfile recommend() {
        return recommendProfile(listSource(root.path(), ExclusionFilter{}), root.path());
    }
};

TEST_F(RecommendProfileTest, AnEmptyFolderIsStandard) {
    EXPECT_EQ(recommend(), BackupProfile::standard);
}

TEST_F(RecommendProfileTest, TwoMarkerFilesAtTheTopMakeFortyAndWin) {
    writeFile(root / "package.json", "");
    writeFile(root / "yarn.lock", "");
    EXPECT_EQ(recommend(), BackupProfile::developer);
}

TEST_F(RecommendProfileTest, OneMarkerAtTheTopAndOneBelowMakeThirtyTwoAndLose) {
    writeFile(root / "package.json", "");
    writeFile(root / "tools/Makefile", "");
    writeFile(root / "notes.txt", std::string(100, 'n'));
    writeFile(root / "main.c", std::string(99, 'c'));
    EXPECT_EQ(recommend(), BackupProfile::standard);
}

TEST_F(RecommendProfileTest, ExactlyHalfTheBytesInCodeAddsTwelveAndAHalfToWin) {
    writeFile(root / "package.json", "");
    writeFile(root / "tools/Makefile", "");
    writeFile(root / "notes.txt", std::string(100, 'n'));
    writeFile(root / "main.c", std::string(100, 'c'));
    EXPECT_EQ(recommend(), BackupProfile::developer);  // 20 + 12 + 12.5 = 44.5
}

TEST_F(RecommendProfileTest, OnePackageOfTheEvidenceTableWinsAlone) {
    writeFile(root / "Wedding.fcpbundle/Info.plist", "x");
    writeFile(root / "notes.txt", std::string(1000, 'n'));
    EXPECT_EQ(recommendProfile(listSource(root.path(), filterForProfile(BackupProfile::film)),
                               root.path()),
              BackupProfile::film);
}

TEST_F(RecommendProfileTest, ABytesShareAloneNeverWins) {
    writeFile(root / "a.mov", std::string(5000, 'v'));
    writeFile(root / "b.mp4", std::string(5000, 'v'));
    EXPECT_EQ(recommend(), BackupProfile::standard);
}

TEST_F(RecommendProfileTest, ExcludedFoldersStillCountAsMarkers) {
    writeFile(root / "node_modules/left-pad/index.js", "x");
    writeFile(root / "Cargo.toml", "");
    EXPECT_EQ(recommendProfile(listSource(root.path(), filterForProfile(BackupProfile::standard)),
                               root.path()),
              BackupProfile::developer);
}

TEST(ScanMarkers, WeighsTheTopTwentyAndOneLevelDownTwelve) {
    TemporaryFolder root;
    makeFolder(root / "App.xcodeproj");
    makeFolder(root / "src/.git");
    writeFile(root / "src/deeper/go.mod", "");  // two levels down: not scanned
    makeFolder(root / "Render Files");
    std::map<BackupProfile, double> scores;
    scanMarkers(root.path(), 0, scores);
    EXPECT_DOUBLE_EQ(scores[BackupProfile::developer], 20.0 + 12.0);
    EXPECT_DOUBLE_EQ(scores[BackupProfile::film], 20.0);
}

TEST(ScanMarkers, LooksIntoThirtySubfoldersAtMost) {
    TemporaryFolder root;
    for (int i = 0; i < 31; ++i)
        writeFile(root / ("module" + std::to_string(i)) / "go.mod", "");
    std::map<BackupProfile, double> scores;
    scanMarkers(root.path(), 0, scores);
    EXPECT_DOUBLE_EQ(scores[BackupProfile::developer], 30 * 12.0);
}

}  // namespace
}  // namespace quillstow
