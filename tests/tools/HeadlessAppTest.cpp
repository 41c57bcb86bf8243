// The headless program from the outside: it backs up the pair of a real settings folder, hears a
// change in the source, and on SIGTERM stops and writes the settings and the log.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "Processes.hpp"
#include "TestTree.hpp"
#include "model/ConfigFile.hpp"
#include "support/AtomicFile.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

// Waits for another process to get somewhere: polls, bounded by a generous deadline.
bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

std::string readIfThere(const fs::path& path) {
    std::error_code missing;
    return fs::exists(path, missing) ? readFile(path) : std::string();
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
    makeFolder(settings);
    makeFolder(root / "Drive");
    atomicfile::write(settings / "config.json", json::write(toJson(ConfigFile{{pair}, config})));
    ::setenv("XDG_CONFIG_HOME", (root / "config").c_str(), 1);
    const auto saved = [&] {
        return configFileFromJson(json::read(readFile(settings / "config.json")));
    };

    const pid_t child = startProcess({QUILLSTOW_PROGRAM});
    ASSERT_GT(child, 0);
    const fs::path mirror = root / "Drive/Quillstow/Projects";
    EXPECT_TRUE(eventually([&] {
        return readIfThere(mirror / "film/cut.txt") == "the cut" &&
               readIfThere(mirror / "notes.txt") == "first notes";
    })) << "the first pass of the start";
    // A save: the watcher hears it, the debouncer waits two seconds, a pass copies it.
    writeFile(root / "draft", "second notes");
    fs::rename(root / "draft", root / "Projects/notes.txt");
    EXPECT_TRUE(eventually([&] { return readIfThere(mirror / "notes.txt") == "second notes"; }));
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
