// quillstow-pass from the outside: its JSON, its exit status, and what a kill at any moment
// leaves in the mirror.

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

TEST(PassTool, PrintsTheResultWithTheRecordsFieldNames) {
    TemporaryFolder root;
    writeFile(root / "src/a.txt", "alpha");
    const ProcessResult run = runProcess({tool, root / "src", root / "drive/mirror"});
    ASSERT_EQ(run.exitStatus, 0) << run.output;
    const json::Value result = json::read(run.output);
    EXPECT_EQ(result["copiedFiles"], 1);
    EXPECT_EQ(result["copiedRelativePaths"], json::Value::array({"a.txt"}));
    EXPECT_EQ(result["bytesTransferred"], 5);
    EXPECT_EQ(result["recommendedProfile"], "standard");
    for (const char* key : {"archivedFiles", "duration", "errors", "abortedDueToVolumeLoss",
                            "filesDeferredByEditor", "approximateSourceBytes"}) {
        EXPECT_TRUE(result.contains(key)) << key;
    }
    EXPECT_EQ(readFile(root / "drive/mirror/a.txt"), "alpha");
}

TEST(PassTool, PrintsTheRaisedErrorAndExitsWithTwo) {
    TemporaryFolder root;
    makeFolder(root / "src");
    makeFolder(root / "target");
    makeLink(root / "link", root / "target");
    const ProcessResult run = runProcess({tool, root / "src", root / "link"});
    EXPECT_EQ(run.exitStatus, 2);
    const json::Value error = json::read(run.output);
    EXPECT_EQ(error["operation"], "validateDestination");
    EXPECT_EQ(error["url"], "file://" + (root / "link").native());
    EXPECT_EQ(error["underlying"]["domain"], "Quillstow");
    EXPECT_EQ(error["underlying"]["code"], 1003);
}

TEST(PassTool, RefusesBadUsageInItsOwnWords) {
    const std::vector<std::vector<std::string>> badUsages{
        {tool},
        {tool, "--profile", "cinema", "/a", "/b"},
        {tool, "--frobnicate", "/a", "/b"},
        {tool, "--bandwidth", "turbo", "/a", "/b"},
        {tool, "", "/b"},
        {tool, "/a", ""},
        {tool, "--trash", "", "/a", "/b"},
    };
    for (const auto& usage : badUsages)
        EXPECT_EQ(runProcess(usage).exitStatus, 64) << usage.size();
    EXPECT_EQ(runProcess({tool, "--help"}).exitStatus, 0);
}

TEST(PassTool, NeverSweepsASourceItWasWronglyGivenAsDestination) {
    TemporaryFolder root;
    const std::string leftoverLookAlike = ".quillstowtmp-ABCDEF12-notes.txt";
    writeFile(root / "src" / leftoverLookAlike, "mine");
    writeFile(root / "src/.quillstowresume-12-clip.mov", "mine too");
    EXPECT_EQ(runProcess({tool, root / "src", root / "src"}).exitStatus, 2);
    EXPECT_EQ(readFile(root / "src" / leftoverLookAlike), "mine");
    EXPECT_EQ(readFile(root / "src/.quillstowresume-12-clip.mov"), "mine too");
}

TEST(PassTool, AnUnreadableSourceFolderIsAnErrorAndItsMirrorStays) {
    TemporaryFolder root;
    writeFile(root / "src/open/a.txt", "a");
    writeFile(root / "src/closed/b.txt", "b");
    ASSERT_EQ(runProcess({tool, root / "src", root / "drive/mirror"}).exitStatus, 0);
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

TEST(PassTool, CtrlCCancelsThePassWhichReportsWhatItDid) {
    TemporaryFolder root;
    for (int i = 0; i < 3000; ++i) {
        writeFile(root / "src" / std::to_string(i % 30) / std::to_string(i),
                  std::string(2048, 'x'));
    }
    int output[2];
    ASSERT_EQ(::pipe(output), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    const std::string source = root / "src";
    const std::string mirror = root / "mirror";
    if (child == 0) {
        ::dup2(output[1], STDOUT_FILENO);
        ::execl(tool.c_str(), tool.c_str(), source.c_str(), mirror.c_str(), nullptr);
        ::_exit(127);
    }
    ::close(output[1]);
    // Interrupt as soon as the first copy exists, long before the 3000th.
    while (!fs::exists(mirror) || fs::is_empty(mirror))
        std::this_thread::yield();
    ::kill(child, SIGINT);
    std::string printed;
    char buffer[4096];
    for (ssize_t count; (count = ::read(output[0], buffer, sizeof buffer)) > 0;) {
        printed.append(buffer, std::size_t(count));
    }
    ::close(output[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    const json::Value result = json::read(printed);
    const int copied = result["copiedFiles"].get<int>();
    EXPECT_LT(copied, 3000);
    EXPECT_EQ(std::size_t(copied), filesBelow(mirror).size());
}

using Files = std::map<std::string, std::string>;

// A tree of a few hundred files, some of them large enough that a kill lands inside a copy.
std::map<std::string, std::string> makeTree(const fs::path& root, std::mt19937& random,
                                            const std::string& flavour) {
    std::map<std::string, std::string> files;
    std::uniform_int_distribution<int> smallSize(0, 48 * 1024);
    std::uniform_int_distribution<int> letter('a', 'z');
    for (int folder = 0; folder < 30; ++folder) {
        for (int file = 0; file < 8; ++file) {
            const std::string relative =
                "folder" + std::to_string(folder) + "/file" + std::to_string(file);
            const int size =
                (folder % 10 == 0 && file == 0) ? 2 * 1024 * 1024 + folder : smallSize(random);
            std::string content(std::size_t(size), char(letter(random)));
            content.insert(0, flavour + relative);
            writeFile(root / relative, content);
            files[relative] = content;
        }
    }
    return files;
}

class KilledPassTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    std::mt19937 random{20261123};

    // Runs the tool and kills it after a random delay; returns whether it was still running.
    bool runAndKill(const fs::path& source, const fs::path& mirror,
                    std::chrono::microseconds longest) {
        const pid_t child = startProcess({tool, source, mirror});
        std::uniform_int_distribution<long> delay(0, longest.count());
        std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
        const bool killed = ::kill(child, SIGKILL) == 0;
        int status = 0;
        ::waitpid(child, &status, 0);
        return killed && WIFSIGNALED(status);
    }

    // The quicker of two runs, so that a busy moment of the machine doesn't stretch the span
    // in which the kills fall past the end of most passes.
    std::chrono::microseconds timeOfOneRun(const fs::path& source, const fs::path& mirror) {
        std::chrono::microseconds quickest = std::chrono::microseconds::max();
        for (const char* copy : {"-1", "-2"}) {
            const fs::path target = mirror.native() + copy;
            if (fs::exists(mirror)) LocalFileSystem().copyItem(mirror, target);
            const auto start = std::chrono::steady_clock::now();
            EXPECT_EQ(runProcess({tool, source, target}).exitStatus, 0);
            quickest = std::min(quickest, std::chrono::duration_cast<std::chrono::microseconds>(
                                              std::chrono::steady_clock::now() - start));
        }
        return quickest;
    }

    void killFiftyTimes(const std::optional<fs::path>& base,
                        const std::vector<const Files*>& allowed);

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
};

// Fifty passes into copies of `base` (none: a first copy), each killed at a random moment;
// then one that runs to its end.
void KilledPassTest::killFiftyTimes(const std::optional<fs::path>& base,
                                    const std::vector<const Files*>& allowed) {
    LocalFileSystem fileSystem;
    if (base) fileSystem.copyItem(*base, root / "timing");
    const auto longest = timeOfOneRun(root / "source", root / "timing") * 5 / 4;
    int killedMidway = 0;
    for (int run = 0; run < 50; ++run) {
        const fs::path mirror = root / ("mirror" + std::to_string(run));
        if (base) fileSystem.copyItem(*base, mirror);
        killedMidway += runAndKill(root / "source", mirror, longest);
        expectOnlyWholeFiles(mirror, allowed, run);
        if (run < 49) fs::remove_all(mirror);
    }
    EXPECT_GT(killedMidway, 10) << "too few kills landed while the pass ran";
    ASSERT_EQ(runProcess({tool, root / "source", root / "mirror49"}).exitStatus, 0);
    EXPECT_EQ(filesBelow(root / "mirror49"), *allowed.back());
}

TEST_F(KilledPassTest, AFirstCopyKilledAtAnyMomentLeavesOnlyWholeFiles) {
    const auto source = makeTree(root / "source", random, "v1 ");
    killFiftyTimes(std::nullopt, {&source});
}

TEST_F(KilledPassTest, AReCopyKilledAtAnyMomentLeavesOldOrNewVersionsOnly) {
    const auto oldVersion = makeTree(root / "source", random, "v1 ");
    ASSERT_EQ(runProcess({tool, root / "source", root / "base"}).exitStatus, 0);
    // Half of the files change, with other sizes.
    Files newVersion = oldVersion;
    int index = 0;
    for (auto& [relative, content] : newVersion) {
        if (index++ % 2 == 0) continue;
        content = "v2 " + content + std::string(std::size_t(index % 7), '+');
        writeFile(root / "source" / relative, content);
    }
    killFiftyTimes(root / "base", {&oldVersion, &newVersion});
}

}  // namespace
}  // namespace quillstow
