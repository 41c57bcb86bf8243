// Drives and shares that come and go for real: a tmpfs below a removable-media root of the
// test's own, heard by the volume monitor and brought back by the reconnector; a share that
// hangs in the kernel; and a move that a mount inside stops halfway.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "Pairs.hpp"
#include "PrivateMounts.hpp"
#include "TestTree.hpp"
#include "environment/DestinationProbe.hpp"
#include "environment/FakeTrigger.hpp"
#include "environment/Gvfs.hpp"
#include "environment/NestingMigration.hpp"
#include "environment/VolumeMonitor.hpp"
#include "environment/VolumeReconnector.hpp"
#include "support/Tasks.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
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

BackupPair pairAt(const std::string& name, const fs::path& destination) {
    return pairOf(name, {}, destination);
}

// A bare mount point, then a drive plugged in there: heard by the monitor and reconnected by the
// machine's probe at the next trigger, beside a share that hangs in the kernel.
TEST_F(VolumeMountsTest, ADriveBackIsHeardAndReconnectedAndAHungShareHoldsNeitherItNorTheQuit) {
    VolumeMonitor monitor(queue, roots);
    std::vector<std::string> heard;
    monitor.onVolumeDidMount = [&](const fs::path& at) { heard.push_back("+" + at.native()); };
    monitor.onVolumeDidUnmount = [&](const fs::path& at) { heard.push_back("-" + at.native()); };
    monitor.startMonitoring();
    std::unique_ptr<SilentFuseMount> share;
    try {
        share = std::make_unique<SilentFuseMount>(root / "Share");
    } catch (const std::exception& failure) {
        GTEST_SKIP() << failure.what();
    }
    // A look below it, left to the share, is still waiting after a fifth of a second.
    const auto answered = std::make_shared<std::promise<void>>();
    startAbandonableTask([answered, below = root / "Share/Backups"] {
        std::error_code ignored;
        (void)fs::exists(below, ignored);
        answered->set_value();
    });
    ASSERT_EQ(answered->get_future().wait_for(std::chrono::milliseconds(200)),
              std::future_status::timeout)
        << "the silent share answered";
    makeFolder(mountPoint);
    makeFolder(root / "Back");
    std::vector<BackupPair> unreachable{pairAt("Hung", root / "Share/Backups"),
                                        pairAt("Drive", mountPoint / "Backups"),
                                        pairAt("Work", root / "Back")};
    std::vector<std::string> reconnected;
    FakeTrigger wake;
    auto reconnector = std::make_unique<VolumeReconnector>(
        queue, clock,
        std::make_shared<SystemDestinationProbe>(roots, std::make_shared<GvfsMounter>()),
        ReconnectTriggers{&wake, ReconnectTriggers::none().screensWake,
                          ReconnectTriggers::none().network},
        VolumeReconnector::Owner{[&] { return unreachable; },
                                 [&](const BackupPair& pair) {
                                     reconnected.push_back(pair.name);
                                     std::erase_if(unreachable, [&](const auto& gone) {
                                         return gone.id == pair.id;
                                     });
                                 }});
    reconnector->start();
    const auto wakeUntil = [&](std::size_t count) {
        wake.fire();
        queue.runPending();
        queue.advance(VolumeReconnector::attemptDelay);
        return queue.runUntil([&] { return reconnected.size() == count; }, 10);
    };

    ASSERT_TRUE(wakeUntil(1));
    queue.runUntil([] { return false; }, 0.3);  // the bare mount point's answer comes in too
    EXPECT_THAT(reconnected, ElementsAre("Work")) << "a bare mount point is no drive";
    auto drive = std::make_unique<TmpfsMount>(mountPoint, 1 << 20);
    makeFolder(mountPoint / "Backups");
    ASSERT_TRUE(wakeUntil(2));
    EXPECT_THAT(reconnected, ElementsAre("Work", "Drive"));
    drive.reset();
    ASSERT_TRUE(queue.runUntil([&] { return heard.size() == 2; }));
    monitor.stopMonitoring();
    { TmpfsMount late(mountPoint, 1 << 20); }
    queue.runUntil([] { return false; }, 0.3);
    EXPECT_THAT(heard, ElementsAre("+" + mountPoint.native(), "-" + mountPoint.native()))
        << "nothing of the share elsewhere, nothing after the stop";

    // The probe's task is still stuck in the share as the program quits.
    const auto start = std::chrono::steady_clock::now();
    reconnector.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    share->release();
    EXPECT_FALSE(queue.waitForPosted(0.2)) << "its late answer reaches no one";
    share.reset();  // before the temporary folder goes, which must not look into the share
}

TEST_F(VolumeMountsTest, ANestingMoveThatFailsHalfwayLeavesEveryItemWholeInOnePlace) {
    const fs::path nested = root / "Quillstow/Quillstow/Work";
    writeFile(nested / "a", "a");
    // A read-only drive mounted inside: it can't be moved, and it comes after "a".
    TmpfsMount readOnly(nested / "m", 1 << 20);
    writeFile(nested / "m/inside", "inside");
    readOnly.remountReadOnly();
    NestingMigration::run({pairAt("Work", root / "Quillstow")});
    EXPECT_EQ(filesBelow(root / "Quillstow/Work"),
              (std::map<std::string, std::string>{{"a", "a"}}));
    EXPECT_EQ(readFile(nested / "m/inside"), "inside") << "what could not move stays whole";
}

}  // namespace
}  // namespace quillstow
