// Bringing back destinations in virtual time, with triggers fired by hand and the real mount
// table: which pairs an attempt tries, how triggers coalesce, how long a pair brought back is
// left alone, and what a probe that hangs may hold: neither the main queue, nor other pairs, nor
// the next attempt, nor the quit.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "FakeTrigger.hpp"
#include "LogCapture.hpp"
#include "TestTree.hpp"
#include "environment/VolumeReconnector.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

// The machine's probe over the real mount table, on tasks the test counts, except that a
// destination named "Hangs" blocks until the test lets it go, as a share whose server is gone.
class CountedProbe final : public DestinationProbe {
  public:
    bool isBack(const fs::path& destination) const override {
        std::unique_lock lock(mutex_);
        threads_.push_back(std::this_thread::get_id());
        if (destination.filename() == "Hangs") {
            const int number = ++hung_;
            changed_.notify_all();
            changed_.wait(lock, [&] { return number <= released_; });
        }
        lock.unlock();
        return real_.isBack(destination);
    }

    static VolumeReconnector::StartTask starter(std::shared_ptr<CountedProbe> probe) {
        return [probe](std::function<void()> body) {
            probe->changeCounts([](CountedProbe& self) { ++self.started_; });
            startAbandonableTask([probe, body = std::move(body)] {
                body();
                probe->changeCounts([](CountedProbe& self) { ++self.ended_; });
            });
        };
    }

    // Lets the hung probes go, up to the `count`th.
    void letGoUpTo(int count) {
        changeCounts([&](CountedProbe& self) { self.released_ = count; });
    }
    // Waits (in real time: probes run on threads) until every task has ended or is held; the
    // hung probes are numbered in order, and those up to `released_` are let go.
    bool settle() const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] {
            return ended_ + std::max(hung_ - released_, 0) == started_;
        });
    }
    int hungProbes() const {
        std::lock_guard lock(mutex_);
        return hung_;
    }
    bool ranOn(std::thread::id thread) const {
        std::lock_guard lock(mutex_);
        return std::find(threads_.begin(), threads_.end(), thread) != threads_.end();
    }

  private:
    void changeCounts(const std::function<void(CountedProbe&)>& change) {
        {
            std::lock_guard lock(mutex_);
            change(*this);
        }
        changed_.notify_all();
    }

    // Nothing of the temporary folder is a drive that is not there.
    const SystemDestinationProbe real_{{"/nowhere/"}, std::make_shared<GvfsMounter>()};
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    mutable std::vector<std::thread::id> threads_;
    mutable int hung_ = 0;
    int released_ = 0, started_ = 0, ended_ = 0;
};

BackupPair pairAt(const std::string& name, const fs::path& destination) {
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = name;
    pair.destinationURL = destination;
    return pair;
}

class VolumeReconnectorTest : public ::testing::Test {
  protected:
    void SetUp() override {
        makeFolder(root / "Back");
        makeFolder(root / "Hangs");
    }
    ~VolumeReconnectorTest() override {
        probe->letGoUpTo(INT_MAX);
        reconnector.reset();
        EXPECT_TRUE(probe->settle());
    }

    std::unique_ptr<VolumeReconnector> make() {
        auto made = std::make_unique<VolumeReconnector>(
            queue, clock, probe, ReconnectTriggers{&wake, &screens, &network},
            VolumeReconnector::Owner{
                [this] {
                    ++asked;
                    return unreachable;
                },
                [this](const BackupPair& pair) { reconnected.push_back(pair.name); }},
            CountedProbe::starter(probe));
        made->start();
        return made;
    }
    // Moves time on and lets every probe that is not held answer.
    void advanceAndProbe(double seconds) {
        queue.advance(seconds);
        ASSERT_TRUE(probe->settle());
        queue.runPending();
    }
    void wakeAndProbe() {
        wake.fire();
        advanceAndProbe(VolumeReconnector::attemptDelay);
    }

    TemporaryFolder root;
    std::shared_ptr<CountedProbe> probe = std::make_shared<CountedProbe>();
    ManualClock clock;
    VirtualMainQueue queue{clock};
    FakeTrigger wake, screens, network;
    std::vector<BackupPair> unreachable;
    int asked = 0;
    std::vector<std::string> reconnected;
    std::unique_ptr<VolumeReconnector> reconnector;
};

TEST(CandidatesForAttempt, LeavesOutBusyPairsAndThoseBroughtBackLately) {
    const BackupPair a = pairAt("A", "/a"), b = pairAt("B", "/b");
    const struct {
        const char* name;
        std::set<Uuid> busy;
        std::map<Uuid, double> handled;
        std::vector<std::string> expected;
    } cases[] = {
        {"both free", {}, {}, {"A", "B"}},
        {"one busy", {a.id}, {}, {"B"}},
        {"handled 4.9 s ago", {}, {{b.id, 5.1}}, {"A"}},
        {"handled exactly 5 s ago", {}, {{b.id, 5.0}}, {"A", "B"}},
    };
    for (const auto& c : cases) {
        std::vector<std::string> names;
        for (const auto& pair : candidatesForAttempt({a, b}, c.busy, c.handled, 10.0, 5.0))
            names.push_back(pair.name);
        EXPECT_EQ(names, c.expected) << c.name;
    }
}

TEST_F(VolumeReconnectorTest, TriggersWithinTheDelayMakeOneAttemptNamedByTheFirst) {
    LogCapture log;
    unreachable = {pairAt("Work", root / "Back")};
    reconnector = make();
    wake.fire();
    queue.runPending();
    queue.advance(1.0);
    network.fire();
    screens.fire();
    advanceAndProbe(0.9);
    EXPECT_EQ(asked, 0) << "nothing before the delay";
    advanceAndProbe(0.1);
    EXPECT_EQ(asked, 1);
    EXPECT_THAT(reconnected, ElementsAre("Work"));
    EXPECT_THAT(
        log.messages("BackupEngine"),
        ElementsAre("Auto-reconnected destination for pair \"" +
                    formatLogMessage("%{private,mask.hash}s", {"Work"}) + "\" (trigger: wake)"));
    advanceAndProbe(10);
    EXPECT_EQ(asked, 1) << "no attempt without a trigger";
}

TEST_F(VolumeReconnectorTest, APairBroughtBackIsLeftAloneForTheHandledInterval) {
    unreachable = {pairAt("Work", root / "Back")};
    reconnector = make();
    const struct {
        double at;
        int reconnections;
    } steps[] = {{0, 1}, {3.9, 1}, {5.0, 2}};  // attempts at 2, 5.9 (skipped) and 7
    for (const auto& step : steps) {
        advanceAndProbe(step.at - clock.now());
        wakeAndProbe();
        EXPECT_EQ(int(reconnected.size()), step.reconnections) << "trigger at " << step.at;
    }
}

TEST_F(VolumeReconnectorTest, ADestinationStillGoneIsNotReportedAndWaitsForTheNextTrigger) {
    LogCapture log;
    unreachable = {pairAt("Gone", root / "Gone")};
    reconnector = make();
    wakeAndProbe();
    EXPECT_THAT(reconnected, IsEmpty());
    EXPECT_THAT(log.messages("BackupEngine"), IsEmpty());
    makeFolder(root / "Gone");
    wakeAndProbe();
    EXPECT_THAT(reconnected, ElementsAre("Gone"));
}

TEST_F(VolumeReconnectorTest, AProbeThatHangsIsGivenUpAtItsLimitAndTheNextAttemptTriesAgain) {
    unreachable = {pairAt("Hung", root / "Hangs"), pairAt("Work", root / "Back")};
    reconnector = make();
    wakeAndProbe();
    EXPECT_THAT(reconnected, ElementsAre("Work")) << "the hung share holds back no other pair";
    EXPECT_EQ(probe->hungProbes(), 1);
    EXPECT_FALSE(probe->ranOn(std::this_thread::get_id())) << "no probe on the main thread";
    bool ran = false;
    queue.post([&] { ran = true; });
    queue.runPending();
    EXPECT_TRUE(ran) << "the main queue runs on";
    unreachable = {unreachable[0]};  // Work is back

    // Within the limit the pair is still in flight: a later attempt leaves it to its probe.
    wakeAndProbe();
    EXPECT_EQ(probe->hungProbes(), 1);

    // Past it the attempt has given up, and the next one probes the share afresh.
    advanceAndProbe(VolumeReconnector::probeTimeLimit);
    probe->letGoUpTo(2);
    wakeAndProbe();
    EXPECT_EQ(probe->hungProbes(), 2);
    EXPECT_THAT(reconnected, ElementsAre("Work", "Hung"));

    // The first probe returns at last; its attempt is over and its answer goes unheard.
    probe->letGoUpTo(INT_MAX);
    advanceAndProbe(0);
    EXPECT_THAT(reconnected, ElementsAre("Work", "Hung"));
}

TEST_F(VolumeReconnectorTest, APairWhoseProbesKeepHangingWaitsForOneOfThemToReturn) {
    unreachable = {pairAt("Hung", root / "Hangs")};
    reconnector = make();
    const auto attemptPastTheLimit = [&] {
        wakeAndProbe();
        advanceAndProbe(VolumeReconnector::probeTimeLimit);
    };
    for (int probes = 1; probes <= VolumeReconnector::hungProbesPerPair; ++probes) {
        attemptPastTheLimit();
        EXPECT_EQ(probe->hungProbes(), probes);
    }
    attemptPastTheLimit();
    EXPECT_EQ(probe->hungProbes(), VolumeReconnector::hungProbesPerPair)
        << "no third task stuck beside the two";

    probe->letGoUpTo(1);
    advanceAndProbe(0);
    attemptPastTheLimit();
    EXPECT_EQ(probe->hungProbes(), VolumeReconnector::hungProbesPerPair + 1);
    EXPECT_THAT(reconnected, IsEmpty()) << "the answers came after their attempts";
}

TEST_F(VolumeReconnectorTest, TheQuitWaitsForNoHungProbeAndItsLateAnswerReachesNoOne) {
    unreachable = {pairAt("Hung", root / "Hangs")};
    reconnector = make();
    wakeAndProbe();
    ASSERT_EQ(probe->hungProbes(), 1);
    reconnector.reset();  // returns with the probe still stuck

    probe->letGoUpTo(1);
    ASSERT_TRUE(probe->settle());
    EXPECT_FALSE(queue.waitForPosted(0)) << "nothing posted to a reconnector that is gone";
    EXPECT_THAT(reconnected, IsEmpty());
}

TEST_F(VolumeReconnectorTest, StopEndsTheTriggersAndDropsThePendingAttempt) {
    unreachable = {pairAt("Work", root / "Back")};
    reconnector = make();
    wake.fire();
    queue.runPending();
    reconnector->stop();
    wakeAndProbe();
    EXPECT_EQ(asked, 0);
}

}  // namespace
}  // namespace quillstow
