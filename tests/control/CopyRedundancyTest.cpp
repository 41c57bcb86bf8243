// How many copies of each source exist, and whether the source itself is gone.

#include <gtest/gtest.h>

#include "TestTree.hpp"
#include "control/CopyRedundancy.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

class CopyRedundancyTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    std::vector<std::string> roots{(root / "media").native() + "/"};
    std::vector<MountTable::Mount> onlyRoot{{"/", "/dev/vda", false, "ext4"}};

    BackupPair pair(const fs::path& source, const fs::path& destination) {
        BackupPair made;
        made.id = Uuid::random();
        made.sourceURL = source;
        made.destinationURL = destination;
        return made;
    }

    std::map<Uuid, CopyRedundancy> verdicts(const std::vector<BackupPair>& pairs) {
        return computeCopyRedundancy(pairs, onlyRoot, roots);
    }
};

TEST_F(CopyRedundancyTest, CountsTheSeparatePlacesThatHoldASource) {
    makeFolder(root / "work");
    const BackupPair single = pair(root / "work", "/media/u/A");
    EXPECT_EQ(verdicts({single}).at(single.id), CopyRedundancy::singleBackup());

    BackupPair withOffsite = single;
    withOffsite.offsiteURL = root / "Dropbox";
    EXPECT_EQ(verdicts({withOffsite}).at(single.id), CopyRedundancy::redundant(2));

    const BackupPair second = pair(root / "work/", "/media/u/B");
    auto both = verdicts({single, second});
    EXPECT_EQ(both.at(single.id), CopyRedundancy::redundant(2));
    EXPECT_EQ(both.at(second.id), CopyRedundancy::redundant(2)) << "one source, one verdict";

    const BackupPair sameDrive = pair(root / "work", "/media/u/A/");
    both = verdicts({single, sameDrive});
    EXPECT_EQ(both.at(single.id), CopyRedundancy::singleBackup()) << "one place counts once";
    EXPECT_EQ(both.at(sameDrive.id), CopyRedundancy::singleBackup());
}

TEST_F(CopyRedundancyTest, ASourceGoneFromItsDiskLeavesTheOnlyCopy) {
    const BackupPair deleted = pair(root / "deleted-work", "/media/u/A");
    EXPECT_EQ(verdicts({deleted}).at(deleted.id), CopyRedundancy::onlyCopy());
    BackupPair withOffsite = deleted;
    withOffsite.offsiteURL = root / "Dropbox";
    EXPECT_EQ(verdicts({withOffsite}).at(deleted.id), CopyRedundancy::redundant(2));
}

TEST_F(CopyRedundancyTest, ASourceOnAnUnpluggedDriveIsNotTakenForGone) {
    const BackupPair away = pair(root / "media/Photos/Shoot", "/media/u/A");
    EXPECT_EQ(verdicts({away}).at(away.id), CopyRedundancy::singleBackup());
    EXPECT_EQ(computeCopyRedundancy({away}, {}, roots).at(away.id), CopyRedundancy::singleBackup())
        << "nothing mounted: nothing can be said";
}

}  // namespace
}  // namespace quillstow
