// How many separate copies of each source exist, and whether the source itself is gone.

#include <gtest/gtest.h>

#include "Pairs.hpp"
#include "TestTree.hpp"
#include "control/CopyRedundancy.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

TEST(CopyRedundancy, CountsSeparatePlacesAndNeverTakesAnUnpluggedSourceForGone) {
    TemporaryFolder root;
    makeFolder(root / "work");
    const std::vector<std::string> roots{(root / "media").native() + "/"};
    const std::vector<MountTable::Mount> onlyRoot{{"/", "/dev/vda", false, "ext4"}};
    auto pair = [](const fs::path& source, const fs::path& destination, fs::path offsite = {}) {
        BackupPair made = pairOf("", source, destination);
        if (!offsite.empty()) made.offsiteURL = offsite;
        return made;
    };
    struct Case {
        const char* name;
        std::vector<BackupPair> pairs;
        std::vector<MountTable::Mount> mounts;
        CopyRedundancy expected;  // the same for every pair of the case
    };
    const Case cases[] = {
        {"one backup",
         {pair(root / "work", "/media/u/A")},
         onlyRoot,
         CopyRedundancy::singleBackup()},
        {"an offsite folder is a copy of its own",
         {pair(root / "work", "/media/u/A", root / "Dropbox")},
         onlyRoot,
         CopyRedundancy::redundant(2)},
        {"two places, one verdict for one source",
         {pair(root / "work", "/media/u/A"), pair(root / "work/", "/media/u/B")},
         onlyRoot,
         CopyRedundancy::redundant(2)},
        {"one place counts once",
         {pair(root / "work", "/media/u/A"), pair(root / "work", "/media/u/A/")},
         onlyRoot,
         CopyRedundancy::singleBackup()},
        {"a source gone from its disk",
         {pair(root / "gone", "/media/u/A")},
         onlyRoot,
         CopyRedundancy::onlyCopy()},
        {"gone, but copied offsite too",
         {pair(root / "gone", "/media/u/A", root / "Dropbox")},
         onlyRoot,
         CopyRedundancy::redundant(2)},
        {"a source on an unplugged drive",
         {pair(root / "media/Photos/Shoot", "/media/u/A")},
         onlyRoot,
         CopyRedundancy::singleBackup()},
        {"nothing mounted: nothing can be said",
         {pair(root / "gone", "/media/u/A")},
         {},
         CopyRedundancy::singleBackup()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto verdicts = computeCopyRedundancy(c.pairs, c.mounts, roots);
        for (const BackupPair& each : c.pairs)
            EXPECT_EQ(verdicts.at(each.id), c.expected);
    }
}

}  // namespace
}  // namespace quillstow
