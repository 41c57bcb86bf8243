// All pairs together: the one status and line, pausing and resuming by hand and by the power
// poll, the schedule, adding, removing and relinking pairs, drives that come and go, and the
// mirror folders that two pairs may not share.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "EngineHarness.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::UnorderedElementsAre;
using Case = BackupStatus::Case;
using Type = BackupEvent::EventType;
namespace fs = std::filesystem;

class StatusManagerTest : public ::testing::Test {
  protected:
    EngineHarness h;
    std::unique_ptr<StatusManager> manager;
    double startedAt = 0;

    void TearDown() override {
        if (manager) manager->stopAll();
        h.settle();
        manager.reset();
    }
    void startManager() {
        startedAt = h.clock.now();
        manager = std::make_unique<StatusManager>(h.store, *h.services, h.queue, h.notifier);
        h.settle();
    }
    // Seconds until the power poll's next tick.
    double untilNextPoll() const {
        const double since = h.clock.now() - startedAt;
        return (std::floor(since / powerPollInterval) + 1) * powerPollInterval - since;
    }
    BackupEngine& engine(const Uuid& id) { return *manager->engines().at(id); }
    BackupPair pairWith(const std::string& name, const std::string& file, bool isEnabled = true) {
        BackupPair pair = h.makePair(name);
        writeFile(pair.sourceURL / file, "x");
        pair.isEnabled = isEnabled;
        h.store->updatePair(pair);
        return pair;
    }
    bool isBackedUp(const BackupPair& pair, const std::string& file) {
        return fs::exists(EngineHarness::mirrorOf(pair) / file);
    }
};

TEST_F(StatusManagerTest, TheOneStatusTakesTheMostUrgentCaseAndTheLineCountsPairs) {
    const auto first = pairWith("One", "f", false).id;
    const auto second = pairWith("Two", "f", false).id;
    startManager();
    const BackupStatus timedOut = BackupStatus::error(BackupError::timedOut());
    const BackupStatus away = BackupStatus::destinationUnreachable();
    const std::string busy = "Backup in progress…";
    const struct {
        const char* name;
        BackupStatus one, two, overall;
        std::string line;
    } rows[] = {
        {"an error before a pass", timedOut, BackupStatus::syncing(0.5, "a"), timedOut,
         "1 of 2 pair(s) need attention"},
        {"every pair away", away, away, away, "2 of 2 pair(s) need attention"},
        {"the furthest pass", BackupStatus::syncing(0.2, "a"), BackupStatus::syncing(0.7, "b"),
         BackupStatus::syncing(0.7, "b"), busy},
        {"the queue before a completion", BackupStatus::queued(), BackupStatus::completed(3, 1),
         BackupStatus::queued(), busy},
        {"the larger completion", BackupStatus::completed(3, 1), BackupStatus::completed(30, 2),
         BackupStatus::completed(30, 2), "Backed up 30 files in 2 seconds"},
        {"a pause before idle", BackupStatus::paused(), BackupStatus::idle(),
         BackupStatus::paused(), "Paused"},
        {"all idle", BackupStatus::idle(), BackupStatus::idle(), BackupStatus::idle(),
         "Up to date"},
    };
    for (const auto& row : rows) {
        engine(first).setStatus(row.one);
        engine(second).setStatus(row.two);
        EXPECT_EQ(manager->overallStatus(), row.overall) << row.name;
        EXPECT_EQ(manager->statusText(), row.line) << row.name;
    }
}

// What the power gate or a pause of all paused, the next power poll resumes; a pair the user
// paused waits for the user's toggle.
TEST_F(StatusManagerTest, ThePowerPollResumesWhatTheUserDidNotPause) {
    const BackupPair byPower = pairWith("Power", "f");
    const BackupPair byUser = pairWith("User", "f", false);
    h.power.setHeat(ThermalState::critical);
    startManager();
    EXPECT_EQ(engine(byPower.id).status(), BackupStatus::paused());

    h.power.setHeat(ThermalState::nominal);
    h.queue.advance(untilNextPoll() - 0.1);
    EXPECT_FALSE(isBackedUp(byPower, "f"));
    h.queue.advance(0.1);
    h.settle();
    EXPECT_TRUE(isBackedUp(byPower, "f"));

    manager->pauseAll();
    EXPECT_TRUE(h.storedPair(byPower.id)->isEnabled);
    writeFile(byPower.sourceURL / "later", "x");
    h.queue.advance(untilNextPoll());
    h.settle();
    EXPECT_TRUE(isBackedUp(byPower, "later"));
    EXPECT_EQ(engine(byUser.id).status(), BackupStatus::paused());
    EXPECT_FALSE(isBackedUp(byUser, "f"));

    manager->togglePausePair(byUser.id);
    h.settle();
    EXPECT_TRUE(isBackedUp(byUser, "f"));
}

// The interval and the bandwidth mode of the settings, at the start and at every reschedule.
TEST_F(StatusManagerTest, TheSettingsScheduleTheBackupsAndReachTheCopyLoops) {
    const BackupPair pair = h.makePair();
    AppConfig config = h.store->appConfig();
    config.backupInterval = BackupInterval::manual;
    config.bandwidthMode = BandwidthMode::quiet;
    h.store->setAppConfig(config);
    startManager();
    EXPECT_EQ(h.activityGate.bandwidthMode(), BandwidthMode::quiet);
    writeFile(pair.sourceURL / "first", "x");
    h.queue.advance(14400);
    h.settle();
    EXPECT_FALSE(isBackedUp(pair, "first")) << "no tick while manual";

    config.backupInterval = BackupInterval::hourly;
    config.bandwidthMode = BandwidthMode::automatic;
    h.store->setAppConfig(config);
    manager->rescheduleTimer();
    EXPECT_EQ(h.activityGate.bandwidthMode(), BandwidthMode::automatic);
    h.queue.advance(3599);
    h.settle();
    EXPECT_FALSE(isBackedUp(pair, "first"));
    h.queue.advance(1);
    h.settle();
    EXPECT_TRUE(isBackedUp(pair, "first"));
}

// A pair is added, or relinked, only where its mirror folder is no other pair's: otherwise the
// passes of both would archive each other's files. A relink to a folder that can't be reached
// shows it; a removed pair stops and is forgotten.
TEST_F(StatusManagerTest, APairIsAddedOrRelinkedOnlyWhereItsMirrorFolderIsItsOwn) {
    const BackupPair documents = pairWith("Documents", "mine.txt");
    const BackupPair photos = h.makePair("Photos", h.root / "other-drive");
    startManager();
    BackupPair twin = documents;
    twin.id = Uuid::random();
    twin.sourceURL = h.root / "other-documents";
    writeFile(twin.sourceURL / "theirs.txt", "theirs");
    EXPECT_EQ(manager->addPair(twin),
              "\"Documents\" already backs up into this folder. Choose another destination or "
              "name.");
    EXPECT_EQ(manager->engines().size(), 2u);
    EXPECT_EQ(manager->relinkPair(photos.id, documents.destinationURL), std::nullopt);
    twin.name = "Photos";
    EXPECT_TRUE(manager->addPair(twin)) << "Photos has that folder now";

    twin.name = "Documents 2";
    EXPECT_EQ(manager->addPair(twin), std::nullopt);
    h.settle();
    EXPECT_EQ(readFile(EngineHarness::mirrorOf(twin) / "theirs.txt"), "theirs");
    EXPECT_EQ(manager->relinkPair(twin.id, EngineHarness::mirrorOf(documents)),
              "This backup would overlap the backup of \"Documents\". Choose another "
              "destination.");
    EXPECT_EQ(h.storedPair(twin.id)->destinationURL, documents.destinationURL);
    h.settle();
    EXPECT_TRUE(isBackedUp(documents, "mine.txt"));
    EXPECT_FALSE(fs::exists(documents.destinationURL / ".Quillstow-Trash")) << "none archived";

    const fs::path missing = h.root / "not-there";
    EXPECT_EQ(manager->relinkPair(twin.id, missing), std::nullopt);
    EXPECT_EQ(engine(twin.id).status().displayText(), "Access to this folder was denied.");
    manager->removePair(twin.id);
    EXPECT_EQ(manager->engines().size(), 2u);
    EXPECT_FALSE(h.storedPair(twin.id));
}

TEST_F(StatusManagerTest, ADriveThatGoesAndComesBackStopsAndRestartsOnlyItsPairs) {
    const BackupPair one = h.makePair("One");
    const BackupPair two = h.makePair("Two");
    const BackupPair elsewhere = h.makePair("Elsewhere", h.root / "drive 2");
    startManager();
    h.notifier->sent.clear();
    manager->onVolumeDidUnmount(h.root / "drive");
    EXPECT_EQ(engine(one.id).status(), BackupStatus::destinationUnreachable());
    EXPECT_EQ(engine(two.id).status(), BackupStatus::destinationUnreachable());
    EXPECT_EQ(engine(elsewhere.id).status(), BackupStatus::idle()) << "another volume";
    EXPECT_THAT(h.notifier->sent, UnorderedElementsAre("volume lost: One", "volume lost: Two"));

    writeFile(one.sourceURL / "new", "x");
    writeFile(two.sourceURL / "new", "y");
    manager->onVolumeDidMount(h.root / "drive");
    manager->onVolumeDidMount(h.root / "drive 2");
    h.settle();
    EXPECT_TRUE(isBackedUp(one, "new"));
    EXPECT_TRUE(isBackedUp(two, "new"));
    EXPECT_EQ(std::ranges::count(h.eventTypes(), Type::volumeRestored), 2) << "not Elsewhere";
}

TEST(MirrorFolderConflict, ComparesTheFoldersThePassesMirrorInto) {
    BackupPair existing;
    existing.id = Uuid::random();
    existing.name = "Documents";
    existing.destinationURL = "/media/ana/Drive";
    const struct {
        const char* name;
        const char* destination;
        const char* pairName;
        bool clashes;
    } cases[] = {
        {"same drive and name", "/media/ana/Drive", "Documents", true},
        {"the Quillstow folder chosen itself", "/media/ana/Drive/Quillstow", "Documents", true},
        {"a trailing slash", "/media/ana/Drive/", "Documents", true},
        {"a name that sanitises alike", "/media/ana/Drive", " Documents/", true},
        {"a name that differs in case, for drives that fold it", "/media/ana/Drive", "documents",
         true},
        {"inside the other's folder", "/media/ana/Drive/Quillstow/Documents/old", "Inner", true},
        {"another name", "/media/ana/Drive", "Documents 2", false},
        {"a name that begins alike", "/media/ana/Drive", "Doc", false},
        {"another drive", "/media/ana/Drive 2", "Documents", false},
        {"a drive whose name differs in case", "/media/ana/drive", "Documents", false},
    };
    for (const auto& test : cases) {
        BackupPair candidate;
        candidate.id = Uuid::random();
        candidate.name = test.pairName;
        candidate.destinationURL = test.destination;
        EXPECT_EQ(mirrorFolderConflict(candidate, {existing}).has_value(), test.clashes)
            << test.name;
        EXPECT_EQ(mirrorFolderConflict(existing, {candidate}).has_value(), test.clashes)
            << test.name << ", the other way round";
    }
    EXPECT_FALSE(mirrorFolderConflict(existing, {existing})) << "a pair never clashes with itself";
    EXPECT_TRUE(liesOnVolume("/media/u/Photos/Backups", "/media/u/Photos/"));
    EXPECT_FALSE(liesOnVolume("/media/u/Photos 2/Backups", "/media/u/Photos"));
    EXPECT_FALSE(liesOnVolume("/media/u/Photo", "/media/u/Photos"));
    EXPECT_TRUE(liesOnVolume("/home/u/x", "/"));
}

}  // namespace
}  // namespace quillstow
