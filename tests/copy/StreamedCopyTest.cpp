// Large files: the threshold, resumption after a failure or a cancellation, the mismatch of a
// shrunken source, progress, and the attributes of the finished copy.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "TestTree.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "copy/FileCopier.hpp"
#include "copy/FileTransfer.hpp"
#include "copy/StreamedCopy.hpp"
#include "support/RecordingSleeper.hpp"

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

class StreamedCopyTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    FaultyFileSystem fileSystem;
    fs::path source = root / "source/clip.mov";
    fs::path partial = root / "mirror" / partialName(5 * std::int64_t(chunkSize) + 123, "clip.mov");
    std::int64_t size = 5 * std::int64_t(chunkSize) + 123;

    void SetUp() override {
        writePattern(source, size);
        makeFolder(root / "mirror");
    }

    void stream(const StreamContext& context = {}) {
        streamCopy(fileSystem, source, partial, size, "clip.mov", context);
    }
    int failureCode(const StreamContext& context = {}) {
        try {
            stream(context);
        } catch (const Failure& failure) {
            return failure.error().code;
        }
        return 0;
    }
};

TEST_F(StreamedCopyTest, CopiesInChunksAndReportsTheBytesInTheFileStyle) {
    std::vector<std::string> texts;
    stream({[&](double fraction, const std::string& text) {
                EXPECT_DOUBLE_EQ(fraction, 0.25);
                texts.push_back(text);
            },
            0.25,
            nullptr,
            {}});
    EXPECT_EQ(readFile(partial), readFile(source));
    EXPECT_EQ(fileSystem.calls(Op::copyChunk), 7);  // six chunks and the end
    ASSERT_EQ(texts.size(), 6u);
    EXPECT_EQ(texts[0], "clip.mov (1 MB/5.2 MB)");
    EXPECT_EQ(texts[5], "clip.mov (5.2 MB/5.2 MB)");
}

TEST_F(StreamedCopyTest, ASecondAttemptContinuesWithoutRewritingTheHead) {
    fileSystem.failNext(Op::copyChunk, EIO, 1, 3);
    EXPECT_EQ(failureCode(), EIO);
    EXPECT_EQ(fs::file_size(partial), 3 * chunkSize);
    const std::int64_t before = fileSystem.bytesCopiedInChunks();

    stream();

    EXPECT_EQ(fileSystem.bytesCopiedInChunks() - before, size - 3 * std::int64_t(chunkSize));
    EXPECT_EQ(readFile(partial), readFile(source));
}

TEST_F(StreamedCopyTest, APartialAsLongAsTheSourceIsThrownAway) {
    writeFile(partial, std::string(std::size_t(size), 'x'));
    stream();
    EXPECT_EQ(fileSystem.bytesCopiedInChunks(), size);
    EXPECT_EQ(readFile(partial), readFile(source));
}

TEST_F(StreamedCopyTest, ASourceThatShrankBelowTheHeadIsAMismatchAndTheHeadGoes) {
    writeFile(partial, std::string(4 * chunkSize, 'x'));
    ::truncate(source.c_str(), 2 * std::int64_t(chunkSize));
    try {
        stream();
        FAIL() << "no mismatch";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.error(),
                  errors::quillstow(ErrorCode::resumeMismatch,
                                    "Resume mismatch — source shrank since the previous "
                                    "copy. Restarting next time."));
    }
    EXPECT_FALSE(fs::exists(partial));
}

TEST_F(StreamedCopyTest, CancellationLeavesAPartialFileThatTheNextAttemptContinues) {
    std::stop_source stop;
    fileSystem.afterChunk = [&](std::int64_t reached) {
        if (reached >= 2 * std::int64_t(chunkSize)) stop.request_stop();
    };
    StreamContext context;
    context.stop = stop.get_token();
    try {
        stream(context);
        FAIL() << "not cancelled";
    } catch (const Failure& failure) {
        EXPECT_TRUE(errors::isCancellation(failure.error()));
    }
    EXPECT_EQ(fs::file_size(partial), 2 * chunkSize);

    fileSystem.afterChunk = nullptr;
    const std::int64_t before = fileSystem.bytesCopiedInChunks();
    stream();
    EXPECT_EQ(fileSystem.bytesCopiedInChunks() - before, size - 2 * std::int64_t(chunkSize));
    EXPECT_EQ(readFile(partial), readFile(source));
}

TEST_F(StreamedCopyTest, OpenFailuresHaveTheirOwnCodes) {
    fs::remove(source);
    EXPECT_EQ(failureCode(), 1010);
    writePattern(source, size);
    partial = root / "no-such-folder" / "partial";
    EXPECT_EQ(failureCode(), 1011);
}

TEST_F(StreamedCopyTest, KeepsModeTimesAndEveryExtendedAttribute) {
    ASSERT_EQ(::setxattr(source.c_str(), "user.one", "1", 1, 0), 0);
    ASSERT_EQ(::setxattr(source.c_str(), "user.two", "22", 2, 0), 0);
    ASSERT_EQ(::chmod(source.c_str(), 0604), 0);
    setModificationDate(source, referenceDate());
    stream();
    struct stat status {};
    ASSERT_EQ(::stat(partial.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0604u);
    EXPECT_EQ(modificationDate(partial), referenceDate());
    char value[4] = {};
    EXPECT_EQ(::getxattr(partial.c_str(), "user.two", value, sizeof value), 2);
    EXPECT_EQ(std::string(value, 2), "22");
}

TEST_F(StreamedCopyTest, ChunksPauseWhileTheGateThrottles) {
    RecordingSleeper sleeper;
    const UserActivity away;
    ActivityGate gate(away, sleeper);
    gate.setBandwidthMode(BandwidthMode::quiet);
    StreamContext context;
    context.gate = &gate;
    stream(context);
    EXPECT_EQ(sleeper.slept, std::vector<double>(6, 0.002));
}

TEST(StreamThreshold, SixtyFourMebibytesAreStreamedAndOneByteLessIsNot) {
    TemporaryFolder root;
    for (const std::int64_t size : {streamThreshold - 1, streamThreshold}) {
        FaultyFileSystem fileSystem;
        const fs::path source = root / ("file" + std::to_string(size));
        makeFolder(root.path());
        writeFile(source, "");
        ASSERT_EQ(::truncate(source.c_str(), size), 0);  // sparse: quick to make, quick to copy
        EXPECT_EQ(transfer::copyFile(fileSystem, source, root / "mirror" / source.filename()),
                  size);
        const bool streamed = fileSystem.calls(Op::copyChunk) > 0;
        EXPECT_EQ(streamed, size >= streamThreshold) << size;
        EXPECT_EQ(fileSystem.calls(Op::copyItem), streamed ? 0 : 1) << size;
        EXPECT_EQ(fs::file_size(root / "mirror" / source.filename()), std::uintmax_t(size));
    }
}

TEST(StreamedCopyInAPass, ATransientErrorContinuesFromThePartialFileAndSwapsItIn) {
    TemporaryFolder root;
    FaultyFileSystem fileSystem;
    const fs::path source = root / "source/big.bin";
    writePattern(source, streamThreshold + 5);
    writeFile(root / "mirror/big.bin", "an old copy", referenceDate());
    fileSystem.failNext(Op::copyChunk, EIO, 1, 10);
    FileCopier copier(fileSystem);

    const BackupResult result =
        copier.scanAndCopy(root / "source", root / "mirror", root / ".trash",
                           filterForProfile(BackupProfile::standard), nullptr);

    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(result.copiedFiles, 1);
    EXPECT_EQ(result.bytesTransferred, streamThreshold + 5);
    EXPECT_EQ(fileSystem.bytesCopiedInChunks(), streamThreshold + 5);
    EXPECT_EQ(readFile(root / "mirror/big.bin"), readFile(source));
    EXPECT_TRUE(filesBelow(root / "mirror").size() == 1) << "no partial file left";
}

}  // namespace
}  // namespace quillstow
