// The rules that decide before a pass touches anything: what it leaves out, which folders it
// copies whole, which pairs of paths it refuses, and when a volume has left in the middle of a
// pass.

#include <gtest/gtest.h>

#include "TestTree.hpp"
#include "copy/ExclusionFilter.hpp"
#include "copy/PathRules.hpp"
#include "copy/VolumeWatch.hpp"
#include "support/FileInfo.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;
using Profile = BackupProfile;

TEST(MatchesPattern, TakesTheFirstOccurrenceAndNeverBacktracks) {
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"a.tmp", "*.tmp", true},
        {"a.tmp.tmp", "*.tmp", false},  // the first ".tmp" doesn't end the name
        {".tmp", "*.tmp", true},
        {"A.TMP", "*.tmp", true},
        {"tmp", "*.tmp", false},
        {"THUMBS.DB", "Thumbs.db", true},
        {"Thumbs.db.bak", "Thumbs.db", false},
        {".ENV.Staging.LOCAL", ".env.*.local", true},
        {".env.local", ".env.*.local", false},
        {"x.env.a.local", ".env.*.local", false},
        {"", "*", true},
        {"abc", "a**c", true},
        {"abcbc", "a*bc", false},  // the first "bc" doesn't end the name either
        {"abXbc", "*b*c", true},
        {"acb", "a*b*c", false},
    };
    for (const auto& [name, pattern, matches] : cases)
        EXPECT_EQ(matchesPattern(name, pattern), matches) << name << " ~ " << pattern;
}

// Names compare with their case, patterns and extensions without; patterns and extensions never
// exclude a folder.
TEST(ExclusionFilter, LeavesOutTheNamesPatternsAndExtensionsOfItsProfile) {
    struct Case {
        Profile profile;
        const char* name;
        bool isFolder;
        bool excluded;
    };
    const Case cases[] = {
        {Profile::standard, "build", true, true},
        {Profile::standard, "Build", true, true},
        {Profile::standard, "BUILD", true, false},
        {Profile::standard, "THUMBS.DB", false, true},
        {Profile::standard, "Thumbs.db", true, false},
        {Profile::standard, ".env.Production.local", false, true},
        {Profile::standard, ".ENV.LOCAL", false, false},
        {Profile::standard, ".DS_Store", false, true},
        {Profile::standard, ".Quillstow-Trash", true, true},
        {Profile::standard, "notes.tmp", false, false},
        {Profile::standard, "Render Files", true, false},
        {Profile::film, "NOTES.TMP", false, true},
        {Profile::film, "notes.tmp", true, false},
        {Profile::film, "Render Files", true, true},
        {Profile::developer, "main.o", false, true},
        {Profile::developer, "App.dSYM", false, false},  // kept with its capitals: no extension
        {Profile::photography, "Thumbnails", true, true},
        {Profile::music, "kick.asd", false, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(filterForProfile(c.profile).isExcluded(c.name, c.isFolder), c.excluded)
            << c.name << " under " << int(c.profile);
    }
}

TEST(PackageUnits, AreChosenByExtensionAndProfile) {
    for (const auto& [profile, name] : backupProfileNames) {
        EXPECT_TRUE(isPackageUnit("APP", profile)) << name;
        EXPECT_TRUE(isPackageUnit("photoslibrary", profile)) << name;
    }
    const std::tuple<const char*, Profile, bool> cases[] = {
        {"logicx", Profile::music, true},   {"logicx", Profile::standard, false},
        {"fcpbundle", Profile::film, true}, {"lrcat", Profile::photography, true},
        {"lrcat", Profile::film, false},    {"", Profile::standard, false},
    };
    for (const auto& [extension, profile, unit] : cases)
        EXPECT_EQ(isPackageUnit(extension, profile), unit) << extension;
}

TEST(ValidatePaths, RefusesInTheBindingOrder) {
    const fs::path home = homeFolders().front();
    struct Case {
        const char* name;
        fs::path source;
        fs::path destination;
        int code;  // 0 when accepted
        bool namesSource;
    };
    const Case cases[] = {
        {"same folder", "/data/Work", "/data/Work", 1100, false},
        {"same folder, trailing slash", "/data/Work/", "/data/Work", 1100, false},
        {"same folder, dots", "/data/x/../Work", "/data/./Work", 1100, false},
        {"destination inside source", "/data/Work", "/data/Work/Backup", 1101, false},
        {"sibling with a longer name", "/data/Work", "/data/Work Backup", 0, false},
        {"sibling by prefix", "/data/Work", "/data/Workshop", 0, false},
        {"source inside destination", "/data/Work/Film", "/data/Work", 1102, true},
        {"root as destination", "/data/Work", "/", 1102, true},
        {"protected", "/data/Work", "/usr/local/backups", 1103, false},
        {"protected row itself", "/data/Work", "/etc", 1103, false},
        {"only a prefix of a protected row", "/data/Work",
         "/Library/Application Support/com.apple.backup", 0, false},
        {"protected on Linux", "/data/Work", "/proc/self", 1103, false},
        {"system state on Linux", "/data/Work", "/var/lib/backups", 1103, false},
        {"runtime folder", "/data/Work", "/run/user/1000/backup", 1103, false},
        {"a drive under /run/media", "/data/Work", "/run/media/ana/Drive/Quillstow/Work", 0, false},
        {"the drives' own folder", "/data/Work", "/run/media", 0, false},
        {"a look-alike of that folder", "/data/Work", "/run/mediafiles", 1103, false},
        {"a drive", "/data/Work", "/media/ana/Drive/Quillstow/Work", 0, false},
        {"home", "/data/Work", home, 1104, false},
        {"home, trailing slash", "/data/Work", home.native() + "/", 1104, false},
        {"a folder in home", "/data/Work", home / "Backups", 0, false},
        {"var, not protected", "/data/Work", "/var/backups/work", 0, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        try {
            validatePaths(c.source, c.destination);
            EXPECT_EQ(c.code, 0);
        } catch (const FileOperationFailure& failure) {
            EXPECT_EQ(failure.error().underlying.code, c.code);
            EXPECT_EQ(failure.error().operation, "validatePath");
            EXPECT_EQ(failure.error().url, c.namesSource ? c.source : c.destination);
        }
    }
}

// Each folder's path must still lead to a folder on the device the pass opened it on; the
// source is judged first.
TEST(CheckVolumes, NamesTheFirstFolderThatLeftItsVolume) {
    TemporaryFolder root;
    makeFolder(root / "source");
    makeFolder(root / "mirror");
    writeFile(root / "file", "not a folder");
    const dev_t device = files::readInfo(root / "source")->device;
    struct Case {
        const char* name;
        const char* source;
        const char* destination;
        dev_t mirrorDevice;
        const char* operation;  // "" when both are in place
        int code;
    };
    const Case cases[] = {
        {"both in place", "source", "mirror", device, "", 0},
        {"both gone", "gone", "also-gone", device, "sourceVolumeCheck", 1006},
        {"a file where the mirror was", "source", "file", device, "destinationVolumeCheck", 1007},
        {"another device", "source", "mirror", device + 1, "destinationVolumeCheck", 1007},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto lost =
            VolumeWatch(root / c.source, device, root / c.destination, c.mirrorDevice).check();
        EXPECT_EQ(lost ? lost->operation : "", c.operation);
        EXPECT_EQ(lost ? lost->underlying.code : 0, c.code);
    }
    EXPECT_EQ(checkSourceBeforeArchival(root / "gone")->underlying.code, 1006);
    EXPECT_FALSE(checkSourceBeforeArchival(root / "source"));
}

}  // namespace
}  // namespace quillstow
