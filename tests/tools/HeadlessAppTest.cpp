// The headless program from the outside: it backs up the pairs of a real settings folder, hears
// a change in a source, and on SIGTERM stops and writes the settings and the log.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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

// A settings folder with one pair of `source` into `drive`, backed up by hand only.
fs::path settingsWithPair(const fs::path& root, const fs::path& source, const fs::path& drive,
                          BandwidthMode mode = BandwidthMode::full) {
    const fs::path settings = root / "config/Quillstow";
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = "Projects";
    pair.sourceURL = source;
    pair.destinationURL = drive;
    pair.createdAt = referenceDate();
    AppConfig config;
    config.backupInterval = BackupInterval::manual;
    config.hasCompletedOnboarding = true;
    config.bandwidthMode = mode;
    fs::create_directories(settings);
    fs::create_directories(drive);
    atomicfile::write(settings / "config.json", json::write(toJson(ConfigFile{{pair}, config})));
    ::setenv("XDG_CONFIG_HOME", (root / "config").c_str(), 1);
    return settings;
}

ConfigFile savedSettings(const fs::path& settings) {
    return configFileFromJson(json::read(readFile(settings / "config.json")));
}

// SIGTERM, as the session sends at logout; answers the wait status.
int stopped(pid_t child) {
    int status = 0;
    EXPECT_EQ(::kill(child, SIGTERM), 0);
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return status;
}

std::vector<std::string> loggedMessages(const fs::path& settings) {
    std::vector<std::string> messages;
    try {
        for (const auto& event :
             eventLogFromJson(json::read(readIfThere(settings / "backup-log.json")))) {
            messages.push_back(event.message.value_or(""));
        }
    } catch (const std::exception&) {
        // Not written yet.
    }
    return messages;
}

TEST(HeadlessApp, ASourceMissingAtTheStartGetsItsPassAndIsBackedUpOnceItIsThere) {
    TemporaryFolder root;
    const fs::path source = root / "Projects";
    const fs::path settings = settingsWithPair(root.path(), source, root / "Drive");
    const pid_t child = startProcess({program});
    ASSERT_GT(child, 0);
    EXPECT_TRUE(eventually([&] {
        const auto messages = loggedMessages(settings);
        return std::find(messages.begin(), messages.end(),
                         "Source folder is not readable — check permissions or reconnect the "
                         "drive.") != messages.end();
    }));
    writeFile(root / "draft", "notes");
    fs::create_directories(source);
    fs::rename(root / "draft", source / "notes.txt");
    EXPECT_TRUE(eventually(
        [&] { return readIfThere(root / "Drive/Quillstow/Projects/notes.txt") == "notes"; }));
    stopped(child);
}

TEST(HeadlessApp, AStopDuringAPassWithTriggersWaitingEndsWithinTwoSeconds) {
    TemporaryFolder root;
    const fs::path source = root / "Projects";
    for (int i = 0; i < 1500; ++i)
        writeFile(source / ("f" + std::to_string(i)), std::string(4096, 'x'));
    // Quiet: the pass pauses between files, so it is still copying when the stop comes.
    const fs::path settings =
        settingsWithPair(root.path(), source, root / "Drive", BandwidthMode::quiet);
    const pid_t child = startProcess({program});
    ASSERT_GT(child, 0);
    const fs::path mirror = root / "Drive/Quillstow/Projects";
    const auto copied = [&] {
        std::error_code missing;
        return std::distance(fs::directory_iterator(mirror, missing), fs::directory_iterator());
    };
    ASSERT_TRUE(eventually([&] { return copied() >= 100; }));
    // Changes a debounce apart: triggers that wait behind the pass, each superseding the last.
    for (int i = 0; i < 3; ++i) {
        writeFile(source / ("change" + std::to_string(i)), "x");
        std::this_thread::sleep_for(std::chrono::milliseconds(2300));
    }
    const auto stopping = std::chrono::steady_clock::now();
    const int status = stopped(child);
    EXPECT_LT(std::chrono::steady_clock::now() - stopping, std::chrono::seconds(2));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_LT(copied(), 1500) << "the pass was still going";
    EXPECT_EQ(savedSettings(settings).pairs.size(), 1u);
}

TEST(HeadlessApp, BacksUpARealPairHearsAChangeAndStopsCleanly) {
    TemporaryFolder root;
    writeFile(root / "Projects/notes.txt", "first notes");
    writeFile(root / "Projects/film/cut.txt", "the cut");
    const fs::path settings = settingsWithPair(root.path(), root / "Projects", root / "Drive");
    const Uuid pairId = savedSettings(settings).pairs.at(0).id;
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
    EXPECT_TRUE(
        eventually([&] { return savedSettings(settings).pairs.at(0).lastBackupFileCount == 1; }));

    const int status = stopped(child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    const ConfigFile saved = savedSettings(settings);
    ASSERT_EQ(saved.pairs.size(), 1u);
    EXPECT_EQ(saved.pairs[0].lastBackupFileCount, 1) << "the last pass copied the saved file";
    const auto events = eventLogFromJson(json::read(readFile(settings / "backup-log.json")));
    int backups = 0;
    for (const auto& event : events)
        backups += event.type == BackupEvent::EventType::backup && event.pairId == pairId;
    EXPECT_EQ(backups, 2) << "the log is written at the stop, also what was pending";
    EXPECT_TRUE(saved.pairs[0].lastBackupAt);
}

}  // namespace
}  // namespace quillstow
