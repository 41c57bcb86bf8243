// Bringing back destinations in virtual time, with triggers fired by hand and the real mount
// table: which pairs an attempt tries, how triggers coalesce, how long a pair brought back is
// left alone, and that a probe that hangs holds neither the main queue nor the other pairs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "LogCapture.hpp"
#include "TestTree.hpp"
#include "environment/FakeTrigger.hpp"
#include "environment/VolumeReconnector.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
namespace fs = std::filesystem;

// The real table, except that a destination named "Hangs" blocks until the test lets it go.
class HangingVolumes final : public Volumes {
  public:
    using Volumes::Volumes;
    bool isDestinationReachable(const fs::path& url) const override {
        if (url.filename() != "Hangs") return Volumes::isDestinationReachable(url);
        ++hungProbes;
        release.wait();
        return true;
    }
    std::promise<void> letGo;
    std::shared_future<void> release = letGo.get_future().share();
    mutable std::atomic<int> hungProbes{0};
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
    void SetUp() override { makeFolder(root / "Back"); }
    ~VolumeReconnectorTest() override {
        volumes.letGo.set_value();
        reconnector.reset();
        tasks.waitUntilIdle();
    }

    std::unique_ptr<VolumeReconnector> make() {
        auto made = std::make_unique<VolumeReconnector>(
            queue, tasks, clock, volumes, ReconnectTriggers{&wake, &screens, &network},
            VolumeReconnector::Owner{
                [this] {
                    ++asked;
                    return unreachable;
                },
                [this](const BackupPair& pair) { reconnected.push_back(pair.name); }});
        made->start();
        return made;
    }
    // Moves time on and lets the probes of what fell due answer.
    void advanceAndProbe(double seconds) {
        queue.advance(seconds);
        tasks.waitUntilIdle(0.3);
        queue.runPending();
    }

    TemporaryFolder root;
    // Nothing of the temporary folder is a drive that is not there.
    HangingVolumes volumes{std::vector<std::string>{"/nowhere/"}};
    ManualClock clock;
    VirtualMainQueue queue{clock};
    TaskRunner tasks;
    FakeTrigger wake, screens, network;
    std::vector<BackupPair> unreachable;
    int asked = 0;
    std::vector<std::string> reconnected;
    std::unique_ptr<VolumeReconnector> reconnector;
};

TEST(CandidatesForAttempt, LeavesOutPairsInFlightAndThoseBroughtBackLately) {
    const BackupPair a = pairAt("A", "/a"), b = pairAt("B", "/b");
    const struct {
        const char* name;
        std::set<Uuid> inFlight;
        std::map<Uuid, double> handled;
        std::vector<std::string> expected;
    } cases[] = {
        {"both free", {}, {}, {"A", "B"}},
        {"one in flight", {a.id}, {}, {"B"}},
        {"handled 4.9 s ago", {}, {{b.id, 5.1}}, {"A"}},
        {"handled exactly 5 s ago", {}, {{b.id, 5.0}}, {"A", "B"}},
    };
    for (const auto& c : cases) {
        std::vector<std::string> names;
        for (const auto& pair : candidatesForAttempt({a, b}, c.inFlight, c.handled, 10.0, 5.0))
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
        wake.fire();
        advanceAndProbe(VolumeReconnector::attemptDelay);
        EXPECT_EQ(int(reconnected.size()), step.reconnections) << "trigger at " << step.at;
    }
}

TEST_F(VolumeReconnectorTest, ADestinationStillGoneIsNotReportedAndWaitsForTheNextTrigger) {
    LogCapture log;
    unreachable = {pairAt("Gone", root / "Gone")};
    reconnector = make();
    wake.fire();
    advanceAndProbe(VolumeReconnector::attemptDelay);
    EXPECT_THAT(reconnected, IsEmpty());
    EXPECT_THAT(log.messages("BackupEngine"), IsEmpty());
    makeFolder(root / "Gone");
    wake.fire();
    advanceAndProbe(VolumeReconnector::attemptDelay);
    EXPECT_THAT(reconnected, ElementsAre("Gone"));
}

TEST_F(VolumeReconnectorTest, AProbeThatHangsHoldsNeitherTheMainQueueNorOtherPairs) {
    unreachable = {pairAt("Hung", root / "Hangs"), pairAt("Work", root / "Back")};
    reconnector = make();
    wake.fire();
    queue.runPending();
    queue.advance(VolumeReconnector::attemptDelay);
    ASSERT_TRUE(queue.runUntil([&] { return !reconnected.empty(); }, 10));
    EXPECT_THAT(reconnected, ElementsAre("Work"));
    bool ran = false;
    queue.post([&] { ran = true; });
    queue.runPending();
    EXPECT_TRUE(ran);

    // A later attempt leaves the hung pair to its probe rather than start a second one.
    wake.fire();
    advanceAndProbe(VolumeReconnector::attemptDelay + VolumeReconnector::handledInterval);
    EXPECT_EQ(volumes.hungProbes.load(), 1);

    volumes.letGo.set_value();
    volumes.letGo = std::promise<void>();
    ASSERT_TRUE(queue.runUntil([&] { return reconnected.size() == 2; }, 10));
    EXPECT_THAT(reconnected, ElementsAre("Work", "Hung"));
}

TEST_F(VolumeReconnectorTest, StopEndsTheTriggersAndDropsThePendingAttempt) {
    unreachable = {pairAt("Work", root / "Back")};
    reconnector = make();
    wake.fire();
    queue.runPending();
    reconnector->stop();
    wake.fire();
    advanceAndProbe(VolumeReconnector::attemptDelay);
    EXPECT_EQ(asked, 0);
}

}  // namespace
}  // namespace quillstow
