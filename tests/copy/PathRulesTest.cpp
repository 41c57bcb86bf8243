// The rules on the two paths, in their binding order, and the checks during a pass.

#include <gtest/gtest.h>

#include <tuple>

#include "TestTree.hpp"
#include "copy/PathRules.hpp"
#include "copy/VolumeWatch.hpp"
#include "support/FileInfo.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

// The code a pair of paths is refused with, and the url named; 0 when accepted.
std::pair<int, fs::path> verdict(const fs::path& source, const fs::path& destination) {
    try {
        validatePaths(source, destination);
        return {0, {}};
    } catch (const FileOperationFailure& failure) {
        EXPECT_EQ(failure.error().operation, "validatePath");
        EXPECT_EQ(failure.error().underlying.domain, "Quillstow");
        return {failure.error().underlying.code, failure.error().url};
    }
}

TEST(ValidatePaths, RefusesInTheBindingOrder) {
    const fs::path home = homeFolders().front();
    struct Case {
        const char* name;
        fs::path source;
        fs::path destination;
        int code;
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
        {"protected, deep", "/data/Work", "/private/var/db/x", 1103, false},
        {"only a prefix of a protected row", "/data/Work",
         "/Library/Application Support/com.apple.backup", 0, false},
        {"protected on Linux", "/data/Work", "/proc/self", 1103, false},
        {"system state on Linux", "/data/Work", "/var/lib/backups", 1103, false},
        {"runtime folder", "/data/Work", "/run", 1103, false},
        {"another runtime folder", "/data/Work", "/run/user/1000/backup", 1103, false},
        {"a drive under /run/media", "/data/Work", "/run/media/ana/Drive/Quillstow/Work", 0, false},
        {"the drives' own folder", "/data/Work", "/run/media", 0, false},
        {"a look-alike of that folder", "/data/Work", "/run/mediafiles", 1103, false},
        {"kernel interface", "/data/Work", "/sys", 1103, false},
        {"a drive", "/data/Work", "/media/ana/Drive/Quillstow/Work", 0, false},
        {"home", "/data/Work", home, 1104, false},
        {"home, trailing slash", "/data/Work", home.native() + "/", 1104, false},
        {"a folder in home", "/data/Work", home / "Backups", 0, false},
        {"var, not protected", "/data/Work", "/var/backups/work", 0, false},
    };
    for (const auto& c : cases) {
        const auto [code, url] = verdict(c.source, c.destination);
        EXPECT_EQ(code, c.code) << c.name;
        if (code != 0) {
            EXPECT_EQ(url, c.namesSource ? c.source : c.destination) << c.name;
        }
    }
}

TEST(ValidatePaths, SpeaksInTheSystemsWords) {
    const std::pair<fs::path, const char*> cases[] = {
        {"/data/Work",
         "Source and destination are the same folder. Choose a different destination."},
        {"/data/Work/In",
         "Destination is inside the source folder. Choose a different destination."},
        {"/data", "Source folder is inside the destination. Choose a different destination."},
        {"/usr", "Destination is a protected system folder. Choose a different destination."},
        {homeFolders().front(),
         "Destination cannot be your home folder. Choose a subfolder or external drive."},
    };
    for (const auto& [destination, message] : cases) {
        try {
            validatePaths("/data/Work", destination);
            ADD_FAILURE() << destination;
        } catch (const FileOperationFailure& failure) {
            EXPECT_EQ(failure.error().underlying.description, message);
        }
    }
}

// Each folder's path must still lead to a folder on the device the pass opened it on.
TEST(CheckVolumes, ReportsTheSourceFirstThenTheDestination) {
    TemporaryFolder root;
    makeFolder(root / "source");
    makeFolder(root / "mirror");
    writeFile(root / "file", "not a folder");
    const dev_t device = files::readInfo(root / "source")->device;
    const auto check = [&](const char* source, const char* destination, dev_t mirrorDevice) {
        return VolumeWatch(root / source, device, root / destination, mirrorDevice).check();
    };
    EXPECT_FALSE(check("source", "mirror", device));

    const auto sourceGone = check("gone", "also-gone", device);
    ASSERT_TRUE(sourceGone);
    EXPECT_EQ(sourceGone->operation, "sourceVolumeCheck");
    EXPECT_EQ(sourceGone->url, root / "gone");
    EXPECT_EQ(sourceGone->underlying.code, 1006);

    for (const auto& [name, destination, mirrorDevice] :
         {std::tuple{"a file", "file", device},
          std::tuple{"another device", "mirror", device + 1}}) {
        const auto destinationGone = check("source", destination, mirrorDevice);
        ASSERT_TRUE(destinationGone) << name;
        EXPECT_EQ(destinationGone->operation, "destinationVolumeCheck");
        EXPECT_EQ(destinationGone->underlying,
                  errors::quillstow(ErrorCode::destinationVolumeLost,
                                    "Destination volume disconnected during backup — aborting."));
    }

    const auto beforeArchival = checkSourceBeforeArchival(root / "gone");
    ASSERT_TRUE(beforeArchival);
    EXPECT_EQ(beforeArchival->operation, "archive");
    EXPECT_EQ(beforeArchival->underlying.description,
              "Source became unreachable before archival — skipping archival to protect backups.");
}

}  // namespace
}  // namespace quillstow
