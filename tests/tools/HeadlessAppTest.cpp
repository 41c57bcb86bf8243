// The headless program from the outside: it backs up the pairs of a real settings folder, hears
// a change in a source, and on SIGTERM stops and writes the settings and the log.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

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

const std::string program = QUILLSTOW_PROGRAM;

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
    const fs::path settings = root / "config/Quillstow";
    writeFile(root / "Projects/notes.txt", "first notes");
    writeFile(root / "Projects/film/cut.txt", "the cut");
    fs::create_directories(root / "Drive");

    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = "Projects";
    pair.sourceURL = root / "Projects";
    pair.destinationURL = root / "Drive";
    pair.createdAt = referenceDate();
    AppConfig config;
    config.backupInterval = BackupInterval::manual;
    config.hasCompletedOnboarding = true;
    fs::create_directories(settings);
    atomicfile::write(settings / "config.json", json::write(toJson(ConfigFile{{pair}, config})));

    ::setenv("XDG_CONFIG_HOME", (root / "config").c_str(), 1);
    const pid_t child = startProcess({program});
    ASSERT_GT(child, 0);
    const fs::path mirror = root / "Drive/Quillstow/Projects";
    const bool mirrored = eventually([&] {
        return readIfThere(mirror / "film/cut.txt") == "the cut" &&
               readIfThere(mirror / "notes.txt") == "first notes";
    });
    EXPECT_TRUE(mirrored) << "the first pass of the start";

    // A save: the watcher hears it, the debouncer waits two seconds, a pass copies it.
    writeFile(root / "draft", "second notes");
    fs::rename(root / "draft", root / "Projects/notes.txt");
    EXPECT_TRUE(eventually([&] { return readIfThere(mirror / "notes.txt") == "second notes"; }));
    // The pair is recorded once that pass has been through.
    EXPECT_TRUE(eventually([&] {
        return configFileFromJson(json::read(readFile(settings / "config.json")))
                   .pairs.at(0)
                   .lastBackupFileCount == 1;
    }));

    ASSERT_EQ(::kill(child, SIGTERM), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);

    const ConfigFile saved = configFileFromJson(json::read(readFile(settings / "config.json")));
    ASSERT_EQ(saved.pairs.size(), 1u);
    EXPECT_EQ(saved.pairs[0].lastBackupFileCount, 1) << "the last pass copied the saved file";
    const auto events = eventLogFromJson(json::read(readFile(settings / "backup-log.json")));
    int backups = 0;
    for (const auto& event : events)
        backups += event.type == BackupEvent::EventType::backup && event.pairId == pair.id;
    EXPECT_EQ(backups, 2) << "the log is written at the stop, also what was pending";
    EXPECT_TRUE(saved.pairs[0].lastBackupAt);
}

}  // namespace
}  // namespace quillstow
