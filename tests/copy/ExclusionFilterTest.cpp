// What a pass leaves out, which folders it copies whole, and which profile a folder suggests.

#include <gtest/gtest.h>

#include <functional>

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

struct RecommendationCase {
    const char* name;
    std::function<void(const fs::path& root)> make;
    BackupProfile profile;
    // The listing's filter: a package is an item only for the profiles that know it.
    BackupProfile listedFor = BackupProfile::standard;
};

// Listing a real folder, so that the recommendation also scans its real markers. Markers weigh
// 20 at the top and 12 a level down; 40 wins.
TEST(RecommendProfile, WeighsPackagesMarkersAndTheShareOfBytes) {
    const auto file = [](const fs::path& path, std::size_t size) {
        writeFile(path, std::string(size, 'x'));
    };
    const RecommendationCase cases[] = {
        {"an empty folder is standard", [](const fs::path&) {}, BackupProfile::standard},
        {"two marker files at the top make forty and win",
         [&](const fs::path& r) { file(r / "package.json", 0), file(r / "yarn.lock", 0); },
         BackupProfile::developer},
        {"one marker at the top and one below make thirty-two and lose",
         [&](const fs::path& r) {
             file(r / "package.json", 0), file(r / "tools/Makefile", 0);
             file(r / "notes.txt", 100), file(r / "main.c", 99);
         },
         BackupProfile::standard},
        {"exactly half the bytes in code adds twelve and a half to win",
         [&](const fs::path& r) {
             file(r / "package.json", 0), file(r / "tools/Makefile", 0);
             file(r / "notes.txt", 100), file(r / "main.c", 100);
         },
         BackupProfile::developer},
        {"one package of the evidence table wins alone",
         [&](const fs::path& r) {
             file(r / "Wedding.fcpbundle/Info.plist", 1), file(r / "notes.txt", 1000);
         },
         BackupProfile::film, BackupProfile::film},
        {"a share of bytes alone never wins",
         [&](const fs::path& r) { file(r / "a.mov", 5000), file(r / "b.mp4", 5000); },
         BackupProfile::standard},
        {"excluded folders still count as markers",
         [&](const fs::path& r) {
             file(r / "node_modules/left-pad/index.js", 1), file(r / "Cargo.toml", 0);
         },
         BackupProfile::developer},
        {"a TIFF is film's, the first category that holds it, whatever its case",
         [&](const fs::path& r) {
             makeFolder(r / "Render Files"), makeFolder(r / "Previews.lrdata");
             file(r / "scan.TIF", 1000);
         },
         BackupProfile::film},
        {"a JPEG's bytes count half: all the bytes make a share of one half",
         [&](const fs::path& r) {
             makeFolder(r / "Previews.lrdata"), makeFolder(r / "sub/Smart Previews.lrdata");
             file(r / "shot.JPEG", 1000);
         },
         BackupProfile::photography},
        {"a JPEG's bytes count half: half the bytes make a quarter, no bonus",
         [&](const fs::path& r) {
             makeFolder(r / "Previews.lrdata"), makeFolder(r / "sub/Smart Previews.lrdata");
             file(r / "shot.JPEG", 1000), file(r / "notes.bin", 1000);
         },
         BackupProfile::standard},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder root;
        c.make(root.path());
        EXPECT_EQ(
            recommendProfile(listSource(root.path(), filterForProfile(c.listedFor)), root.path()),
            c.profile);
    }
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
