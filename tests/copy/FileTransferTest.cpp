// One item into place: metadata kept, the old copy safe through every failed attempt, one
// retry after a transient error and none after a final one, the check after the copy, and the
// sweep of leftovers.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <functional>
#include <optional>

#include "TestTree.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "copy/FileCopier.hpp"
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

TEST_F(FileTransferTest, ATransientErrorGetsOneMoreWholeAttemptAndTheOldCopyStandsOtherwise) {
    struct Case {
        const char* name;
        Op operation;
        int errnoValue;
        int times;
        int error;  // raised at the end, 0 when the copy goes in
        int copies;
        int leftovers;  // temporaries left beside the target for the next sweep
    };
    const Case cases[] = {
        {"a swap that failed once", Op::replaceItem, EIO, 1, 0, 2, 1},
        {"a copy that failed once", Op::copyItem, EAGAIN, 1, 0, 2, 0},
        {"a copy that failed twice", Op::copyItem, EINTR, 2, EINTR, 2, 0},
        {"a final copy error", Op::copyItem, EPERM, 1, EPERM, 1, 0},
        {"a final swap error", Op::replaceItem, ENOSPC, 1, ENOSPC, 1, 1},
    };
    for (const auto& c : cases) {
        fs::remove_all(root / "mirror");
        writeFile(destination, "old");
        writeFile(source, "new version");
        FaultyFileSystem faulty;
        faulty.failNext(c.operation, c.errnoValue, c.times);
        int error = 0;
        try {
            EXPECT_EQ(transfer::copyFile(faulty, source, destination), 11) << c.name;
        } catch (const Failure& failure) {
            error = failure.error().code;
        }
        EXPECT_EQ(error, c.error) << c.name;
        EXPECT_EQ(faulty.calls(Op::copyItem), c.copies) << c.name;
        EXPECT_EQ(readFile(destination), c.error ? "old" : "new version") << c.name;
        const auto left = leftovers(destination.parent_path());
        EXPECT_EQ(int(left.size()), c.leftovers) << c.name;
        const FileCopier copier(faulty);
        copier.removeStaleTemporaries(
            copier.planPass(root / "source", root / "mirror", ExclusionFilter{}));
        EXPECT_TRUE(leftovers(destination.parent_path()).empty()) << c.name;
    }
}

// The copy reads both sides on its open files and says what it made; given the kind its caller
// read, it doesn't look again, and an item of another kind by then was replaced since.
TEST_F(FileTransferTest, ACopyTellsWhatItMadeAndRefusesAnItemThatChangedItsKind) {
    using Type = FileInfo::Type;
    struct Case {
        const char* name;
        std::function<void(const fs::path&)> make;
        std::optional<Type> known;
        Type made;  // `other` with `changed` false: nothing made, and no error
        std::int64_t size;
        bool changed;
    };
    const auto file = [](const fs::path& at) { writeFile(at, "12345"); };
    const auto empty = [](const fs::path& at) { writeFile(at, ""); };
    const auto folder = [](const fs::path& at) { writeFile(at / "inside.txt", "x"); };
    const auto link = [](const fs::path& at) { makeLink(at, "elsewhere"); };
    const auto pipe = [](const fs::path& at) { ASSERT_EQ(::mkfifo(at.c_str(), 0600), 0); };
    const Case cases[] = {
        {"a file, as listed", file, Type::regular, Type::regular, 5, false},
        {"a file, looked at", file, std::nullopt, Type::regular, 5, false},
        {"an empty file", empty, Type::regular, Type::regular, 0, false},
        {"a folder, as listed", folder, Type::directory, Type::directory, 0, false},
        {"a link, looked at", link, std::nullopt, Type::symbolicLink, 9, false},
        {"a pipe, looked at", pipe, std::nullopt, Type::other, 0, false},
        {"a folder where a file was listed", folder, Type::regular, Type::other, 0, true},
        {"a file where a folder was listed", file, Type::directory, Type::other, 0, true},
        {"a link where a file was listed", link, Type::regular, Type::other, 0, true},
        {"a pipe where a file was listed", pipe, Type::regular, Type::other, 0, true},
    };
    for (const auto& c : cases) {
        const fs::path from = root / "case/item";
        const fs::path to = root / "case/copy";
        fs::remove_all(root / "case");
        makeFolder(root / "case");
        c.make(from);
        try {
            const CopiedItem made = fileSystem.copyItem(from, to, {}, c.known);
            EXPECT_FALSE(c.changed) << c.name;
            EXPECT_EQ(made.type, c.made) << c.name;
            if (c.made == Type::directory) {
                EXPECT_EQ(readFile(to / "inside.txt"), "x") << c.name;
            } else {
                EXPECT_EQ(made.sourceSize, c.size) << c.name;
                EXPECT_EQ(made.size, c.size) << c.name;
            }
        } catch (const Failure& failure) {
            EXPECT_TRUE(c.changed) << c.name;
            EXPECT_EQ(failure.error(), transfer::sourceChangedError()) << c.name;
        }
        EXPECT_EQ(fs::exists(fs::symlink_status(to)), !c.changed && c.made != Type::other)
            << c.name;
    }
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

TEST(TemporaryName, IsFreshForEachAttempt) {
    const std::string first = transfer::temporaryName("report.txt");
    EXPECT_TRUE(first.starts_with(".quillstowtmp-"));
    EXPECT_TRUE(first.ends_with("-report.txt"));
    EXPECT_EQ(first.size(), std::string(".quillstowtmp-12345678-report.txt").size());
    EXPECT_NE(first, transfer::temporaryName("report.txt"));
}

}  // namespace
}  // namespace quillstow
