// Drives and shares that come and go for real: tmpfs mounts below a removable-media root of the
// test's own, heard by the volume monitor and brought back by the reconnector; a share that
// hangs in the kernel; and a move that a mount inside stops halfway.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../control/EngineHarness.hpp"
#include "PrivateMounts.hpp"
#include "environment/FakeTrigger.hpp"
#include "environment/NestingMigration.hpp"
#include "environment/VolumeMonitor.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::Contains;
using ::testing::ElementsAre;
using Case = BackupStatus::Case;
namespace fs = std::filesystem;

class VolumeMountsTest : public ::testing::Test {
  protected:
    void SetUp() override { QUILLSTOW_REQUIRE_PRIVATE_MOUNTS(); }

    TemporaryFolder root;
    std::vector<std::string> roots{(root / "media").native() + "/"};
    fs::path mountPoint = root / "media/Drive";
    ManualClock clock;
    VirtualMainQueue queue{clock};
};

TEST_F(VolumeMountsTest, TheMonitorHearsDrivesBelowARemovableRootAndVolumesOfInterest) {
    VolumeMonitor monitor(queue, roots);
    std::vector<std::string> heard;
    monitor.onVolumeDidMount = [&](const fs::path& volume) {
        heard.push_back("+" + volume.native());
    };
    monitor.onVolumeDidUnmount = [&](const fs::path& volume) {
        heard.push_back("-" + volume.native());
    };
    monitor.isOfInterest = [&](const fs::path& volume) { return volume == root / "archive"; };
    monitor.startMonitoring();
    const auto hears = [&](std::size_t count) {
        return queue.runUntil([&] { return heard.size() >= count; });
    };
    auto scratch = std::make_unique<TmpfsMount>(root / "scratch", 1 << 20);
    auto drive = std::make_unique<TmpfsMount>(mountPoint, 1 << 20);
    ASSERT_TRUE(hears(1));
    scratch.reset();
    drive.reset();
    ASSERT_TRUE(hears(2));
    {
        TmpfsMount archive(root / "archive", 1 << 20);
        ASSERT_TRUE(hears(3));
    }
    ASSERT_TRUE(hears(4));
    monitor.stopMonitoring();
    { TmpfsMount late(mountPoint, 1 << 20); }
    queue.runUntil([] { return false; }, 0.3);
    const std::string at = mountPoint.native(), archive = (root / "archive").native();
    EXPECT_THAT(heard, ElementsAre("+" + at, "-" + at, "+" + archive, "-" + archive))
        << "nothing of the scratch mount, nothing after the stop";
}

TEST_F(VolumeMountsTest, AShareThatComesBackIsResumedAtTheNextTriggerAndOnlyThen) {
    EngineHarness h;
    h.volumes.judgeByMounts(roots);
    FakeTrigger wake;
    h.services->reconnectTriggers.wake = &wake;
    // Large enough for the 500 MiB a pass wants free; a tmpfs takes memory only for its files.
    auto share = std::make_unique<TmpfsMount>(mountPoint, 600ull << 20);
    const BackupPair pair = h.makePair("Work", mountPoint / "Backups");
    writeFile(pair.sourceURL / "notes.txt", "notes");
    StatusManager manager(h.store, *h.services, h.queue, h.notifier);
    // Only the triggers may notice the share now, as with a share the monitor can't tell of.
    manager.volumeMonitor().stopMonitoring();
    const auto status = [&] { return manager.engines().at(pair.id)->status().kind(); };
    ASSERT_TRUE(h.runUntil([&] { return status() == Case::completed; }));
    h.settle();
    const auto wakeUp = [&] {
        wake.fire();
        h.queue.runPending();
        h.queue.advance(VolumeReconnector::attemptDelay);
    };

    share->unmount();
    manager.backupPairNow(pair.id);
    ASSERT_TRUE(h.runUntil([&] { return status() == Case::destinationUnreachable; }));
    h.settle();
    wakeUp();
    // The probe answers from a task of its own: its answer must be in before the share comes
    // back, or it would find the share that the next lines mount.
    h.queue.runPending();
    ASSERT_TRUE(h.queue.waitForPosted(10));
    h.settle();
    EXPECT_EQ(status(), Case::destinationUnreachable) << "the mount point alone is no share";
    EXPECT_FALSE(fs::exists(mountPoint / "Backups")) << "nothing written to the disk below";

    share = std::make_unique<TmpfsMount>(mountPoint, 600ull << 20);
    makeFolder(mountPoint / "Backups");
    writeFile(pair.sourceURL / "later.txt", "later");
    h.queue.advance(10);
    h.settle();
    ASSERT_EQ(status(), Case::destinationUnreachable) << "nothing but a trigger brings it back";
    wakeUp();
    ASSERT_TRUE(h.runUntil([&] { return status() == Case::completed; }));
    EXPECT_EQ(readFile(mountPoint / "Backups/Quillstow/Work/later.txt"), "later");
    EXPECT_THAT(h.eventTypes(), Contains(BackupEvent::EventType::volumeRestored));
    manager.stopAll();
    h.settle();
}

BackupPair pairAt(const std::string& name, const fs::path& destination) {
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = name;
    pair.destinationURL = destination;
    return pair;
}

TEST_F(VolumeMountsTest, AShareThatHangsHoldsNeitherTheOtherPairsNorTheMainQueueNorTheQuit) {
    makeFolder(root / "Back");
    std::unique_ptr<SilentFuseMount> share;
    try {
        share = std::make_unique<SilentFuseMount>(root / "Share");
    } catch (const std::exception& failure) {
        GTEST_SKIP() << failure.what();
    }
    const std::vector<BackupPair> unreachable{pairAt("Hung", root / "Share/Backups"),
                                              pairAt("Work", root / "Back")};
    std::vector<std::string> reconnected;
    FakeTrigger wake;
    auto reconnector = std::make_unique<VolumeReconnector>(
        queue, clock,
        std::make_shared<SystemDestinationProbe>(std::vector<std::string>{"/nowhere/"},
                                                 std::make_shared<GvfsMounter>()),
        ReconnectTriggers{&wake, ReconnectTriggers::none().screensWake,
                          ReconnectTriggers::none().network},
        VolumeReconnector::Owner{
            [&] { return unreachable; },
            [&](const BackupPair& pair) { reconnected.push_back(pair.name); }});
    reconnector->start();

    wake.fire();
    queue.runPending();
    queue.advance(VolumeReconnector::attemptDelay);
    ASSERT_TRUE(queue.runUntil([&] { return !reconnected.empty(); }, 10));
    ASSERT_FALSE(queue.waitForPosted(0.2)) << "the probe of the silent share answered";
    // The probe's task is still stuck in the share as the program quits.
    const auto start = std::chrono::steady_clock::now();
    reconnector.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    share->release();
    EXPECT_FALSE(queue.waitForPosted(0.2)) << "its late answer reaches no one";
    EXPECT_THAT(reconnected, ElementsAre("Work"));
    share.reset();  // before the temporary folder goes, which must not look into the share
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
    NestingMigration::run({pairAt("Work", root / "Quillstow")});
    EXPECT_EQ(filesBelow(root / "Quillstow/Work"),
              (std::map<std::string, std::string>{{"a", "a"}, {"b", "b"}}));
    EXPECT_EQ(readFile(nested / "m/inside"), "inside") << "what could not move stays whole";
}

}  // namespace
}  // namespace quillstow
