// Running editors found through /proc: a made-up process table, and a real child process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TestTree.hpp"
#include "platform/ProcRunningEditors.hpp"
#include "support/Paths.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

TEST(EditorNamed, MatchesTheExecutableFirstThenTheCommandName) {
    EXPECT_EQ(editorNamed("blender", "/usr/bin/blender"), "Blender");
    EXPECT_EQ(editorNamed("python3", "/opt/resolve/bin/resolve"), "DaVinci Resolve");
    EXPECT_EQ(editorNamed("krita", ""), "Krita");
    EXPECT_EQ(editorNamed("bash", "/usr/bin/bash"), "");
    // The match is exact: another version is not recognised.
    EXPECT_EQ(editorNamed("gimp-2.8", "/usr/bin/gimp-2.8"), "");
}

class FakeProcTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path proc = root / "proc";

    void addProcess(const std::string& pid, const std::string& command, const fs::path& executable,
                    const std::vector<fs::path>& openFiles) {
        writeFile(proc / pid / "comm", command + "\n");
        makeLink(proc / pid / "exe", executable);
        makeFolder(proc / pid / "fd");
        int number = 0;
        for (const auto& file : openFiles)
            makeLink(proc / pid / "fd" / std::to_string(number++), file);
    }
};

TEST_F(FakeProcTest, ReportsEditorsWithTheirOpenFilesAndNothingElse) {
    writeFile(root / "work/scene.blend", "scene");
    writeFile(root / "work/shell-history", "x");
    addProcess("100", "blender", "/usr/bin/blender", {root / "work/scene.blend", "pipe:[1234]"});
    addProcess("200", "krita", "/usr/bin/krita", {});
    addProcess("300", "bash", "/usr/bin/bash", {root / "work/shell-history"});
    addProcess("400", "blender", "/usr/bin/blender", {"/gone/file (deleted)"});
    addProcess("500", "systemd", "/usr/lib/systemd/systemd", {"/etc/hostname"});
    writeFile(proc / "self-status-not-a-pid", "");

    const EditorSnapshot snapshot = ProcRunningEditors(proc).snapshot();

    EXPECT_EQ(snapshot.names, (std::vector<std::string>{"Blender", "Krita"}));
    EXPECT_EQ(snapshot.openPaths,
              (std::set<std::string, std::less<>>{(root / "work/scene.blend").native()}));
    EXPECT_TRUE(isOpenInEditor(snapshot, root / "work/scene.blend", nullptr));
    EXPECT_FALSE(isOpenInEditor(snapshot, root / "work/shell-history", nullptr));
    EXPECT_FALSE(ProcRunningEditors(root / "no-proc-here").snapshot().hasEditors());
}

TEST_F(FakeProcTest, AFolderCopiedWholeIsOpenWhenAnythingInsideIs) {
    writeFile(root / "work/Song.band/Media/take.wav", "take");
    writeFile(root / "work/Song.bandage", "not inside");
    addProcess("100", "ardour8", "/usr/bin/ardour8", {root / "work/Song.band/Media/take.wav"});
    const EditorSnapshot snapshot = ProcRunningEditors(proc).snapshot();
    EXPECT_TRUE(isOpenInEditor(snapshot, root / "work/Song.band", nullptr));
    EXPECT_FALSE(isOpenInEditor(snapshot, root / "work/Song.bandage", nullptr));
}

TEST(RealProc, FindsARunningEditorAndTheFileItHoldsOpenByInode) {
    TemporaryFolder root;
    writeFile(root / "project.kra", "layers");
    makeLink(root / "alias.kra", root / "project.kra");
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Only async-signal-safe calls between fork and _exit.
        const int fd = ::open((root / "project.kra").c_str(), O_RDONLY);
        ::prctl(PR_SET_NAME, "krita");
        const char byte = fd >= 0 ? 'y' : 'n';
        (void)!::write(ready[1], &byte, 1);
        ::pause();
        ::_exit(0);
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ASSERT_EQ(byte, 'y');

    const EditorSnapshot snapshot = ProcRunningEditors().snapshot();
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(ready[0]);
    ::close(ready[1]);

    EXPECT_NE(std::find(snapshot.names.begin(), snapshot.names.end(), "Krita"),
              snapshot.names.end());
    const auto info = files::readInfo(root / "project.kra");
    ASSERT_TRUE(info);
    EXPECT_TRUE(isOpenInEditor(snapshot, root / "project.kra", &*info));
    EXPECT_TRUE(isOpenInEditor(snapshot, root / "alias.kra", nullptr));
}

}  // namespace
}  // namespace quillstow
