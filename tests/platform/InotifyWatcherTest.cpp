// The file watcher on real folders: a burst of changes is one call after half a second, what
// doesn't count never calls, new folders are watched, the source itself going counts and is
// followed by its path, and a source with more folders than the system allows watches says
// what to do.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "TestTree.hpp"
#include "model/BackupError.hpp"
#include "platform/InotifyWatcher.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::HasSubstr;
using ::testing::StartsWith;
namespace fs = std::filesystem;

class InotifyWatcherTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path source = root / "source";
    ManualClock clock;
    VirtualMainQueue queue{clock};
    InotifyWatcher watcher{queue};
    int calls = 0;

    void SetUp() override {
        fs::create_directories(source);
        watcher.onEventsDetected = [this] { ++calls; };
    }

    // Waits (in real time, bounded) for the reader thread to hand a batch to the main thread,
    // then lets the half second pass.
    bool deliverBatch() {
        if (!queue.runUntil([&] { return queue.scheduledCount() > 0; }, 10)) return false;
        queue.advance(FileWatcher::latency);
        return true;
    }

    // Gives the reader thread a moment to show that nothing comes.
    bool nothingArrives() {
        queue.runUntil([] { return false; }, 0.3);
        return queue.scheduledCount() == 0;
    }
};

TEST(CountsAsChange, OnlySixKindsOfChangeCount) {
    for (const std::uint32_t mask : {IN_CREATE, IN_DELETE, IN_MODIFY, IN_CLOSE_WRITE, IN_MOVED_FROM,
                                     IN_MOVED_TO, IN_CREATE | IN_ISDIR, IN_Q_OVERFLOW}) {
        EXPECT_TRUE(countsAsChange(mask, false)) << mask;
    }
    for (const std::uint32_t mask : {IN_ATTRIB, IN_IGNORED, IN_OPEN, IN_ACCESS, IN_CLOSE_NOWRITE,
                                     IN_DELETE_SELF, IN_MOVE_SELF, IN_UNMOUNT}) {
        EXPECT_FALSE(countsAsChange(mask, false)) << mask;
    }
    // The source itself gone, moved or unmounted: "root changed".
    for (const std::uint32_t mask : {IN_DELETE_SELF, IN_MOVE_SELF, IN_UNMOUNT}) {
        EXPECT_TRUE(countsAsChange(mask, true)) << mask;
    }
    EXPECT_FALSE(countsAsChange(IN_ATTRIB, true));
}

TEST_F(InotifyWatcherTest, ABurstOfChangesIsOneCallHalfASecondAfterTheFirst) {
    watcher.startWatching(source);
    for (int i = 0; i < 300; ++i)
        writeFile(source / ("f" + std::to_string(i)), "data");
    ASSERT_TRUE(queue.runUntil([&] { return queue.scheduledCount() > 0; }, 10));
    queue.advance(0.49);
    EXPECT_EQ(calls, 0);
    // Whatever the reader still takes of the burst joins the batch that waits.
    nothingArrives();
    queue.advance(0.01);
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(nothingArrives());
    queue.advance(10);
    EXPECT_EQ(calls, 1);
}

TEST_F(InotifyWatcherTest, StartAndStopAreIdempotentAndAStoppedWatcherIsSilent) {
    watcher.startWatching(source);
    watcher.startWatching(root / "another");  // keeps the first
    EXPECT_TRUE(watcher.isWatching());
    writeFile(source / "f", "x");
    ASSERT_TRUE(deliverBatch());
    EXPECT_EQ(calls, 1);

    writeFile(source / "g", "x");
    watcher.stopWatching();
    watcher.stopWatching();
    EXPECT_FALSE(watcher.isWatching());
    queue.advance(10);
    writeFile(source / "h", "x");
    EXPECT_TRUE(nothingArrives());
    EXPECT_EQ(calls, 1) << "a batch due after the stop is dropped";
}

// What happens in or to the source, step by step: whether the watcher hears it (in calls: one,
// none, or some when the kernel may report a change in parts) and watches the source after it.
constexpr int some = -1;

struct SourceStep {
    const char* what;
    void (*act)(const fs::path& root, const fs::path& source);
    int calls;
    bool watchesAfter = true;
};

struct FollowCase {
    const char* name;
    bool existsAtTheStart;
    std::vector<SourceStep> steps;
    // Made before the watch starts.
    std::vector<const char*> folders = {};
};

void makeIt(const fs::path&, const fs::path& source) {
    fs::create_directories(source);
}
void writeInIt(const fs::path&, const fs::path& source) {
    writeFile(source / "new.txt", "x");
}
void saveByRename(const fs::path& root, const fs::path& source) {
    writeFile(root / "draft", "v");
    fs::rename(root / "draft", source / "doc.txt");
}
const SourceStep madeAgain{"made again", makeIt, some};
const SourceStep aFileInIt{"a file written in it", writeInIt, 1};

TEST_F(InotifyWatcherTest, HearsWhatCountsInEveryFolderAndFollowsTheSourcesPath) {
    const std::vector<FollowCase> cases{
        {"a save by rename, and the next one",
         true,
         {{"saved", saveByRename, 1}, {"saved again", saveByRename, 1}}},
        {"a change of mode alone",
         true,
         {{"a file made", writeInIt, some},
          {"its mode changed",
           [](const fs::path&, const fs::path& source) {
               fs::permissions(source / "new.txt", fs::perms::owner_read);
           },
           0}}},
        {"a folder made after the start, with what it holds",
         true,
         {{"folders made",
           [](const fs::path&, const fs::path& source) {
               fs::create_directories(source / "new/deeper/deepest");
           },
           some},
          {"a file deep inside",
           [](const fs::path&, const fs::path& source) {
               writeFile(source / "new/deeper/deepest/file", "x");
           },
           1}}},
        {"a folder moved in",
         true,
         {{"moved in",
           [](const fs::path& root, const fs::path& source) {
               fs::rename(root / "outside", source / "moved");
           },
           1},
          {"a file in it",
           [](const fs::path&, const fs::path& source) {
               writeFile(source / "moved/inner/file", "x");
           },
           1}},
         {"outside/inner"}},
        {"folders that every profile leaves out",
         true,
         {{"files in them",
           [](const fs::path&, const fs::path& source) {
               writeFile(source / "app/node_modules/lib/index.js", "x");
               writeFile(source / ".git/objects/ab", "x");
           },
           0},
          {"a file beside them",
           [](const fs::path&, const fs::path& source) { writeFile(source / "app/main.js", "x"); },
           1}},
         {"later/on/source/app/node_modules/lib", "later/on/source/.git/objects"}},
        {"folders made below a folder that moved, at its new path",
         true,
         {{"moved",
           [](const fs::path&, const fs::path& source) {
               fs::rename(source / "projects", source / "archive");
           },
           some},
          {"a folder made two below it",
           [](const fs::path&, const fs::path& source) {
               fs::create_directories(source / "archive/film/cuts/new");
           },
           some},
          {"a file in that",
           [](const fs::path&, const fs::path& source) {
               writeFile(source / "archive/film/cuts/new/take.mov", "x");
           },
           1},
          {"moved again, to another depth",
           [](const fs::path&, const fs::path& source) {
               fs::rename(source / "archive/film", source / "film");
           },
           some},
          {"a folder made in what moved",
           [](const fs::path&, const fs::path& source) {
               fs::create_directories(source / "film/cuts/new/later");
           },
           some},
          {"a file in that",
           [](const fs::path&, const fs::path& source) {
               writeFile(source / "film/cuts/new/later/take.mov", "x");
           },
           1}},
         {"later/on/source/projects/film/cuts"}},
        {"missing at the start, folders above it too", false, {madeAgain, aFileInIt}},
        {"removed and made again",
         true,
         {{"removed", [](const fs::path&, const fs::path& source) { fs::remove_all(source); }, some,
           false},
          {"a file beside it",
           [](const fs::path& root, const fs::path&) { writeFile(root / "beside.txt", "x"); }, 0,
           false},
          madeAgain,
          aFileInIt}},
        {"moved away and made again",
         true,
         {{"moved away",
           [](const fs::path& root, const fs::path& source) { fs::rename(source, root / "away"); },
           some, false},
          {"a file in the folder moved away",
           [](const fs::path& root, const fs::path&) { writeFile(root / "away/new.txt", "x"); }, 0,
           false},
          madeAgain,
          aFileInIt}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        TemporaryFolder folder;
        const fs::path followed = folder / "later/on/source";
        if (test.existsAtTheStart) fs::create_directories(followed);
        for (const char* made : test.folders)
            fs::create_directories(folder / made);
        InotifyWatcher follower(queue);
        int heard = 0;
        follower.onEventsDetected = [&] { ++heard; };
        follower.startWatching(followed);
        EXPECT_EQ(follower.isWatching(), test.existsAtTheStart);
        for (const auto& step : test.steps) {
            SCOPED_TRACE(step.what);
            const int before = heard;
            step.act(folder.path(), followed);
            if (step.calls == 0) {
                EXPECT_TRUE(nothingArrives());
                EXPECT_EQ(heard, before);
            } else {
                ASSERT_TRUE(deliverBatch());
                if (step.calls == some) {
                    // Let what came apart be delivered too.
                    while (!nothingArrives())
                        queue.advance(FileWatcher::latency);
                    EXPECT_GT(heard, before);
                } else {
                    EXPECT_EQ(heard, before + step.calls);
                }
            }
            EXPECT_TRUE(
                queue.runUntil([&] { return follower.isWatching() == step.watchesAfter; }, 10));
        }
    }
}

TEST_F(InotifyWatcherTest, AChangeInEveryOneOfManyFoldersIsHeard) {
    std::vector<fs::path> folders{source, source / "deep/er/and/deeper/still"};
    for (int top = 0; top < 20; ++top) {
        const fs::path topFolder = source / ("t" + std::to_string(top));
        folders.push_back(topFolder);
        for (int inner = 0; inner < 10; ++inner)
            folders.push_back(topFolder / ("i" + std::to_string(inner)));
    }
    for (const auto& folder : folders)
        fs::create_directories(folder);
    watcher.startWatching(source);
    for (const auto& folder : folders) {
        // Moved in whole: one event, so that nothing of it can come with the next folder's.
        saveByRename(root.path(), folder);
        ASSERT_TRUE(deliverBatch()) << folder;
    }
    EXPECT_EQ(calls, int(folders.size()));
}

TEST(WatchLimitMessage, SaysHowManyFoldersAndHowToRaiseTheLimit) {
    EXPECT_THAT(watchLimitMessage(12000, 8192),
                StartsWith("The source has 12000 folders to watch for changes, more than the 8192 "
                           "watches that this system allows each user"));
    EXPECT_THAT(watchLimitMessage(12000, 8192), HasSubstr("max_user_watches=524288"));
    EXPECT_THAT(watchLimitMessage(3, std::nullopt),
                HasSubstr("more than the watches that this system allows each user"));
}

// In a user namespace of its own a process may lower its own watch limit: the real ENOSPC.
TEST(WatchLimit, RunningOutOfWatchesFailsTheStartWithWhatToDo) {
    TemporaryFolder root;
    for (int i = 0; i < 9; ++i)
        fs::create_directories(root / "source" / ("folder" + std::to_string(i)));
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(pipe[0]);
        const auto say = [&](const std::string& text) {
            (void)::write(pipe[1], text.data(), text.size());
            ::_exit(0);
        };
        const uid_t uid = ::geteuid();
        const gid_t gid = ::getegid();
        if (::unshare(CLONE_NEWUSER) != 0) say("skip: no user namespace here");
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " << uid << " 1\n";
        std::ofstream("/proc/self/gid_map") << "0 " << gid << " 1\n";
        std::ofstream limit("/proc/sys/user/max_inotify_watches");
        limit << 5 << std::flush;
        if (!limit) say("skip: the watch limit can't be lowered here");
        ManualClock clock;
        VirtualMainQueue queue(clock);
        InotifyWatcher watcher(queue);
        try {
            watcher.startWatching(root / "source");
            say("started");
        } catch (const BackupFailure& failure) {
            say(failure.error().reason());
        }
    }
    ::close(pipe[1]);
    std::string answer;
    char buffer[4096];
    for (ssize_t n; (n = ::read(pipe[0], buffer, sizeof buffer)) > 0;)
        answer.append(buffer, std::size_t(n));
    ::close(pipe[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (answer.starts_with("skip: ")) GTEST_SKIP() << answer.substr(6);
    EXPECT_THAT(answer, StartsWith("The source has 10 folders to watch for changes"));
    EXPECT_THAT(answer, HasSubstr("Raise the limit"));
}

}  // namespace
}  // namespace quillstow
