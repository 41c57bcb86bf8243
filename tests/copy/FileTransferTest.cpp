// One item into place: what a copy keeps, the old copy safe through every failed attempt, one
// retry after a transient error and none after a final one, items that change their kind, and
// large files streamed in chunks that a later attempt continues.

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <functional>
#include <optional>

#include "TestTree.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "copy/FileCopier.hpp"
#include "copy/FileTransfer.hpp"
#include "copy/StreamedCopy.hpp"

namespace quillstow {
namespace {

using namespace testing;
using Op = FaultyFileSystem::Operation;
namespace fs = std::filesystem;

// A file of `size` bytes with a pattern that makes a misplaced chunk visible.
void writePattern(const fs::path& path, std::int64_t size) {
    std::string content(std::size_t(size), '\0');
    for (std::size_t i = 0; i < content.size(); ++i)
        content[i] = char('a' + (i / 4093) % 26);
    writeFile(path, content);
}

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

// Below the threshold a file is copied whole, from it on streamed: both keep the same.
TEST_F(FileTransferTest, KeepsContentModeOwnerTimesAndExtendedAttributesBothWays) {
    for (const std::int64_t size : {streamThreshold - 1, streamThreshold}) {
        SCOPED_TRACE(size);
        FaultyFileSystem faulty;
        writeFile(source, "quarterly numbers");
        ASSERT_EQ(::truncate(source.c_str(), size), 0);  // sparse: quick to make and copy
        ASSERT_EQ(::setxattr(source.c_str(), "user.colour", "red", 3, 0), 0);
        ASSERT_EQ(::chmod(source.c_str(), 0640), 0);
        if (::geteuid() == 0) {
            ASSERT_EQ(::chown(source.c_str(), 1234, 5678), 0);
        }
        setModificationDate(source, referenceDate());

        EXPECT_EQ(transfer::copyFile(faulty, source, destination), size);

        EXPECT_EQ(faulty.calls(Op::copyChunk) > 0, size >= streamThreshold);
        std::string head(17, '\0');
        std::ifstream(destination).read(head.data(), 17);
        EXPECT_EQ(head, "quarterly numbers");
        EXPECT_EQ(modificationDate(destination), referenceDate());
        struct stat copied {};
        struct stat original {};
        ASSERT_EQ(::stat(destination.c_str(), &copied), 0);
        ASSERT_EQ(::stat(source.c_str(), &original), 0);
        EXPECT_EQ(copied.st_mode & 07777, 0640u);
        EXPECT_EQ(copied.st_uid, original.st_uid);
        EXPECT_EQ(copied.st_gid, original.st_gid);
        char value[8] = {};
        EXPECT_EQ(::getxattr(destination.c_str(), "user.colour", value, sizeof value), 3);
        EXPECT_STREQ(value, "red");
        EXPECT_TRUE(leftovers(destination.parent_path()).empty());
        fs::remove(destination);
    }
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
        {"a flush that failed once", Op::flushVolume, EIO, 1, 0, 2, 1},
        {"a final flush error", Op::flushVolume, EIO, 2, EIO, 2, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove_all(root / "mirror");
        writeFile(destination, "old");
        writeFile(source, "new version");
        FaultyFileSystem faulty;
        faulty.failNext(c.operation, c.errnoValue, c.times);
        int error = 0;
        try {
            EXPECT_EQ(transfer::copyFile(faulty, source, destination), 11);
        } catch (const Failure& failure) {
            error = failure.error().code;
        }
        EXPECT_EQ(error, c.error);
        EXPECT_EQ(faulty.calls(Op::copyItem), c.copies);
        EXPECT_EQ(readFile(destination), c.error ? "old" : "new version");
        EXPECT_EQ(int(leftovers(destination.parent_path()).size()), c.leftovers);
        const FileCopier copier(faulty);
        copier.removeStaleTemporaries(
            copier.planPass(root / "source", root / "mirror", ExclusionFilter{}));
        EXPECT_TRUE(leftovers(destination.parent_path()).empty());
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
    const auto folder = [](const fs::path& at) { writeFile(at / "inside.txt", "x"); };
    const auto link = [](const fs::path& at) { makeLink(at, "elsewhere"); };
    const auto pipe = [](const fs::path& at) { ASSERT_EQ(::mkfifo(at.c_str(), 0600), 0); };
    const Case cases[] = {
        {"a file, as listed", file, Type::regular, Type::regular, 5, false},
        {"a folder, as listed", folder, Type::directory, Type::directory, 0, false},
        {"a link, looked at", link, std::nullopt, Type::symbolicLink, 9, false},
        {"a pipe, looked at", pipe, std::nullopt, Type::other, 0, false},
        {"a folder where a file was listed", folder, Type::regular, Type::other, 0, true},
        {"a file where a folder was listed", file, Type::directory, Type::other, 0, true},
        {"a link where a file was listed", link, Type::regular, Type::other, 0, true},
        {"a pipe where a file was listed", pipe, Type::regular, Type::other, 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const fs::path from = root / "case/item";
        const fs::path to = root / "case/copy";
        fs::remove_all(root / "case");
        makeFolder(root / "case");
        c.make(from);
        try {
            const CopiedItem made = fileSystem.copyItem(from, to, {}, c.known);
            EXPECT_FALSE(c.changed);
            EXPECT_EQ(made.type, c.made);
            if (c.made == Type::directory) {
                EXPECT_EQ(readFile(to / "inside.txt"), "x");
            } else {
                EXPECT_EQ(made.sourceSize, c.size);
                EXPECT_EQ(made.size, c.size);
            }
        } catch (const Failure& failure) {
            EXPECT_TRUE(c.changed);
            EXPECT_EQ(failure.error(), transfer::sourceChangedError());
        }
        EXPECT_EQ(fs::exists(fs::symlink_status(to)), !c.changed && c.made != Type::other);
    }
}

TEST_F(FileTransferTest, AFolderIsCopiedWholeWithItsLinksAndReplacesTheOldOne) {
    const fs::path package = root / "source/Song.band";
    const fs::path mirrored = root / "mirror/Song.band";
    writeFile(package / "Media/take1.wav", "take one");
    makeLink(package / "current", "Media/take1.wav");
    writeFile(mirrored / "Media/old-take.wav", "an older take");

    transfer::copyFile(fileSystem, package, mirrored);

    EXPECT_EQ(readFile(mirrored / "Media/take1.wav"), "take one");
    EXPECT_EQ(fs::read_symlink(mirrored / "current"), "Media/take1.wav");
    EXPECT_FALSE(fs::exists(mirrored / "Media/old-take.wav"));
    EXPECT_TRUE(leftovers(root / "mirror").empty());
}

// As on a file system that can't refuse to replace: renameat2 with RENAME_NOREPLACE answers
// EINVAL. For the rest of the calling process.
bool refuseNoReplaceRenames() {
    sock_filter rules[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_renameat2, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args) + 4 * sizeof(__u64)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, RENAME_NOREPLACE, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{sizeof rules / sizeof rules[0], rules};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST_F(FileTransferTest, AMoveWhereTheFileSystemCantRefuseToReplaceStillNeverReplaces) {
    const fs::path from = root / "new", taken = root / "taken", free = root / "free";
    writeFile(from, "new");
    writeFile(taken, "old");
    const auto moves = [&] {
        if (!refuseNoReplaceRenames()) std::_Exit(2);
        if (::renameat2(AT_FDCWD, "/", AT_FDCWD, "/", RENAME_NOREPLACE) == 0 || errno != EINVAL) {
            std::_Exit(3);
        }
        LocalFileSystem local;
        bool refused = false;
        try {
            local.moveItem(ItemRef(from), ItemRef(taken));
        } catch (const Failure& failure) {
            refused = errors::isPosix(failure.error(), EEXIST);
        }
        const bool kept = refused && readFile(taken) == "old";
        local.moveItem(ItemRef(from), ItemRef(free));
        std::_Exit(kept && readFile(free) == "new" ? 0 : 1);
    };
    EXPECT_EXIT(moves(), ::testing::ExitedWithCode(0), "");
}

class StreamedCopyTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    FaultyFileSystem fileSystem;
    std::int64_t size = 5 * std::int64_t(chunkSize) + 123;
    fs::path source = root / "source/clip.mov";
    fs::path partial = root / "mirror" / partialName(size, "clip.mov");

    void SetUp() override {
        writePattern(source, size);
        makeFolder(root / "mirror");
    }
    void stream(const StreamContext& context = {}) {
        streamCopy(fileSystem, source, partial, size, "clip.mov", context);
    }
    // Streams once more and checks that only what the partial file lacked was copied.
    void expectContinuedFrom(std::int64_t head) {
        fileSystem.afterChunk = nullptr;
        const std::int64_t before = fileSystem.bytesCopiedInChunks();
        stream();
        EXPECT_EQ(fileSystem.bytesCopiedInChunks() - before, size - head);
        EXPECT_EQ(readFile(partial), readFile(source));
    }
};

TEST_F(StreamedCopyTest, AnAttemptCutShortLeavesAHeadThatTheNextContinues) {
    for (const bool cancelled : {false, true}) {
        SCOPED_TRACE(cancelled ? "cancelled" : "failed");
        fs::remove(partial);
        std::stop_source stop;
        StreamContext context;
        context.stop = stop.get_token();
        if (cancelled) {
            fileSystem.afterChunk = [&](std::int64_t reached) {
                if (reached >= 3 * std::int64_t(chunkSize)) stop.request_stop();
            };
        } else {
            fileSystem.failNext(Op::copyChunk, EIO, 1, 3);
        }
        try {
            stream(context);
            ADD_FAILURE() << "the copy went through";
        } catch (const Failure& failure) {
            EXPECT_TRUE(cancelled ? errors::isCancellation(failure.error())
                                  : errors::isPosix(failure.error(), EIO));
        }
        EXPECT_EQ(fs::file_size(partial), 3 * chunkSize);
        expectContinuedFrom(3 * std::int64_t(chunkSize));
    }
}

TEST_F(StreamedCopyTest, APartialFileNoShorterThanTheSourceIsNeverContinued) {
    writeFile(partial, std::string(std::size_t(size), 'x'));
    expectContinuedFrom(0);

    writeFile(partial, std::string(4 * chunkSize, 'x'));
    ASSERT_EQ(::truncate(source.c_str(), 2 * std::int64_t(chunkSize)), 0);
    try {
        stream();
        ADD_FAILURE() << "no mismatch";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.error().code, int(ErrorCode::resumeMismatch));
    }
    EXPECT_FALSE(fs::exists(partial));
}

}  // namespace
}  // namespace quillstow
