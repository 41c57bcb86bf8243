// A batch of copies waiting for their swap: a full batch is flushed while the next one is
// copied, no name goes in before the flush that covers its data, a batch is bounded by its
// copies and not by the folders they lie in, and the outcomes come in the order of the items.

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "TestTree.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "copy/SwapBatch.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

// The real file operations, with every flush of the volume held until the test allows it.
class GatedFlushes final : public ForwardingFileSystem {
  public:
    GatedFlushes() : ForwardingFileSystem(real_) {}

    void flushVolume(const ItemRef& item) override {
        std::unique_lock lock(mutex_);
        const int number = ++begun_;
        changed_.notify_all();
        changed_.wait(lock, [&] { return allowed_ >= number; });
        lock.unlock();
        if (number == failing_) throwPosix(EIO);
        ForwardingFileSystem::flushVolume(item);
    }

    // Lets the flushes up to the `count`th end; the `failing`th fails.
    void allow(int count, int failing = 0) {
        {
            const std::lock_guard lock(mutex_);
            allowed_ = count;
            failing_ = failing;
        }
        changed_.notify_all();
    }
    int begun() {
        const std::lock_guard lock(mutex_);
        return begun_;
    }
    bool hasBegun(int number) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return begun_ >= number; });
    }

  private:
    LocalFileSystem real_;
    std::mutex mutex_;
    std::condition_variable changed_;
    int begun_ = 0;
    int allowed_ = 0;
    int failing_ = 0;
};

class SwapBatchTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path source = root / "source";
    fs::path mirror = root / "mirror";
    GatedFlushes fileSystem;
    std::optional<transfer::MirrorRoot> mirrorRoot;
    std::optional<SwapBatch> batch;
    BackupResult result;

    void SetUp() override {
        makeFolder(source);
        makeFolder(mirror);
        mirrorRoot = transfer::MirrorRoot::at(mirror);
        batch.emplace(fileSystem, *mirrorRoot, nullptr, StreamContext{}, BatchLimits{2});
    }
    void TearDown() override { fileSystem.allow(100); }

    // Copies `name` beside its place in the mirror and hands it to the batch.
    void copy(const std::string& name) {
        writeFile(source / name, "new " + name);
        const transfer::Item from(source / name);
        batch->addCopy(transfer::prepareVerifiedCopy(fileSystem, from,
                                                     transfer::Item(mirror / name), &*mirrorRoot),
                       from, name, false);
        batch->flushWhenFull(result);
    }
};

// Each copy in a folder of its own: one flush still serves the whole batch.
TEST_F(SwapBatchTest, AFullBatchIsFlushedWhileTheNextIsCopiedAndGoesInOnlyAfterItsFlush) {
    writeFile(mirror / "a/x", "old a/x");
    copy("a/x");
    copy("b/x");
    ASSERT_TRUE(fileSystem.hasBegun(1)) << "the full batch is handed to its flush";
    copy("c/x");
    EXPECT_EQ(readFile(mirror / "a/x"), "old a/x") << "no swap before the flush has ended";
    EXPECT_FALSE(fs::exists(mirror / "b/x"));
    EXPECT_TRUE(result.copiedRelativePaths.empty());

    fileSystem.allow(1);
    copy("d/x");  // fills the second batch: the first goes in, the second to its flush
    EXPECT_EQ(readFile(mirror / "a/x"), "new a/x");
    EXPECT_EQ(result.copiedRelativePaths, (std::vector<std::string>{"a/x", "b/x"}));
    ASSERT_TRUE(fileSystem.hasBegun(2));
    EXPECT_FALSE(fs::exists(mirror / "c/x"));

    batch->addError({source / "e/x", "copy", errors::posix(EACCES)});
    copy("f/x");
    fileSystem.allow(3);
    batch->flush(result);
    EXPECT_EQ(result.copiedRelativePaths,
              (std::vector<std::string>{"a/x", "b/x", "c/x", "d/x", "f/x"}));
    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0].url, source / "e/x");
    EXPECT_EQ(filesBelow(mirror).size(), 5u) << "nothing left beside the copies";
    EXPECT_EQ(fileSystem.begun(), 3) << "one flush for each batch";
}

TEST_F(SwapBatchTest, ABatchWhoseFlushFailedIsCopiedAgainItemByItem) {
    fileSystem.allow(100, 1);
    copy("a");
    copy("b");
    copy("c");
    batch->flush(result);
    EXPECT_TRUE(result.errors.empty());
    EXPECT_EQ(result.copiedRelativePaths, (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(readFile(mirror / "b"), "new b");
    EXPECT_EQ(fileSystem.begun(), 4) << "each copy made again is flushed before its swap";
}

}  // namespace
}  // namespace quillstow
