// Running editors found through /proc: a made-up process table, and a real child process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "TestTree.hpp"
#include "platform/ProcRunningEditors.hpp"
#include "support/Paths.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

TEST(ProcRunningEditors, KnowsEditorsByExecutableThenCommandAndWhatTheyHoldOpen) {
    TemporaryFolder root;
    const fs::path proc = root / "proc", work = root / "work";
    const struct {
        const char *pid, *command, *executable;
        std::vector<fs::path> open;
    } processes[] = {
        {"100", "blender", "/usr/bin/blender", {work / "scene.blend", "pipe:[1234]"}},
        {"200", "python3", "/opt/resolve/bin/resolve", {}},
        {"300", "krita", "/opt/krita/AppRun", {}},
        {"400", "bash", "/usr/bin/bash", {work / "shell-history"}},
        // The match is exact: another version is not recognised.
        {"500", "gimp-2.8", "/usr/bin/gimp-2.8", {work / "old.xcf"}},
        {"600", "ardour8", "/usr/bin/ardour8", {work / "Song.band/Media/take.wav"}},
        {"700", "blender", "/usr/bin/blender", {"/gone/file (deleted)"}},
    };
    for (const auto& process : processes) {
        writeFile(proc / process.pid / "comm", std::string(process.command) + "\n");
        makeLink(proc / process.pid / "exe", process.executable);
        makeFolder(proc / process.pid / "fd");
        for (std::size_t fd = 0; fd < process.open.size(); ++fd)
            makeLink(proc / process.pid / "fd" / std::to_string(fd), process.open[fd]);
    }
    writeFile(proc / "self-status-not-a-pid", "");
    for (const char* file :
         {"scene.blend", "shell-history", "old.xcf", "Song.band/Media/take.wav", "Song.bandage"})
        writeFile(work / file, "x");

    const EditorSnapshot snapshot = ProcRunningEditors(proc).snapshot();

    EXPECT_EQ(snapshot.names,
              (std::vector<std::string>{"Ardour", "Blender", "DaVinci Resolve", "Krita"}));
    // A folder copied whole is open when anything inside is.
    for (const auto& [file, isOpen] : {std::pair{"scene.blend", true},
                                       {"shell-history", false},
                                       {"old.xcf", false},
                                       {"Song.band", true},
                                       {"Song.bandage", false}})
        EXPECT_EQ(isOpenInEditor(snapshot, work / file, nullptr), isOpen) << file;
    EXPECT_FALSE(ProcRunningEditors(root / "no-proc-here").snapshot().hasEditors());
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

    EXPECT_NE(std::ranges::find(snapshot.names, "Krita"), snapshot.names.end());
    const auto info = files::readInfo(root / "project.kra");
    ASSERT_TRUE(info);
    EXPECT_TRUE(isOpenInEditor(snapshot, root / "project.kra", &*info));
    EXPECT_TRUE(isOpenInEditor(snapshot, root / "alias.kra", nullptr));
}

}  // namespace
}  // namespace quillstow
