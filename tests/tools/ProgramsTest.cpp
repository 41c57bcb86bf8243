// The programs from the outside: the pass tool's JSON, its exit status and what a kill at any
// moment leaves in the mirror; the headless program backing up a real settings folder's pair.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>

#include "Processes.hpp"
#include "TestTree.hpp"
#include "copy/ExclusionFilter.hpp"
#include "copy/FileSystem.hpp"
#include "copy/FileTransfer.hpp"
#include "model/ConfigFile.hpp"
#include "support/Json.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;

const std::string tool = QUILLSTOW_PASS_TOOL;

TEST(PassTool, PrintsWhatItDidAndKeepsTheMirrorOfAFolderItCannotRead) {
    TemporaryFolder root;
    writeFile(root / "src/open/a.txt", "alpha");
    writeFile(root / "src/closed/b.txt", "b");
    const ProcessResult first = runProcess({tool, root / "src", root / "drive/mirror"});
    ASSERT_EQ(first.exitStatus, 0) << first.output;
    const json::Value copied = json::read(first.output);
    EXPECT_EQ(copied["copiedFiles"], 2);
    EXPECT_EQ(copied["bytesTransferred"], 6);
    EXPECT_EQ(copied["errors"], json::Value::array());

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
             {tool, "", "/b"},
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

// A few hundred files under `root`, some large enough that a kill lands inside a copy.
Files makeTree(const fs::path& root, std::mt19937& random, int folders) {
    std::uniform_int_distribution<int> smallSize(0, 48 * 1024);
    std::uniform_int_distribution<int> letter('a', 'z');
    for (int folder = 0; folder < folders; ++folder) {
        for (int file = 0; file < 8; ++file) {
            const std::string relative =
                "folder" + std::to_string(folder) + "/file" + std::to_string(file);
            const int size = folder % 10 == 0 && file == 0 ? 2 << 20 : smallSize(random);
            writeFile(root / relative,
                      relative + std::string(std::size_t(size), char(letter(random))));
        }
    }
    return filesBelow(root);
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

    // The kills fall over the time of a whole re-copy and a quarter more.
    LocalFileSystem fileSystem;
    fileSystem.copyItem(root / "base", root / "timing");
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(runProcess({tool, root / "source", root / "timing"}).exitStatus, 0);
    const auto span = std::chrono::steady_clock::now() - start;
    std::uniform_int_distribution<long> delay(0, span.count() * 5 / 4);
    int killedMidway = 0;
    for (int run = 0; run < 50; ++run) {
        const fs::path mirror = root / ("mirror" + std::to_string(run));
        if (run % 2) fileSystem.copyItem(root / "base", mirror);
        const pid_t child = startProcess({tool, root / "source", mirror});
        std::this_thread::sleep_for(decltype(span)(delay(random)));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        killedMidway += WIFSIGNALED(status);
        // Every final name holds one of the two versions, whole; temporaries and the killed
        // pass's marker are left aside.
        for (const auto& [relative, content] : fs::exists(mirror) ? filesBelow(mirror) : Files()) {
            const std::string name = fs::path(relative).filename();
            if (transfer::isReservedName(name) || isInternalFileName(name)) continue;
            const auto holds = [&](const Files& version) {
                return version.contains(relative) && version.at(relative) == content;
            };
            EXPECT_TRUE(holds(oldVersion) || holds(newVersion))
                << "run " << run << ": " << relative << " holds " << content.size()
                << " bytes of no known version";
        }
        if (run < 49) fs::remove_all(mirror);
    }
    EXPECT_GT(killedMidway, 10) << "too few kills landed while the pass ran";
    ASSERT_EQ(runProcess({tool, root / "source", root / "mirror49"}).exitStatus, 0);
    EXPECT_EQ(filesBelow(root / "mirror49"), newVersion);
}

// Waits for another process to get somewhere: polls, bounded by a generous deadline.
bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

TEST(HeadlessApp, BacksUpARealPairHearsAChangeAndStopsCleanly) {
    TemporaryFolder root;
    writeFile(root / "Projects/notes.txt", "first notes");
    writeFile(root / "Projects/film/cut.txt", "the cut");
    // One pair of Projects onto Drive, backed up by hand only.
    const fs::path settings = root / "config/Quillstow";
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = "Projects";
    pair.sourceURL = root / "Projects";
    pair.destinationURL = root / "Drive";
    pair.createdAt = referenceDate();
    AppConfig config;
    config.backupInterval = BackupInterval::manual;
    config.hasCompletedOnboarding = true;
    makeFolder(root / "Drive");
    writeFile(settings / "config.json", json::write(toJson(ConfigFile{{pair}, config})));
    ::setenv("XDG_CONFIG_HOME", (root / "config").c_str(), 1);
    const auto saved = [&] {
        return configFileFromJson(json::read(readFile(settings / "config.json")));
    };

    const pid_t child = startProcess({QUILLSTOW_PROGRAM});
    const fs::path mirror = root / "Drive/Quillstow/Projects";
    EXPECT_TRUE(eventually([&] {
        return readFile(mirror / "film/cut.txt") == "the cut" &&
               readFile(mirror / "notes.txt") == "first notes";
    })) << "the first pass of the start";
    // A save: the watcher hears it, the debouncer waits two seconds, a pass copies it.
    writeFile(root / "draft", "second notes");
    fs::rename(root / "draft", root / "Projects/notes.txt");
    EXPECT_TRUE(eventually([&] { return readFile(mirror / "notes.txt") == "second notes"; }));
    EXPECT_TRUE(eventually([&] { return saved().pairs.at(0).lastBackupFileCount == 1; }));

    int status = 0;
    EXPECT_EQ(::kill(child, SIGTERM), 0);  // as the session sends at logout
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    ASSERT_EQ(saved().pairs.size(), 1u);
    EXPECT_TRUE(saved().pairs[0].lastBackupAt);
    int backups = 0;
    for (const auto& event : eventLogFromJson(json::read(readFile(settings / "backup-log.json"))))
        backups += event.type == BackupEvent::EventType::backup && event.pairId == pair.id;
    EXPECT_EQ(backups, 2) << "the log is written at the stop, also what was pending";
}

}  // namespace
}  // namespace quillstow
