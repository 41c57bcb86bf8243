// quillstow-pass from the outside: its JSON, its exit status, Ctrl-C, and what a kill at any
// moment leaves in the mirror.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <thread>

#include "Processes.hpp"
#include "TestTree.hpp"
#include "copy/ExclusionFilter.hpp"
#include "copy/FileSystem.hpp"
#include "copy/FileTransfer.hpp"
#include "support/Json.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

const std::string tool = QUILLSTOW_PASS_TOOL;
using Files = std::map<std::string, std::string>;

TEST(PassTool, PrintsWhatItDidAndKeepsTheMirrorOfAFolderItCannotRead) {
    TemporaryFolder root;
    writeFile(root / "src/open/a.txt", "alpha");
    writeFile(root / "src/closed/b.txt", "b");
    const ProcessResult first = runProcess({tool, root / "src", root / "drive/mirror"});
    ASSERT_EQ(first.exitStatus, 0) << first.output;
    const json::Value copied = json::read(first.output);
    EXPECT_EQ(copied["copiedFiles"], 2);
    EXPECT_EQ(copied["bytesTransferred"], 6);
    EXPECT_EQ(copied["recommendedProfile"], "standard");
    for (const char* key : {"copiedRelativePaths", "archivedFiles", "duration", "errors",
                            "abortedDueToVolumeLoss", "filesDeferredByEditor"}) {
        EXPECT_TRUE(copied.contains(key)) << key;
    }

    fs::permissions(root / "src/closed", fs::perms::none);
    // Root reads every folder: the pass runs as an ordinary user where the tests run as root.
    std::vector<std::string> command{tool, root / "src", root / "drive/mirror"};
    if (::geteuid() == 0) {
        for (const auto& path : fs::recursive_directory_iterator(root.path()))
            ::lchown(path.path().c_str(), 65534, 65534);
        ::chown(root.path().c_str(), 65534, 65534);
        command.insert(command.begin(), {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534",
                                         "--clear-groups", "--"});
    }
    const ProcessResult run = runProcess(command);
    fs::permissions(root / "src/closed", fs::perms::owner_all);
    ASSERT_EQ(run.exitStatus, 0) << run.output;
    const json::Value result = json::read(run.output);
    ASSERT_EQ(result["errors"].size(), 1u) << run.output;
    EXPECT_EQ(result["errors"][0]["url"], "file://" + (root / "src/closed").native());
    EXPECT_EQ(result["errors"][0]["underlying"]["code"], EACCES);
    EXPECT_EQ(result["archivedFiles"], 0);
    EXPECT_EQ(readFile(root / "drive/mirror/closed/b.txt"), "b");
}

TEST(PassTool, RefusesBadUsageAndBadFoldersInItsOwnWordsWithoutTouchingThem) {
    for (const auto& usage : std::vector<std::vector<std::string>>{
             {tool},
             {tool, "--profile", "cinema", "/a", "/b"},
             {tool, "--frobnicate", "/a", "/b"},
             {tool, "--bandwidth", "turbo", "/a", "/b"},
             {tool, "", "/b"},
             {tool, "--trash", "", "/a", "/b"},
         }) {
        EXPECT_EQ(runProcess(usage).exitStatus, 64) << usage.size();
    }
    // Files that look like what an interrupted pass leaves, in a folder that is no mirror.
    TemporaryFolder root;
    const Files mine = {{".quillstowtmp-ABCDEF12-notes.txt", "mine"},
                        {".quillstowresume-12-clip.mov", "mine too"}};
    for (const auto& [name, content] : mine)
        writeFile(root / "src" / name, content);
    writeFile(root / "mirror/a.txt", "kept");
    const struct {
        fs::path source, destination;
        const char* operation;
        int code;
    } cases[] = {
        {root / "src", root / "src", "validatePath", 1100},
        {root / "gone", root / "mirror", "validateSource", 1004},  // never read as empty
    };
    for (const auto& c : cases) {
        const ProcessResult run = runProcess({tool, c.source, c.destination});
        EXPECT_EQ(run.exitStatus, 2);
        const json::Value error = json::read(run.output);
        EXPECT_EQ(error["operation"], c.operation);
        EXPECT_EQ(error["url"], "file://" + c.source.native());
        EXPECT_EQ(error["underlying"]["domain"], "Quillstow");
        EXPECT_EQ(error["underlying"]["code"], c.code);
        EXPECT_EQ(filesBelow(root / "src"), mine);
        EXPECT_EQ(readFile(root / "mirror/a.txt"), "kept");
    }
}

TEST(PassTool, CtrlCCancelsThePassWhichReportsWhatItDid) {
    TemporaryFolder root;
    for (int i = 0; i < 3000; ++i)
        writeFile(root / "src" / std::to_string(i % 30) / std::to_string(i),
                  std::string(2048, 'x'));
    const fs::path mirror = root / "mirror";
    const pid_t child = startProcess({"/bin/sh", "-c", "exec \"$0\" \"$1\" \"$2\" > \"$3\"", tool,
                                      root / "src", mirror, root / "printed"});
    // Interrupt as soon as the first copy exists, long before the 3000th.
    while (!fs::exists(mirror) || fs::is_empty(mirror))
        std::this_thread::yield();
    ::kill(child, SIGINT);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    const int copied = json::read(readFile(root / "printed"))["copiedFiles"].get<int>();
    EXPECT_LT(copied, 3000);
    EXPECT_EQ(std::size_t(copied), filesBelow(mirror).size());
}

// A few hundred files under `root`, some large enough that a kill lands inside a copy.
Files makeTree(const fs::path& root, std::mt19937& random, int folders) {
    Files files;
    std::uniform_int_distribution<int> smallSize(0, 48 * 1024);
    std::uniform_int_distribution<int> letter('a', 'z');
    for (int folder = 0; folder < folders; ++folder) {
        for (int file = 0; file < 8; ++file) {
            const std::string relative =
                "folder" + std::to_string(folder) + "/file" + std::to_string(file);
            const int size =
                (folder % 10 == 0 && file == 0) ? 2 * 1024 * 1024 + folder : smallSize(random);
            std::string content(std::size_t(size), char(letter(random)));
            content.insert(0, relative);
            writeFile(root / relative, content);
            files[relative] = content;
        }
    }
    return files;
}

// Every final name holds one of the allowed versions, whole.
void expectOnlyWholeFiles(const fs::path& mirror, const std::vector<const Files*>& versions,
                          int run) {
    if (!fs::exists(mirror)) return;
    for (const auto& [relative, content] : filesBelow(mirror)) {
        const std::string name = fs::path(relative).filename();
        // Leftovers of the killed pass: temporaries and its marker, never final names.
        if (transfer::isReservedName(name) || isInternalFileName(name)) continue;
        bool matches = false;
        for (const auto* version : versions) {
            const auto found = version->find(relative);
            matches = matches || (found != version->end() && found->second == content);
        }
        EXPECT_TRUE(matches) << "run " << run << ": " << relative << " holds " << content.size()
                             << " bytes of no known version";
    }
}

// Fifty passes, every other one a first copy and the rest into a mirror of the old version whose
// source has since changed half of its files and grown new ones, each killed at a random
// moment; then one that runs to its end.
TEST(PassTool, AKillAtAnyMomentLeavesOnlyWholeOldOrNewFilesUnderFinalNames) {
    TemporaryFolder root;
    std::mt19937 random{20261123};
    const Files oldVersion = makeTree(root / "source", random, 25);
    ASSERT_EQ(runProcess({tool, root / "source", root / "base"}).exitStatus, 0);
    // Every file written again with another size, half of them then put back, and new ones.
    makeTree(root / "source", random, 31);
    int index = 0;
    for (const auto& [relative, content] : oldVersion)
        if (index++ % 2 == 0) writeFile(root / "source" / relative, content);
    const Files newVersion = filesBelow(root / "source");

    // The quicker of two runs, so that a busy moment of the machine doesn't stretch the span in
    // which the kills fall past the end of most passes.
    LocalFileSystem fileSystem;
    auto longest = std::chrono::microseconds::max();
    for (const char* timing : {"timing1", "timing2"}) {
        fileSystem.copyItem(root / "base", root / timing);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(runProcess({tool, root / "source", root / timing}).exitStatus, 0);
        longest = std::min(longest, std::chrono::duration_cast<std::chrono::microseconds>(
                                        std::chrono::steady_clock::now() - start));
    }
    std::uniform_int_distribution<long> delay(0, longest.count() * 5 / 4);
    int killedMidway = 0;
    for (int run = 0; run < 50; ++run) {
        const fs::path mirror = root / ("mirror" + std::to_string(run));
        if (run % 2) fileSystem.copyItem(root / "base", mirror);
        const pid_t child = startProcess({tool, root / "source", mirror});
        std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
        const bool killed = ::kill(child, SIGKILL) == 0;
        int status = 0;
        ::waitpid(child, &status, 0);
        killedMidway += killed && WIFSIGNALED(status);
        expectOnlyWholeFiles(mirror, {&oldVersion, &newVersion}, run);
        if (run < 49) fs::remove_all(mirror);
    }
    EXPECT_GT(killedMidway, 10) << "too few kills landed while the pass ran";
    ASSERT_EQ(runProcess({tool, root / "source", root / "mirror49"}).exitStatus, 0);
    EXPECT_EQ(filesBelow(root / "mirror49"), newVersion);
}

}  // namespace
}  // namespace quillstow
