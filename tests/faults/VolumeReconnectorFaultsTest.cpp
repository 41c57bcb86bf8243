// Destinations that come back for real: a tmpfs in the test's own mount namespace goes and
// comes back while only the reconnector's triggers may notice; and a share that hangs for real,
// a FUSE file system whose server never answers, holds neither the main queue nor the quit.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <condition_variable>
#include <mutex>

#include "../control/EngineHarness.hpp"
#include "LogCapture.hpp"
#include "PrivateMounts.hpp"
#include "environment/FakeTrigger.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
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
    const BackupPair pair = h.makePair("Work", mountPoint / "Backups");
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
    // The probe answers from a task of its own: its answer must be in before the share comes
    // back, or it would find the share that the next lines mount.
    h.queue.runPending();
    ASSERT_TRUE(h.queue.waitForPosted(10));
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

// The reconnector alone with the machine's probe, over a share that hangs in the kernel.
class HungShareTest : public VolumeReconnectorFaultsTest {
  protected:
    void SetUp() override {
        VolumeReconnectorFaultsTest::SetUp();
        if (IsSkipped()) return;
        makeFolder(root / "Back");
        try {
            share = std::make_unique<SilentFuseMount>(root / "Share");
        } catch (const std::exception& failure) {
            GTEST_SKIP() << failure.what();
        }
        ASSERT_TRUE(lookingBelowHangs(root / "Share/Backups")) << "the silent share answered";
        reconnector = std::make_unique<VolumeReconnector>(
            queue, clock,
            std::make_shared<SystemDestinationProbe>(std::vector<std::string>{"/nowhere/"},
                                                     std::make_shared<GvfsMounter>()),
            ReconnectTriggers{&wake, ReconnectTriggers::none().screensWake,
                              ReconnectTriggers::none().network},
            VolumeReconnector::Owner{
                [this] { return unreachable; },
                [this](const BackupPair& pair) { reconnected.push_back(pair.name); }});
        reconnector->start();
    }
    void TearDown() override {
        reconnector.reset();
        // Before the temporary folder goes: removing it must not look into the silent share.
        share.reset();
    }
    // Whether a stat of `path` is still waiting after a fifth of a second; the task that
    // tried is left to the share.
    static bool lookingBelowHangs(const fs::path& path) {
        struct Answer {
            std::mutex mutex;
            std::condition_variable came;
            bool isIn = false;
        };
        const auto answer = std::make_shared<Answer>();
        startAbandonableTask([answer, path] {
            struct stat status {};
            (void)::stat(path.c_str(), &status);
            std::lock_guard lock(answer->mutex);
            answer->isIn = true;
            answer->came.notify_all();
        });
        std::unique_lock lock(answer->mutex);
        return !answer->came.wait_for(lock, std::chrono::milliseconds(200),
                                      [&] { return answer->isIn; });
    }
    BackupPair pairAt(const std::string& name, const fs::path& destination) const {
        BackupPair pair;
        pair.id = Uuid::random();
        pair.name = name;
        pair.destinationURL = destination;
        return pair;
    }
    // Fires, lets the attempt start, and runs its answers as they come, up to `condition`.
    bool wakeUntil(const std::function<bool()>& condition) {
        wake.fire();
        queue.runPending();
        queue.advance(VolumeReconnector::attemptDelay);
        return queue.runUntil(condition, 10);
    }

    LogCapture log;
    ManualClock clock;
    VirtualMainQueue queue{clock};
    FakeTrigger wake;
    std::vector<BackupPair> unreachable;
    std::vector<std::string> reconnected;
    std::unique_ptr<SilentFuseMount> share;
    std::unique_ptr<VolumeReconnector> reconnector;
};

TEST_F(HungShareTest, AShareThatHangsIsGivenUpAndBroughtBackOnceItAnswers) {
    unreachable = {pairAt("Hung", root / "Share/Backups"), pairAt("Work", root / "Back")};
    ASSERT_TRUE(wakeUntil([&] { return !reconnected.empty(); }));
    EXPECT_THAT(reconnected, ElementsAre("Work"));
    bool ran = false;
    queue.post([&] { ran = true; });
    queue.runPending();
    EXPECT_TRUE(ran) << "the main queue runs on beside the stuck probe";

    // The server comes back past the time limit: the stuck probe fails and returns, too late
    // for its attempt, and the next attempt finds the share.
    unreachable = {unreachable[0]};
    queue.advance(VolumeReconnector::probeTimeLimit);
    share->release();
    TmpfsMount back(root / "Share", 1 << 20);
    makeFolder(root / "Share/Backups");
    EXPECT_TRUE(wakeUntil([&] { return reconnected.size() == 2; }));
    EXPECT_THAT(reconnected, ElementsAre("Work", "Hung"));
    reconnector.reset();
}

TEST_F(HungShareTest, TheQuitDoesNotWaitForAProbeStuckInTheShare) {
    unreachable = {pairAt("Hung", root / "Share/Backups")};
    wake.fire();
    queue.runPending();
    queue.advance(VolumeReconnector::attemptDelay);
    // The probe's task is stuck in the kernel, or about to be, as the program quits.
    const auto start = std::chrono::steady_clock::now();
    reconnector.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    share->release();
    EXPECT_FALSE(queue.waitForPosted(0.2)) << "its late answer reaches no one";
    EXPECT_THAT(reconnected, IsEmpty());
}

}  // namespace
}  // namespace quillstow
