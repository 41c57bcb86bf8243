// Destinations that come back for real: a tmpfs in the test's own mount namespace goes and
// comes back while only the reconnector's triggers may notice.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../control/EngineHarness.hpp"
#include "LogCapture.hpp"
#include "PrivateMounts.hpp"
#include "environment/FakeTrigger.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::Contains;
using Case = BackupStatus::Case;
namespace fs = std::filesystem;

class VolumeReconnectorFaultsTest : public ::testing::Test {
  protected:
    void SetUp() override { QUILLSTOW_REQUIRE_PRIVATE_MOUNTS(); }

    TemporaryFolder root;
    fs::path mountPoint = root / "media/Share";
};

TEST_F(VolumeReconnectorFaultsTest, AShareThatComesBackIsResumedAtTheNextTrigger) {
    EngineHarness h;
    h.volumes.judgeByMounts({(root / "media").native() + "/"});
    FakeTrigger wake;
    h.services->reconnectTriggers.wake = &wake;
    auto share = std::make_unique<TmpfsMount>(mountPoint, 600ull << 20);
    makeFolder(mountPoint / "Backups");
    BackupPair pair = h.makePair();
    pair.destinationURL = mountPoint / "Backups";
    h.store->updatePair(pair);
    writeFile(pair.sourceURL / "notes.txt", "notes");

    StatusManager manager(h.store, *h.services, h.queue, h.notifier);
    // Only the triggers may notice the share now, as with a share the monitor can't tell of.
    manager.volumeMonitor().stopMonitoring();
    const auto status = [&] { return manager.engines().at(pair.id)->status().kind(); };
    ASSERT_TRUE(h.runUntil([&] { return status() == Case::completed; }));
    h.settle();

    share->unmount();
    manager.backupPairNow(pair.id);
    ASSERT_TRUE(h.runUntil([&] { return status() == Case::destinationUnreachable; }));
    h.settle();
    wake.fire();
    h.queue.runPending();
    h.queue.advance(VolumeReconnector::attemptDelay);
    h.settle();
    EXPECT_EQ(status(), Case::destinationUnreachable) << "the mount point alone is no share";

    share = std::make_unique<TmpfsMount>(mountPoint, 600ull << 20);
    makeFolder(mountPoint / "Backups");
    writeFile(pair.sourceURL / "later.txt", "later");
    h.queue.advance(10);
    h.settle();
    ASSERT_EQ(status(), Case::destinationUnreachable) << "nothing but a trigger brings it back";
    LogCapture log;
    wake.fire();
    h.queue.runPending();
    h.queue.advance(VolumeReconnector::attemptDelay);
    ASSERT_TRUE(h.runUntil([&] { return status() == Case::completed; }));
    EXPECT_EQ(readFile(mountPoint / "Backups/Quillstow/Work/later.txt"), "later");
    EXPECT_THAT(h.eventTypes(), Contains(BackupEvent::EventType::volumeRestored));
    EXPECT_THAT(
        log.messages("BackupEngine"),
        Contains("Auto-reconnected destination for pair \"" +
                 formatLogMessage("%{private,mask.hash}s", {"Work"}) + "\" (trigger: wake)"));
    manager.stopAll();
    h.settle();
}

}  // namespace
}  // namespace quillstow
