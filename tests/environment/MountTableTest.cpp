// What is mounted, from the kernel's table: the longest mount of a path by its exact bytes, the
// escapes of the table, network shares, drives that are not there, duplicate shares, and the
// volumes a user would recognise in the order a file manager shows them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LogCapture.hpp"
#include "TestTree.hpp"
#include "environment/MountTable.hpp"
#include "environment/VolumeMonitor.hpp"
#include "environment/Volumes.hpp"

namespace quillstow {
namespace {

using namespace testing;
using MountTable::Mount;
using ::testing::ElementsAre;
namespace fs = std::filesystem;

Mount local(std::string point, std::string source = "/dev/sdb1", std::string type = "ext4") {
    return {std::move(point), std::move(source), false, std::move(type)};
}

Mount network(std::string point, std::string source) {
    return {std::move(point), std::move(source), true, "cifs"};
}

std::optional<std::string> mountPointFor(std::string_view path, const std::vector<Mount>& in) {
    const auto found = MountTable::mount(path, in);
    if (!found) return std::nullopt;
    return found->mountPoint;
}

TEST(MountForPath, TakesTheLongestMountPointThatMatchesByItsExactBytesAndMountsOfASourceAll) {
    const std::vector<Mount> mounts{local("/", "/dev/vda"), local("/media/u/Photos"),
                                    local("/media/u/Photos 2", "/dev/sdc1"),
                                    local("/media/u/backup", "/dev/sdd1")};
    const struct {
        const char* path;
        const char* mountPoint;
    } cases[] = {
        {"/media/u/Photos 2/a", "/media/u/Photos 2"},
        {"/media/u/Photos/a", "/media/u/Photos"},
        {"/media/u/Photos", "/media/u/Photos"},
        {"/media/u/Photos2", "/"},   // no slash after the name
        {"/media/u/PHOTOS/a", "/"},  // case counts: another folder of the disk above
        {"/media/u/Backup", "/"},    // not the drive mounted at /media/u/backup
        {"/media/u/backup/x", "/media/u/backup"},
        {"/home/u", "/"},
    };
    for (const auto& test : cases)
        EXPECT_EQ(mountPointFor(test.path, mounts), test.mountPoint) << test.path;
    EXPECT_FALSE(mountPointFor("/home/u", {local("/media/u/Photos")}));

    // Of two mounts at one point the first in the table is kept.
    const auto first = MountTable::mount(
        "/mnt/x/y", {local("/mnt/x", "/dev/first"), local("/mnt/x", "/dev/second")});
    EXPECT_EQ(first->source, "/dev/first");

    // Every mount of one source, its case counting.
    const auto shares =
        MountTable::mounts("//nas/share", {network("/media/u/Share", "//nas/share"),
                                           network("/media/u/Share-1", "//nas/share"),
                                           network("/media/u/Other", "//NAS/share")});
    ASSERT_EQ(shares.size(), 2u);
    EXPECT_EQ(shares[1].mountPoint, "/media/u/Share-1");
}

TEST(MountSnapshot, DecodesTheEscapesOfTheTableAndKnowsNetworkSharesByType) {
    TemporaryFolder root;
    writeFile(root / "mountinfo",
              "22 1 254:0 / / rw,relatime - ext4 /dev/vda rw\n"
              "40 22 8:17 / /media/u/Photos\\0402 rw,nosuid - exfat /dev/sdb1 rw\n"
              "41 22 0:50 / /media/u/Share rw - cifs //nas/share rw,vers=3.0\n"
              "42 22 0:51 / /home/u/remote rw - fuse.sshfs u@host:/srv rw\n"
              "43 22 0:52 / /mnt/nfs rw - nfs4 host:/export rw\n");
    const auto mounts = MountTable::snapshot(root / "mountinfo");
    ASSERT_EQ(mounts.size(), 5u);
    EXPECT_EQ(mounts[1].mountPoint, "/media/u/Photos 2");
    EXPECT_EQ(mounts[1].source, "/dev/sdb1");
    EXPECT_FALSE(mounts[1].isNetwork);
    EXPECT_TRUE(mounts[2].isNetwork);
    EXPECT_TRUE(mounts[3].isNetwork);
    EXPECT_TRUE(mounts[4].isNetwork);
    EXPECT_TRUE(MountTable::snapshot(root / "missing").empty());
    EXPECT_FALSE(MountTable::snapshot().empty()) << "this process's own table";
}

TEST(MissingDrive, IsAPathBelowARemovableRootHeldByAMountAboveIt) {
    EXPECT_TRUE(isMissingDrive("/media/u/Drive/Backups", local("/", "/dev/vda")));
    EXPECT_TRUE(isMissingDrive("/run/media/u/Drive", local("/run", "tmpfs", "tmpfs")));
    EXPECT_TRUE(isMissingDrive("/Volumes/Photos/a", local("/", "/dev/vda")));
    EXPECT_FALSE(isMissingDrive("/MEDIA/u/Drive", local("/", "/dev/vda"))) << "case counts";
    EXPECT_FALSE(isMissingDrive("/media/u/Drive/Backups", local("/media/u/Drive")));
    EXPECT_FALSE(isMissingDrive("/mnt/backup", local("/mnt"))) << "a drive at the root itself";
    EXPECT_FALSE(isMissingDrive("/home/u/Backups", local("/", "/dev/vda")));
    EXPECT_FALSE(isMissingDrive("/mediafiles/x", local("/", "/dev/vda")));
}

// One rule for both questions: reachable exactly when the state is present. The mount by the
// path as written, the folder by what it leads to.
TEST(DestinationRule, JudgesByTheMountFirstAndThenByTheFolderAfterLinks) {
    TemporaryFolder root;
    makeFolder(root / "home/Backups");
    makeLink(root / "home/Link", root / "home/Backups");
    makeLink(root / "home/IntoDrive", root / "media/Drive/Backups");
    writeFile(root / "home/File", "not a folder");
    makeFolder(root / "media/Drive/Backups");  // a stale folder where a drive was
    const Volumes volumes({(root / "media").native() + "/"});
    const std::vector<Mount> onlyRoot{local("/", "/dev/vda")};
    const std::vector<Mount> withDrive{local("/", "/dev/vda"),
                                       local((root / "media/Drive").native())};
    using State = DestinationState;
    const struct {
        const char* name;
        fs::path path;
        std::vector<Mount> mounts;
        State expected;
    } cases[] = {
        {"a folder", root / "home/Backups", onlyRoot, State::present},
        {"a link to a folder", root / "home/Link", onlyRoot, State::present},
        {"a link into a missing drive, judged by the link", root / "home/IntoDrive", onlyRoot,
         State::present},
        {"a file", root / "home/File", onlyRoot, State::folderMissing},
        {"nothing", root / "home/Gone", onlyRoot, State::folderMissing},
        {"a stale folder of a drive not there", root / "media/Drive/Backups", onlyRoot,
         State::notMounted},
        {"an empty table", root / "home/Backups", {}, State::notMounted},
        {"the drive mounted", root / "media/Drive/Backups", withDrive, State::present},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(volumes.destinationState(c.path, c.mounts), c.expected) << c.name;
        // The real table holds these paths by the root or /tmp, as `onlyRoot` does.
        if (c.mounts == onlyRoot) {
            EXPECT_EQ(volumes.isDestinationReachable(c.path), c.expected == State::present)
                << c.name;
        }
    }
}

TEST(DuplicateMounts, AShareMountedTwiceIsLoggedOnceAndLocalDisksNever) {
    LogCapture log;
    const std::vector<Mount> shares{local("/", "/dev/vda"),
                                    network("/media/u/Share-1", "//nas/share"),
                                    network("/media/u/Share", "//nas/share")};
    logDuplicateMounts("/media/u/Share/Backups", shares);
    const auto lines = log.messages("BackupEngine");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(lines[0],
                ::testing::StartsWith("Destination volume is mounted 2 times: <mask.hash"));
    EXPECT_EQ(log.records()[0].level, LogLevel::error);
    EXPECT_EQ(lines[0].find("Share"), std::string::npos) << "the places stay private";

    const std::vector<Mount> disks{local("/", "/dev/vda"), local("/media/u/A", "/dev/sdb1"),
                                   local("/media/u/B", "/dev/sdb1")};
    logDuplicateMounts("/media/u/A/Backups", disks);
    logDuplicateMounts("/media/u/Share/x",
                       {local("/", "/dev/vda"), network("/media/u/Share", "//nas/share")});
    EXPECT_EQ(log.messages("BackupEngine").size(), 1u);
}

TEST(UserVolumes, AreSharesAndDisksOutsideTheSystemsFolders) {
    EXPECT_FALSE(isUserVolume(local("/", "/dev/vda")));
    EXPECT_TRUE(isUserVolume(network("/home/u/nas", "//nas/share")));
    EXPECT_TRUE(isUserVolume(local("/media/u/Photos", "/dev/sdb1", "exfat")));
    EXPECT_TRUE(isUserVolume(local("/run/media/u/Photos", "/dev/sdb1", "exfat")));
    EXPECT_TRUE(isUserVolume(local("/mnt/data", "/dev/sdc1")));
    EXPECT_FALSE(isUserVolume(local("/media/u/Scratch", "tmpfs", "tmpfs")));
    EXPECT_FALSE(isUserVolume(local("/boot/efi", "/dev/sda1", "vfat")));
    EXPECT_FALSE(isUserVolume(local("/run/user/1000/doc", "/dev/fuse", "fuse.portal")));
    EXPECT_FALSE(isUserVolume(local("/snap/core/1", "/dev/loop3", "squashfs")));
    EXPECT_FALSE(isUserVolume(local("/etc/hosts", "/dev/vda")));
}

TEST(UserVolumes, ComeInTheOrderAFileManagerShowsNames) {
    const auto volumes = listVolumes(
        {local("/", "/dev/vda"), network("/media/u/Disk 10", "//nas/ten"),
         network("/media/u/disk 3", "//nas/three"), network("/media/u/Disk 2", "//nas/two")});
    std::vector<std::string> names;
    for (const auto& volume : volumes)
        names.push_back(volume.name);
    EXPECT_THAT(names, ElementsAre("Disk 2", "disk 3", "Disk 10")) << "digits by value, any case";
    EXPECT_TRUE(volumes[0].isNetwork);
    EXPECT_FALSE(volumes[0].isExternal) << "a share says nothing of being internal";
    EXPECT_EQ(volumes[0].id, "/media/u/Disk 2");
}

TEST(UserVolumes, TheDiskOfTheRootHasItsSizesAndIsNoExternalDrive) {
    const auto mounts = MountTable::snapshot();
    const auto root = MountTable::mount("/", mounts);
    if (!root || !root->source.starts_with("/dev/")) GTEST_SKIP() << "the root is no disk here";
    const VolumeInfo volume = describeVolume(*root);
    EXPECT_GT(volume.totalSpace, 0);
    EXPECT_GE(volume.totalSpace, volume.freeSpace);
    EXPECT_FALSE(volume.isNetwork);
    EXPECT_FALSE(volume.name.empty());
}

}  // namespace
}  // namespace quillstow
