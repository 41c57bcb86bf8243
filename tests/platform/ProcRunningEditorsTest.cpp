// Running editors found through /proc, with a real child process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "TestTree.hpp"
#include "platform/ProcRunningEditors.hpp"
#include "support/Paths.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

// A child process named as an editor, holding a file open: by its path, by another path to it
// (matched by device and inode), and by a folder copied whole around it.
TEST(ProcRunningEditors, FindsARunningEditorAndWhatItHoldsOpen) {
    TemporaryFolder root;
    writeFile(root / "Song.band/take.kra", "layers");
    writeFile(root / "Song.bandage", "not around it");
    makeLink(root / "alias.kra", root / "Song.band/take.kra");
    writeFile(root / "notes.txt", "held open by this test, which is no editor");
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Only async-signal-safe calls between fork and _exit.
        const int fd = ::open((root / "Song.band/take.kra").c_str(), O_RDONLY);
        ::prctl(PR_SET_NAME, "krita");
        const char byte = fd >= 0 ? 'y' : 'n';
        (void)!::write(ready[1], &byte, 1);
        ::pause();
        ::_exit(0);
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ASSERT_EQ(byte, 'y');
    const std::ifstream held(root / "notes.txt");  // after the fork, so the child has it not

    const EditorSnapshot snapshot = ProcRunningEditors().snapshot();
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(ready[0]);
    ::close(ready[1]);

    EXPECT_NE(std::ranges::find(snapshot.names, "Krita"), snapshot.names.end());
    const auto info = files::readInfo(root / "Song.band/take.kra");
    ASSERT_TRUE(info);
    EXPECT_TRUE(isOpenInEditor(snapshot, root / "Song.band/take.kra", &*info));
    EXPECT_TRUE(isOpenInEditor(snapshot, root / "alias.kra", nullptr));
    EXPECT_TRUE(isOpenInEditor(snapshot, root / "Song.band", nullptr));
    EXPECT_FALSE(isOpenInEditor(snapshot, root / "Song.bandage", nullptr));
    EXPECT_FALSE(isOpenInEditor(snapshot, root / "notes.txt", nullptr));
    EXPECT_FALSE(ProcRunningEditors(root / "no-proc-here").snapshot().hasEditors());
}

}  // namespace
}  // namespace quillstow
