// Bringing back destinations in virtual time, with triggers fired by hand and the machine's
// probe over the real mount table: which pairs an attempt tries, how triggers coalesce, and
// what ends them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestTree.hpp"
#include "environment/FakeTrigger.hpp"
#include "environment/VolumeReconnector.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
namespace fs = std::filesystem;

BackupPair pairAt(const std::string& name, const fs::path& destination) {
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = name;
    pair.destinationURL = destination;
    return pair;
}

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

TEST(VolumeReconnector, TriggersWithinTheDelayMakeOneAttemptAndAStopEndsThem) {
    TemporaryFolder root;
    makeFolder(root / "Back");
    ManualClock clock;
    VirtualMainQueue queue{clock};
    FakeTrigger wake, screens, network;
    int asked = 0;
    std::vector<std::string> reconnected;
    VolumeReconnector reconnector(
        queue, clock,
        // Nothing of the temporary folder is a drive that is not there.
        std::make_shared<SystemDestinationProbe>(std::vector<std::string>{"/nowhere/"},
                                                 std::make_shared<GvfsMounter>()),
        ReconnectTriggers{&wake, &screens, &network},
        VolumeReconnector::Owner{
            [&] {
                ++asked;
                return std::vector{pairAt("Work", root / "Back")};
            },
            [&](const BackupPair& pair) { reconnected.push_back(pair.name); }});
    reconnector.start();
    wake.fire();
    queue.runPending();
    queue.advance(1.0);
    network.fire();
    screens.fire();
    queue.advance(0.9);
    EXPECT_EQ(asked, 0) << "nothing before the delay";
    queue.advance(0.1);
    EXPECT_EQ(asked, 1);
    EXPECT_TRUE(queue.runUntil([&] { return !reconnected.empty(); }, 10));
    EXPECT_THAT(reconnected, ElementsAre("Work"));
    queue.advance(10);
    EXPECT_EQ(asked, 1) << "the later triggers asked for no attempt of their own";

    // A stop ends the triggers and drops the attempt they had asked for.
    wake.fire();
    queue.runPending();
    reconnector.stop();
    wake.fire();
    queue.advance(10);
    EXPECT_EQ(asked, 1);
}

}  // namespace
}  // namespace quillstow
