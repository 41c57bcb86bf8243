// One item into place: metadata kept, the old copy safe through every failed attempt, one
// retry after a transient error and none after a final one, the check after the copy, and the
// sweep of leftovers.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "FaultyFileSystem.hpp"
#include "TestTree.hpp"
#include "copy/FileTransfer.hpp"
#include "model/Results.hpp"

namespace quillstow {
namespace {

using namespace testing;
using Op = FaultyFileSystem::Operation;
namespace fs = std::filesystem;

class FileTransferTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    FaultyFileSystem fileSystem;
    fs::path source = root / "source/report.txt";
    fs::path destination = root / "mirror/deep/report.txt";

    std::vector<std::string> leftovers(const fs::path& folder) const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder)) {
            const std::string name = entry.path().filename();
            if (transfer::isReservedName(name)) names.push_back(name);
        }
        return names;
    }

    void expectFailureWith(int errnoValue) {
        try {
            transfer::copyFile(fileSystem, source, destination);
            ADD_FAILURE() << "copy succeeded";
        } catch (const Failure& failure) {
            EXPECT_TRUE(errors::isPosix(failure.error(), errnoValue))
                << failure.error().description;
        }
    }
};

TEST_F(FileTransferTest, KeepsModeTimesToTheNanosecondAndExtendedAttributes) {
    writeFile(source, "quarterly numbers");
    ASSERT_EQ(::setxattr(source.c_str(), "user.colour", "red", 3, 0), 0);
    ASSERT_EQ(::chmod(source.c_str(), 0640), 0);
    setModificationDate(source, referenceDate());

    EXPECT_EQ(transfer::copyFile(fileSystem, source, destination), 17);

    EXPECT_EQ(readFile(destination), "quarterly numbers");
    EXPECT_EQ(modificationDate(destination), referenceDate());
    struct stat status {};
    ASSERT_EQ(::stat(destination.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    char value[8] = {};
    EXPECT_EQ(::getxattr(destination.c_str(), "user.colour", value, sizeof value), 3);
    EXPECT_STREQ(value, "red");
    EXPECT_TRUE(leftovers(destination.parent_path()).empty());
}

TEST_F(FileTransferTest, KeepsTheOwnerWherePermitted) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root may give a file to another owner";
    writeFile(source, "x");
    ASSERT_EQ(::chown(source.c_str(), 1234, 5678), 0);
    transfer::copyFile(fileSystem, source, destination);
    struct stat status {};
    ASSERT_EQ(::stat(destination.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 1234u);
    EXPECT_EQ(status.st_gid, 5678u);
}

TEST_F(FileTransferTest, AnEmptyFileIsCopiedAndCountsNoBytes) {
    writeFile(source, "");
    EXPECT_EQ(transfer::copyFile(fileSystem, source, destination), 0);
    EXPECT_TRUE(fs::is_regular_file(destination));
    EXPECT_EQ(fs::file_size(destination), 0u);
}

TEST_F(FileTransferTest, ATransientSwapFailureIsRetriedOnceUnderANewName) {
    writeFile(destination, "old");
    writeFile(source, "new version");
    fileSystem.failNext(Op::replaceItem, EIO);

    EXPECT_EQ(transfer::copyFile(fileSystem, source, destination), 11);

    EXPECT_EQ(readFile(destination), "new version");
    EXPECT_EQ(fileSystem.calls(Op::copyItem), 2);
    // The first attempt's temporary file stays until the next sweep.
    const auto left = leftovers(destination.parent_path());
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(readFile(destination.parent_path() / left[0]), "new version");
    transfer::removeStaleTemporaries(fileSystem, root / "mirror");
    EXPECT_TRUE(leftovers(destination.parent_path()).empty());
}

TEST_F(FileTransferTest, EveryTransientErrorGetsExactlyOneMoreAttempt) {
    for (int errnoValue : {EINTR, EIO, EBUSY, EAGAIN}) {
        writeFile(source, "data");
        FaultyFileSystem fresh;
        fresh.failNext(Op::copyItem, errnoValue);
        EXPECT_EQ(transfer::copyFile(fresh, source, destination), 4);
        EXPECT_EQ(fresh.calls(Op::copyItem), 2);
    }
}

TEST_F(FileTransferTest, ASecondTransientFailureIsRaisedAndTheOldCopyStands) {
    writeFile(destination, "old copy");
    writeFile(source, "new copy!");
    fileSystem.failNext(Op::copyItem, EINTR, 2);
    expectFailureWith(EINTR);
    EXPECT_EQ(fileSystem.calls(Op::copyItem), 2);
    EXPECT_EQ(readFile(destination), "old copy");
    EXPECT_TRUE(leftovers(destination.parent_path()).empty());
}

TEST_F(FileTransferTest, FinalErrorsAreRaisedAtOnceWithoutASecondAttempt) {
    writeFile(destination, "old copy");
    writeFile(source, "new copy!");

    fileSystem.failNext(Op::copyItem, EPERM);
    expectFailureWith(EPERM);
    EXPECT_EQ(fileSystem.calls(Op::copyItem), 1);

    fileSystem.failNext(Op::replaceItem, ENOSPC);
    expectFailureWith(ENOSPC);
    EXPECT_EQ(fileSystem.calls(Op::copyItem), 2);
    EXPECT_EQ(fileSystem.calls(Op::replaceItem), 1);

    EXPECT_EQ(readFile(destination), "old copy");
}

TEST_F(FileTransferTest, AFolderThatCannotBeMadeIsACreateDirectoryFailure) {
    writeFile(source, "x");
    writeFile(root / "mirror/deep", "a file where a folder should be");
    try {
        transfer::copyFile(fileSystem, source, destination);
        ADD_FAILURE() << "copy succeeded";
    } catch (const FileOperationFailure& failure) {
        EXPECT_EQ(failure.error().operation, "createDirectory");
        EXPECT_EQ(failure.error().url, root / "mirror/deep");
    }
    EXPECT_EQ(readFile(root / "mirror/deep"), "a file where a folder should be");
}

TEST_F(FileTransferTest, AFolderIsCopiedWholeWithItsLinksAndReplacesTheOldOne) {
    const fs::path package = root / "source/Song.band";
    const fs::path mirrored = root / "mirror/Song.band";
    writeFile(package / "Media/take1.wav", "take one");
    makeLink(package / "current", "Media/take1.wav");
    writeFile(mirrored / "Media/old-take.wav", "an older take");

    transfer::copyFile(fileSystem, package, mirrored);

    EXPECT_EQ(readFile(mirrored / "Media/take1.wav"), "take one");
    EXPECT_TRUE(fs::is_symlink(mirrored / "current"));
    EXPECT_EQ(fs::read_symlink(mirrored / "current"), "Media/take1.wav");
    EXPECT_FALSE(fs::exists(mirrored / "Media/old-take.wav"));
    EXPECT_TRUE(leftovers(root / "mirror").empty());
}

TEST(SameSize, ComparesSizesAndLetsAFolderMatchOnlyAFolder) {
    TemporaryFolder root;
    writeFile(root / "a", "12345");
    writeFile(root / "b", "54321");
    writeFile(root / "c", "1234");
    makeFolder(root / "d1");
    makeFolder(root / "d2");
    EXPECT_TRUE(transfer::sameSize(root / "a", root / "b"));
    EXPECT_FALSE(transfer::sameSize(root / "a", root / "c"));
    EXPECT_FALSE(transfer::sameSize(root / "a", root / "missing"));
    EXPECT_FALSE(transfer::sameSize(root / "missing", root / "a"));
    EXPECT_TRUE(transfer::sameSize(root / "d1", root / "d2"));
    EXPECT_FALSE(transfer::sameSize(root / "d1", root / "a"));
}

TEST(RemoveStaleTemporaries, SweepsReservedNamesAnywhereAndNothingElse) {
    TemporaryFolder root;
    writeFile(root / "mirror/.quillstowtmp-1234ABCD-a.txt", "partial");
    writeFile(root / "mirror/x/y/.quillstowresume-100-big.mov", "partial");
    writeFile(root / "mirror/x/.quillstowtmp-99999999-Song.band/inner", "partial tree");
    writeFile(root / "mirror/x/keep.txt", "keep");
    writeFile(root / "mirror/quillstowtmp-no-dot", "keep");
    FaultyFileSystem fileSystem;
    transfer::removeStaleTemporaries(fileSystem, root / "mirror");
    EXPECT_EQ(filesBelow(root / "mirror"),
              (std::map<std::string, std::string>{{"quillstowtmp-no-dot", "keep"},
                                                  {"x/keep.txt", "keep"}}));
    EXPECT_FALSE(fs::exists(root / "mirror/x/.quillstowtmp-99999999-Song.band"));
    transfer::removeStaleTemporaries(fileSystem, root / "nothing-here");
}

TEST(TemporaryName, IsFreshForEachAttempt) {
    const std::string first = transfer::temporaryName("report.txt");
    EXPECT_TRUE(first.starts_with(".quillstowtmp-"));
    EXPECT_TRUE(first.ends_with("-report.txt"));
    EXPECT_EQ(first.size(), std::string(".quillstowtmp-12345678-report.txt").size());
    EXPECT_NE(first, transfer::temporaryName("report.txt"));
}

}  // namespace
}  // namespace quillstow
