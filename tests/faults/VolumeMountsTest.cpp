// Drives that come and go for real: tmpfs mounts below a removable-media root of the test's own,
// judged by the mount table, heard by the volume monitor, and followed by the status manager;
// and a drive that can't be moved inside a destination nested twice.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../control/EngineHarness.hpp"
#include "LogCapture.hpp"
#include "PrivateMounts.hpp"
#include "environment/NestingMigration.hpp"
#include "environment/VolumeMonitor.hpp"
#include "model/BookmarkManager.hpp"
#include "platform/InotifyWatcher.hpp"
#include "support/Json.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using Case = BackupStatus::Case;
using Type = BackupEvent::EventType;
namespace fs = std::filesystem;

class VolumeMountsTest : public ::testing::Test {
  protected:
    void SetUp() override { QUILLSTOW_REQUIRE_PRIVATE_MOUNTS(); }

    TemporaryFolder root;
    std::vector<std::string> roots{(root / "media").native() + "/"};
    fs::path mountPoint = root / "media/Drive";
};

TEST_F(VolumeMountsTest, ADriveIsReachableUntilItGoesAndItsLeftoverFolderNever) {
    auto drive = std::make_unique<TmpfsMount>(mountPoint, 8 << 20);
    makeFolder(mountPoint / "Backups");
    EXPECT_TRUE(isDestinationReachable(mountPoint / "Backups", roots));
    EXPECT_EQ(destinationState(mountPoint / "Backups", MountTable::snapshot(), roots),
              DestinationState::present);

    drive->unmount();
    ASSERT_TRUE(fs::is_directory(mountPoint)) << "the mount point stays behind";
    EXPECT_FALSE(isDestinationReachable(mountPoint, roots));
    EXPECT_EQ(destinationState(mountPoint, MountTable::snapshot(), roots),
              DestinationState::notMounted);

    makeFolder(root / "home/Backups");
    EXPECT_TRUE(isDestinationReachable(root / "home/Backups", roots)) << "no removable root there";

    // A folder of the disk below whose name differs from a mounted drive's in case only.
    TmpfsMount lower(root / "media/backup", 1 << 20);
    makeFolder(root / "media/Backup");
    EXPECT_FALSE(isDestinationReachable(root / "media/Backup", roots));
    EXPECT_TRUE(isDestinationReachable(root / "media/backup", roots));
}

TEST_F(VolumeMountsTest, ADrivePulledAfterTheTriggerLookedAtItGetsNothingWritten) {
    EngineHarness h;
    h.volumes.judgeByMounts(roots);
    auto drive = std::make_unique<TmpfsMount>(mountPoint, 600ull << 20);
    const BackupPair onDrive = h.makePair("OnDrive", mountPoint);
    writeFile(onDrive.sourceURL / "notes.txt", "notes");
    // Another pair's pass holds the queue while the drive's pair waits behind it.
    const BackupPair first = h.makePair("First");
    writeFile(first.sourceURL / "a.txt", "a");
    CopyGate& gate = h.holdAtCopy(1);
    auto firstEngine = h.makeEngine(first);
    auto engine = h.makeEngine(onDrive);
    firstEngine->triggerBackup(first);
    ASSERT_TRUE(gate.waitUntilHeld());
    engine->triggerBackup(onDrive);
    ASSERT_TRUE(h.runUntil([&] { return engine->status().kind() == Case::queued; }));

    drive->unmount();
    gate.release();
    ASSERT_TRUE(h.finishRun()) << "the first pass ends";
    ASSERT_TRUE(
        h.runUntil([&] { return engine->status().kind() == Case::destinationUnreachable; }));
    h.settle();
    EXPECT_TRUE(fs::is_empty(mountPoint)) << "nothing written to the disk below";
    EXPECT_THAT(h.messagesOf(Type::error), ::testing::IsEmpty());
}

TEST_F(VolumeMountsTest, TheMonitorHearsMountsAndUnmountsBelowARemovableRoot) {
    ManualClock clock;
    VirtualMainQueue queue(clock);
    VolumeMonitor monitor(queue, roots);
    std::vector<std::string> heard;
    monitor.onVolumeDidMount = [&](const fs::path& volume) {
        heard.push_back("+" + volume.native());
    };
    monitor.onVolumeDidUnmount = [&](const fs::path& volume) {
        heard.push_back("-" + volume.native());
    };
    monitor.startMonitoring();

    // Elsewhere, and of no interest: not reported.
    auto elsewhere = std::make_unique<TmpfsMount>(root / "scratch", 1 << 20);
    auto drive = std::make_unique<TmpfsMount>(mountPoint, 8 << 20);
    ASSERT_TRUE(queue.runUntil([&] { return !heard.empty(); }));
    drive->unmount();
    ASSERT_TRUE(queue.runUntil([&] { return heard.size() == 2; }));
    elsewhere->unmount();
    EXPECT_THAT(heard,
                ::testing::ElementsAre("+" + mountPoint.native(), "-" + mountPoint.native()));

    // A volume that holds something of interest is reported wherever it is.
    monitor.isOfInterest = [&](const fs::path& volume) { return volume == root / "archive"; };
    auto interesting = std::make_unique<TmpfsMount>(root / "archive", 1 << 20);
    ASSERT_TRUE(queue.runUntil([&] { return heard.size() == 3; }));
    interesting->unmount();
    ASSERT_TRUE(queue.runUntil([&] { return heard.size() == 4; }));
    EXPECT_EQ(heard[2], "+" + (root / "archive").native());
    EXPECT_EQ(heard[3], "-" + (root / "archive").native());

    monitor.stopMonitoring();
    { TmpfsMount late(mountPoint, 1 << 20); }
    queue.runUntil([] { return false; }, 0.3);
    EXPECT_EQ(heard.size(), 4u) << "nothing after the stop";
}

// The watcher of a source on a drive: pulled, plugged back, and a drive mounted over a folder
// of the same path on the disk below.
TEST_F(VolumeMountsTest, TheWatcherFollowsASourceWhoseDriveComesAndGoes) {
    ManualClock clock;
    VirtualMainQueue queue(clock);
    auto drive = std::make_unique<TmpfsMount>(mountPoint, 1 << 20);
    const fs::path source = mountPoint / "Photos";
    makeFolder(source);
    InotifyWatcher watcher(queue);
    int heard = 0;
    watcher.onEventsDetected = [&] { ++heard; };
    watcher.startWatching(source);
    ASSERT_TRUE(watcher.isWatching());

    const struct {
        const char* what;
        std::function<void()> act;
        bool watchesAfter;
    } steps[] = {
        {"the drive is pulled", [&] { drive->unmount(); }, false},
        {"plugged back, the source made on it",
         [&] {
             drive = std::make_unique<TmpfsMount>(mountPoint, 1 << 20);
             makeFolder(source);
         },
         true},
        {"a file written on it", [&] { writeFile(source / "a.jpg", "a"); }, true},
        {"pulled again, a folder of that path made on the disk below",
         [&] {
             drive->unmount();
             makeFolder(source);
         },
         true},
        {"a drive mounted over it, the source made on the drive",
         [&] {
             drive = std::make_unique<TmpfsMount>(mountPoint, 1 << 20);
             makeFolder(source);
         },
         true},
        {"a file written on the drive", [&] { writeFile(source / "b.jpg", "b"); }, true},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.what);
        const int before = heard;
        step.act();
        ASSERT_TRUE(queue.runUntil([&] { return queue.scheduledCount() > 0; }, 10));
        queue.advance(FileWatcher::latency);
        // What came apart is delivered too.
        while (queue.runUntil([&] { return queue.scheduledCount() > 0; }, 0.3))
            queue.advance(FileWatcher::latency);
        EXPECT_GT(heard, before);
        EXPECT_TRUE(queue.runUntil([&] { return watcher.isWatching() == step.watchesAfter; }, 10));
    }
    watcher.stopWatching();
}

TEST_F(VolumeMountsTest, APairFollowsItsDriveOutAndBackIn) {
    EngineHarness h;
    h.volumes.judgeByMounts(roots);
    // Large enough for the 500 MiB a pass wants free; a tmpfs takes memory only for its files.
    auto drive = std::make_unique<TmpfsMount>(mountPoint, 600ull << 20);
    const BackupPair pair = h.makePair("Work", mountPoint / "Backups");
    writeFile(pair.sourceURL / "notes.txt", "notes");

    StatusManager manager(h.store, *h.services, h.queue, h.notifier);
    ASSERT_TRUE(h.runUntil(
        [&] { return manager.engines().at(pair.id)->status().kind() == Case::completed; }));
    h.settle();

    drive->unmount();
    ASSERT_TRUE(h.runUntil([&] {
        return manager.engines().at(pair.id)->status().kind() == Case::destinationUnreachable;
    }));
    EXPECT_EQ(h.events().back().type, Type::volumeLost);
    EXPECT_THAT(h.notifier->sent, Contains("volume lost: Work"));
    manager.backupPairNow(pair.id);
    h.settle();
    EXPECT_EQ(manager.engines().at(pair.id)->status(), BackupStatus::destinationUnreachable())
        << "the folder left at the mount point is no drive";
    EXPECT_FALSE(fs::exists(mountPoint / "Backups")) << "nothing written to the disk below";

    drive = std::make_unique<TmpfsMount>(mountPoint, 600ull << 20);
    makeFolder(mountPoint / "Backups");
    ASSERT_TRUE(h.runUntil(
        [&] { return manager.engines().at(pair.id)->status().kind() == Case::completed; }));
    std::vector<Type> types;
    for (const auto& event : h.events())
        types.push_back(event.type);
    EXPECT_THAT(types, Contains(Type::volumeRestored));
    EXPECT_EQ(readFile(mountPoint / "Backups/Quillstow/Work/notes.txt"), "notes");
    manager.stopAll();
    h.settle();
}

TEST_F(VolumeMountsTest, ANestingMoveThatFailsHalfwayLeavesEveryItemWholeInOnePlace) {
    const fs::path nested = root / "Quillstow/Quillstow/Work";
    writeFile(nested / "a", "a");
    writeFile(nested / "b", "b");
    makeFolder(nested / "m");
    // A read-only drive mounted inside: it can't be moved, and it comes after "a" and "b".
    TmpfsMount readOnly(nested / "m", 1 << 20);
    writeFile(nested / "m/inside", "inside");
    readOnly.remountReadOnly();
    BackupPair pair;
    pair.name = "Work";
    pair.destinationURL = root / "Quillstow";

    LogCapture log;
    NestingMigration::run({pair});
    EXPECT_EQ(readFile(root / "Quillstow/Work/a"), "a") << "what moved stays moved";
    EXPECT_EQ(readFile(root / "Quillstow/Work/b"), "b");
    EXPECT_EQ(readFile(nested / "m/inside"), "inside") << "what could not move stays whole";
    EXPECT_FALSE(fs::exists(root / "Quillstow/Work/m"));
    EXPECT_THAT(
        log.messages("NestingMigration"),
        ElementsAre(
            StartsWith("Detected double-nested path"), "Moved: <private>", "Moved: <private>",
            "Migration failed for \"" + formatLogMessage("%{private,mask.hash}s", {"Work"}) +
                "\": Device or resource busy"));
}

TEST_F(VolumeMountsTest, ABookmarkRecordsItsDriveAndThePathBelowItsMount) {
    // A blank in the mount point is escaped in the kernel's table.
    const fs::path drivePoint = root / "media/My Drive";
    auto drive = std::make_unique<TmpfsMount>(drivePoint, 1 << 20);
    makeFolder(drivePoint / "Backups/Work");
    const auto data = BookmarkManager::bookmarkData(drivePoint / "Backups/Work", false);
    const json::Value record = json::read(std::string(data.begin(), data.end()));
    EXPECT_EQ(record.at("volume"), "tmpfs") << "no UUID on a tmpfs: its mount source";
    EXPECT_EQ(record.at("belowMount"), "Backups/Work");

    drive->unmount();
    EXPECT_THROW(BookmarkManager::resolveBookmark(data, drivePoint / "Backups/Work", false),
                 BackupFailure);
}

}  // namespace
}  // namespace quillstow
