// The freedesktop Trash: the home trash for an item on the home's volume, the volume's own
// trash for one elsewhere, a .trashinfo that a file manager can put the item back from, names
// that never clash, and a move that is a rename or nothing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "PrivateMounts.hpp"
#include "ProjectFolders.hpp"
#include "TestTree.hpp"
#include "platform/FreedesktopTrash.hpp"
#include "support/Dates.hpp"
#include "support/Error.hpp"
#include "support/FileInfo.hpp"
#include "support/FileUrl.hpp"
#include "support/ManualClocks.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;
namespace fs = std::filesystem;

Date deletedAt() {
    return *dates::parseISO8601("2026-03-01T09:30:05Z");
}

std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename());
    return names;
}

TEST(FreedesktopTrash, WritesTheDeletionDateInLocalTime) {
    const ScopedEnvironment zone("TZ", "EET-2");
    EXPECT_EQ(trashDeletionDate(deletedAt()), "2026-03-01T11:30:05");
}

TEST(FreedesktopTrash, MovesAFolderIntoTheHomeTrashOfTheEnvironment) {
    TemporaryFolder root;
    const ScopedEnvironment dataHome("XDG_DATA_HOME", (root / "data").native());
    const ScopedEnvironment zone("TZ", "UTC0");
    EXPECT_EQ(FreedesktopTrash::homeTrashOfEnvironment(), root / "data/Trash");
    writeFile(root / "Pröject/Render Files/a.mov", "abc");
    const ManualWallClock clock(deletedAt());
    FreedesktopTrash trash(FreedesktopTrash::homeTrashOfEnvironment(), ::getuid(), clock);

    trash.moveToTrash(root / "Pröject/Render Files");
    EXPECT_FALSE(files::exists(root / "Pröject/Render Files"));
    EXPECT_EQ(readFile(root / "data/Trash/files/Render Files/a.mov"), "abc");
    EXPECT_EQ(readFile(root / "data/Trash/info/Render Files.trashinfo"),
              "[Trash Info]\nPath=" + root.path().native() + "/Pr%C3%B6ject/Render%20Files" +
                  "\nDeletionDate=2026-03-01T09:30:05\n");
    struct stat status {};
    ASSERT_EQ(::stat((root / "data/Trash").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
}

TEST(FreedesktopTrash, GivesEachClashANameOfItsOwn) {
    TemporaryFolder root;
    const ManualWallClock clock(deletedAt());
    FreedesktopTrash trash(root / "Trash", ::getuid(), clock);
    for (const char* folder : {"a", "b", "c"}) {
        writeFile(root / folder / "Cache/x", folder);
        writeFile(root / folder / "clip.mov", folder);
        trash.moveToTrash(root / folder / "Cache");
        trash.moveToTrash(root / folder / "clip.mov");
    }
    // A stray item of that name without its info file is no free name either.
    writeFile(root / "Trash/files/notes", "stray");
    writeFile(root / "d/notes", "mine");
    trash.moveToTrash(root / "d/notes");

    EXPECT_THAT(namesIn(root / "Trash/files"),
                UnorderedElementsAre("Cache", "Cache 2", "Cache 3", "clip.mov", "clip 2.mov",
                                     "clip 3.mov", "notes", "notes 2"));
    EXPECT_EQ(readFile(root / "Trash/files/Cache 3/x"), "c");
    EXPECT_EQ(readFile(root / "Trash/files/notes 2"), "mine");
    EXPECT_THAT(
        readFile(root / "Trash/info/clip 2.mov.trashinfo"),
        HasSubstr("Path=" + fileurls::percentEncoded((root / "b/clip.mov").native()) + "\n"));
}

TEST(FreedesktopTrash, UsesTheVolumesOwnTrashAwayFromHome) {
    QUILLSTOW_REQUIRE_PRIVATE_MOUNTS();
    TemporaryFolder root;
    testing::TmpfsMount drive(root / "drive", 1 << 20);
    writeFile(root / "drive/Film/Render Files/a.mov", "abc");
    writeFile(root / "drive/Film/Proxy Media/b.mov", "b");
    const ManualWallClock clock(deletedAt());
    FreedesktopTrash trash(root / "home/Trash", ::getuid(), clock);
    const std::string uid = std::to_string(::getuid());

    trash.moveToTrash(root / "drive/Film/Render Files");
    EXPECT_EQ(readFile(root / ("drive/.Trash-" + uid + "/files/Render Files/a.mov")), "abc");
    EXPECT_THAT(readFile(root / ("drive/.Trash-" + uid + "/info/Render Files.trashinfo")),
                HasSubstr("\nPath=Film/Render%20Files\n"));
    EXPECT_FALSE(files::exists(root / "home")) << "the home trash stays out of it";

    // An administrator's shared, sticky .Trash takes precedence.
    makeFolder(root / "drive/.Trash");
    ASSERT_EQ(::chmod((root / "drive/.Trash").c_str(), 01777), 0);
    trash.moveToTrash(root / "drive/Film/Proxy Media");
    EXPECT_EQ(readFile(root / ("drive/.Trash/" + uid + "/files/Proxy Media/b.mov")), "b");
}

TEST(FreedesktopTrash, ReportsAnItemItCannotRenameAndLeavesItWhereItWas) {
    QUILLSTOW_REQUIRE_PRIVATE_MOUNTS();
    TemporaryFolder root;
    testing::TmpfsMount drive(root / "drive", 1 << 20);
    writeFile(root / "drive/Film/Render Files/a.mov", "abc");
    drive.remountReadOnly();
    const ManualWallClock clock(deletedAt());
    FreedesktopTrash trash(root / "home/Trash", ::getuid(), clock);

    try {
        trash.moveToTrash(root / "drive/Film/Render Files");
        ADD_FAILURE() << "a read-only volume can't take a trash";
    } catch (const Failure& failure) {
        EXPECT_TRUE(errors::isPosix(failure.error(), EROFS)) << failure.error().description;
    }
    EXPECT_EQ(readFile(root / "drive/Film/Render Files/a.mov"), "abc");
    EXPECT_FALSE(files::exists(root / "home")) << "never copied into another volume's trash";
    EXPECT_THROW(trash.moveToTrash(root / "drive/Film/never there"), Failure);
}

}  // namespace
}  // namespace quillstow
