// The file watcher on real folders, and its compact table of the folders it watches: what
// counts, in which folders it is heard, and how the source itself is followed by its path.

#include <gtest/gtest.h>
#include <sys/inotify.h>

#include "TestTree.hpp"
#include "platform/InotifyWatcher.hpp"
#include "platform/WatchedFolders.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

TEST(CountsAsChange, SixKindsOfChangeAnywhereAndTheSourceItselfGoing) {
    for (const std::uint32_t mask : {IN_CREATE, IN_DELETE, IN_MODIFY, IN_CLOSE_WRITE, IN_MOVED_FROM,
                                     IN_MOVED_TO, IN_CREATE | IN_ISDIR, IN_Q_OVERFLOW})
        EXPECT_TRUE(countsAsChange(mask, false) && countsAsChange(mask, true)) << mask;
    // "Root changed": the source itself deleted, moved or unmounted.
    for (const std::uint32_t mask : {IN_DELETE_SELF, IN_MOVE_SELF, IN_UNMOUNT})
        EXPECT_TRUE(!countsAsChange(mask, false) && countsAsChange(mask, true)) << mask;
    for (const std::uint32_t mask : {IN_ATTRIB, IN_IGNORED, IN_OPEN, IN_ACCESS, IN_CLOSE_NOWRITE})
        EXPECT_TRUE(!countsAsChange(mask, false) && !countsAsChange(mask, true)) << mask;
}

class InotifyWatcherTest : public ::testing::Test {
  protected:
    // Waits (in real time, bounded) for the reader thread to hand a batch to the main thread.
    bool batchArrives() {
        return queue.runUntil([&] { return queue.scheduledCount() > 0; }, 10);
    }
    // Gives the reader thread a moment to show that nothing comes.
    bool nothingArrives() {
        queue.runUntil([] { return false; }, 0.3);
        return queue.scheduledCount() == 0;
    }

    TemporaryFolder root;
    ManualClock clock;
    VirtualMainQueue queue{clock};
    InotifyWatcher watcher{queue};
    int calls = 0;
};

TEST_F(InotifyWatcherTest, ABurstIsOneCallHalfASecondAfterItsStartAndNothingComesAfterTheStop) {
    makeFolder(root / "source");
    watcher.onEventsDetected = [&] { ++calls; };
    watcher.startWatching(root / "source");
    for (int i = 0; i < 300; ++i)
        writeFile(root / "source" / std::to_string(i), "data");
    ASSERT_TRUE(batchArrives());
    queue.advance(0.49);
    EXPECT_EQ(calls, 0);
    // Whatever the reader still takes of the burst joins the batch that waits.
    nothingArrives();
    queue.advance(0.01);
    EXPECT_EQ(calls, 1);

    writeFile(root / "source/g", "x");
    ASSERT_TRUE(batchArrives());
    watcher.stopWatching();
    queue.advance(10);
    writeFile(root / "source/h", "x");
    EXPECT_TRUE(nothingArrives());
    EXPECT_EQ(calls, 1) << "a batch due after the stop is dropped";
}

// What is done in or to the source, step by step (paths below the source; ".." leaves it), and
// how many calls the watcher makes for it: one, none, or some where the kernel may report a
// change in parts; and whether it watches the source after it.
enum class Act { makeFolders, write, move };
constexpr int some = -1;

struct Step {
    Act act;
    const char* path;
    int calls;
    const char* to = nullptr;  // where a move goes
    bool watchesAfter = true;
};

TEST_F(InotifyWatcherTest, HearsWhatCountsInEveryFolderAndFollowsTheSourcesPath) {
    const struct {
        const char* name;
        std::vector<const char*> before;  // folders made before the start
        std::vector<Step> steps;
    } cases[] = {
        {"a folder made after the start, with what it holds",
         {"."},
         {{Act::makeFolders, "new/deeper/deepest", some}, {Act::write, "new/deeper/deepest/f", 1}}},
        {"folders that every profile leaves out",
         {"app/node_modules/lib", ".git/objects"},
         {{Act::write, "app/node_modules/lib/index.js", 0},
          {Act::write, ".git/objects/ab", 0},
          {Act::write, "app/main.js", 1}}},
        {"folders made below a folder that moved, at its new path",
         {"projects/film/cuts"},
         {{Act::move, "projects", some, "archive"},
          {Act::makeFolders, "archive/film/cuts/new", some},
          {Act::write, "archive/film/cuts/new/take.mov", 1}}},
        {"missing at the start, folders above it too",
         {},
         {{Act::makeFolders, ".", some}, {Act::write, "new.txt", 1}}},
        {"moved away and made again",
         {"."},
         {{Act::move, ".", some, "../away", false},
          {Act::write, "../away/new.txt", 0, nullptr, false},
          {Act::makeFolders, ".", some},
          {Act::write, "new.txt", 1}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder folder;
        const fs::path source = folder / "later/on/source";
        for (const char* made : c.before)
            fs::create_directories(source / made);
        InotifyWatcher follower(queue);
        int heard = 0;
        follower.onEventsDetected = [&] { ++heard; };
        follower.startWatching(source);
        EXPECT_EQ(follower.isWatching(), !c.before.empty());
        for (const auto& step : c.steps) {
            SCOPED_TRACE(step.path);
            const int before = heard;
            const fs::path at = (source / step.path).lexically_normal();
            if (step.act == Act::makeFolders) fs::create_directories(at);
            if (step.act == Act::write) writeFile(at, "x");
            if (step.act == Act::move) fs::rename(at, (source / step.to).lexically_normal());
            if (step.calls == 0) {
                EXPECT_TRUE(nothingArrives());
            } else {
                ASSERT_TRUE(batchArrives());
                queue.advance(FileWatcher::latency);
                // What came apart is delivered too.
                while (step.calls == some && !nothingArrives())
                    queue.advance(FileWatcher::latency);
            }
            EXPECT_TRUE(step.calls == some ? heard > before : heard == before + step.calls);
            EXPECT_TRUE(
                queue.runUntil([&] { return follower.isWatching() == step.watchesAfter; }, 10));
        }
    }
}

// The source /F (watch 1) with a/b/c below it (2, 3, 4) and d beside a (5), then changed: a
// change adds `name` as `watch` in `parent`; without a name it removes the watch.
TEST(WatchedFolders, PathsFollowTheTableAsItChanges) {
    struct Change {
        int watch, parent = 0;
        const char* name = nullptr;
    };
    const struct {
        const char* name;
        std::vector<Change> changes;
        int watch;
        bool isHeld;
        std::optional<std::string> path;
        std::size_t size;
    } cases[] = {
        {"three below it", {}, 4, true, "/F/a/b/c", 5},
        {"moved and watched again, with those below",
         {{2, 5, "moved"}},
         4,
         true,
         "/F/d/moved/b/c",
         5},
        {"removed", {{4}}, 4, false, std::nullopt, 4},
        {"a folder above removed leaves no path", {{2}}, 4, true, std::nullopt, 4},
        {"removed and watched again", {{3}, {3, 5, "back"}}, 4, true, "/F/d/back/c", 5},
        {"a smaller number after larger ones", {{0, 5, "zero"}}, 0, true, "/F/d/zero", 6},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        WatchedFolders folders;
        folders.add(1, WatchedFolders::noParent, "/F");
        for (const Change change : {Change{2, 1, "a"}, {3, 2, "b"}, {4, 3, "c"}, {5, 1, "d"}})
            folders.add(change.watch, change.parent, change.name);
        for (const Change change : c.changes) {
            if (!change.name) {
                folders.remove(change.watch);
            } else {
                folders.add(change.watch, change.parent, change.name);
            }
        }
        EXPECT_EQ(folders.pathOf(c.watch), c.path);
        EXPECT_EQ(folders.contains(c.watch), c.isHeld);
        EXPECT_EQ(folders.size(), c.size);
    }
}

}  // namespace
}  // namespace quillstow
