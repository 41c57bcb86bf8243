// The watcher's compact table of folders: paths joined from names, folders moved and watched
// again, removals and the rewrite after many.

#include <gtest/gtest.h>

#include "platform/WatchedFolders.hpp"

namespace quillstow {
namespace {

constexpr int noParent = WatchedFolders::noParent;

// The source /home/ana/Film (watch 1) with a/b/c below it (2, 3, 4) and d beside a (5).
WatchedFolders film() {
    WatchedFolders folders;
    folders.add(1, noParent, "/home/ana/Film");
    folders.add(2, 1, "a");
    folders.add(3, 2, "b");
    folders.add(4, 3, "c");
    folders.add(5, 1, "d");
    return folders;
}

TEST(WatchedFolders, PathsFollowTheTableAsItChanges) {
    struct Case {
        const char* name;
        void (*change)(WatchedFolders&);
        int watch;
        bool isHeld;
        std::optional<std::string> path;
        std::size_t size;
    };
    const std::vector<Case> cases{
        {"the source", [](WatchedFolders&) {}, 1, true, "/home/ana/Film", 5},
        {"three below it", [](WatchedFolders&) {}, 4, true, "/home/ana/Film/a/b/c", 5},
        {"a watch never added", [](WatchedFolders&) {}, 9, false, std::nullopt, 5},
        {"a folder moved and watched again takes those below with it",
         [](WatchedFolders& folders) { folders.add(2, 5, "moved"); }, 4, true,
         "/home/ana/Film/d/moved/b/c", 5},
        {"removed", [](WatchedFolders& folders) { folders.remove(4); }, 4, false, std::nullopt, 4},
        {"a folder above removed leaves no path",
         [](WatchedFolders& folders) { folders.remove(2); }, 4, true, std::nullopt, 4},
        {"removed and watched again",
         [](WatchedFolders& folders) {
             folders.remove(3);
             folders.add(3, 5, "back");
         },
         4, true, "/home/ana/Film/d/back/c", 5},
        {"a smaller number after a larger one (the numbers wrapped)",
         [](WatchedFolders& folders) { folders.add(0, 5, "zero"); }, 0, true,
         "/home/ana/Film/d/zero", 6},
        {"cleared", [](WatchedFolders& folders) { folders.clear(); }, 1, false, std::nullopt, 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        WatchedFolders folders = film();
        test.change(folders);
        EXPECT_EQ(folders.pathOf(test.watch), test.path);
        EXPECT_EQ(folders.contains(test.watch), test.isHeld);
        EXPECT_EQ(folders.size(), test.size);
        EXPECT_EQ(folders.watches().size(), test.size);
    }
}

TEST(WatchedFolders, ManyFoldersTakeLittleAndARemovedTreeIsGivenBack) {
    constexpr int count = 100'000;
    WatchedFolders folders;
    folders.add(1, noParent, "/home/ana/Photos");
    for (int watch = 2; watch <= count; ++watch)
        folders.add(watch, 1 + (watch - 1) / 100, "f" + std::to_string(watch % 100000));
    folders.shrinkToFit();
    const std::size_t full = folders.bytesHeld();
    EXPECT_LT(full, std::size_t(count) * 24) << "16 bytes an entry and its name";
    EXPECT_EQ(folders.pathOf(20'001), "/home/ana/Photos/f3/f201/f20001");

    // The same folders watched again (after an overflow) cost nothing more.
    for (int watch = 2; watch <= count; ++watch)
        folders.add(watch, 1 + (watch - 1) / 100, "f" + std::to_string(watch % 100000));
    EXPECT_EQ(folders.bytesHeld(), full);

    for (int watch = 2; watch <= count - 10; ++watch)
        folders.remove(watch);
    EXPECT_EQ(folders.size(), 11u);
    EXPECT_LT(folders.bytesHeld(), full / 2) << "the arrays were rewritten";
    EXPECT_EQ(folders.pathOf(1), "/home/ana/Photos");
    EXPECT_EQ(folders.pathOf(count), std::nullopt) << "the folders above it are gone";
    folders.add(count + 1, 1, "new");
    EXPECT_EQ(folders.pathOf(count + 1), "/home/ana/Photos/new");
    EXPECT_TRUE(folders.contains(count));
}

}  // namespace
}  // namespace quillstow
