// All pairs together: the one status and line, pausing and resuming by hand and by the power
// poll, the schedule, adding, removing and relinking pairs, and drives that come and go.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "EngineHarness.hpp"
#include "LogCapture.hpp"
#include "model/BookmarkManager.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using Case = BackupStatus::Case;
using Type = BackupEvent::EventType;
namespace fs = std::filesystem;

class StatusManagerTest : public ::testing::Test {
  protected:
    EngineHarness h;
    std::unique_ptr<StatusManager> manager;

    void TearDown() override {
        if (manager) manager->stopAll();
        h.settle();
        manager.reset();
    }

    void startManager() {
        startedAt = h.clock.now();
        manager = std::make_unique<StatusManager>(h.store, *h.services, h.queue, h.notifier);
    }

    // Seconds until the power poll's next tick.
    double untilNextPoll() const {
        const double since = h.clock.now() - startedAt;
        const double next = (std::floor(since / powerPollInterval) + 1) * powerPollInterval;
        return next - since;
    }

    double startedAt = 0;

    BackupEngine& engine(const Uuid& id) { return *manager->engines().at(id); }

    bool runUntilStatus(const Uuid& id, Case kind) {
        return h.runUntil([&] { return engine(id).status().kind() == kind; });
    }

    // Lets every run end, waiting its five seconds, until all is quiet.
    void finishRuns() { h.settle(); }

    BackupPair disabledPair(const std::string& name) {
        BackupPair pair = h.makePair(name);
        pair.isEnabled = false;
        h.store->updatePair(pair);
        return pair;
    }

    void setAppConfig(BackupInterval interval, BandwidthMode mode) {
        AppConfig config = h.store->appConfig();
        config.backupInterval = interval;
        config.bandwidthMode = mode;
        h.store->setAppConfig(config);
    }
};

TEST_F(StatusManagerTest, TheOneStatusTakesTheMostUrgentCaseAndTheLineCountsPairs) {
    startManager();
    EXPECT_EQ(manager->overallStatus(), BackupStatus::idle());
    EXPECT_EQ(manager->statusText(), "No backup pairs configured");
    manager.reset();
    const auto first = disabledPair("One").id;
    const auto second = disabledPair("Two").id;
    startManager();
    ASSERT_EQ(manager->engines().size(), 2u);
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
        {"a scan before the queue", BackupStatus::queued(), BackupStatus::scanning(),
         BackupStatus::scanning(), busy},
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

TEST_F(StatusManagerTest, ThePowerPollResumesWhatThePowerGatePausedButNotWhatTheUserPaused) {
    const BackupPair byPower = h.makePair("Power");
    writeFile(byPower.sourceURL / "f", "x");
    const BackupPair byUser = disabledPair("User");
    writeFile(byUser.sourceURL / "f", "x");
    h.power.setHeat(ThermalState::critical);
    startManager();
    ASSERT_TRUE(runUntilStatus(byPower.id, Case::paused));
    EXPECT_EQ(engine(byUser.id).status(), BackupStatus::paused());
    finishRuns();

    h.queue.advance(untilNextPoll());  // still hot: the poll leaves both alone
    finishRuns();
    EXPECT_EQ(engine(byPower.id).status(), BackupStatus::paused());

    h.power.setHeat(ThermalState::nominal);
    h.queue.advance(untilNextPoll() - 0.1);
    EXPECT_EQ(engine(byPower.id).status(), BackupStatus::paused());
    h.queue.advance(0.1);
    ASSERT_TRUE(runUntilStatus(byPower.id, Case::completed));
    finishRuns();
    EXPECT_EQ(engine(byUser.id).status(), BackupStatus::paused());
    EXPECT_TRUE(fs::exists(byPower.destinationURL / "Quillstow/Power/f"));
    EXPECT_FALSE(fs::exists(byUser.destinationURL / "Quillstow/User"));
}

// The interval and the bandwidth mode of the settings, at the start and at every reschedule.
TEST_F(StatusManagerTest, TheSettingsScheduleTheBackupsAndReachTheCopyLoops) {
    const BackupPair pair = h.makePair();
    setAppConfig(BackupInterval::manual, BandwidthMode::quiet);
    startManager();
    EXPECT_EQ(h.activityGate.bandwidthMode(), BandwidthMode::quiet);
    finishRuns();
    writeFile(pair.sourceURL / "first", "x");
    h.queue.advance(14400);
    finishRuns();
    EXPECT_FALSE(fs::exists(pair.destinationURL / "Quillstow/Work/first"))
        << "no tick while manual";

    setAppConfig(BackupInterval::hourly, BandwidthMode::automatic);
    manager->rescheduleTimer();
    EXPECT_EQ(h.activityGate.bandwidthMode(), BandwidthMode::automatic);
    h.queue.advance(3599);
    finishRuns();
    EXPECT_FALSE(fs::exists(pair.destinationURL / "Quillstow/Work/first"));
    h.queue.advance(1);
    finishRuns();
    EXPECT_TRUE(fs::exists(pair.destinationURL / "Quillstow/Work/first"));
}

TEST_F(StatusManagerTest, AnAddedPairRunsAndARemovedOneStopsAndIsForgotten) {
    startManager();
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = "Added";
    pair.sourceURL = h.root / "added";
    pair.destinationURL = h.root / "drive";
    pair.createdAt = referenceDate();
    writeFile(pair.sourceURL / "f", "x");
    ASSERT_EQ(manager->addPair(pair), std::nullopt);
    ASSERT_EQ(manager->engines().size(), 1u);
    ASSERT_TRUE(runUntilStatus(pair.id, Case::completed));
    EXPECT_EQ(h.store->pairs().size(), 1u);

    // What the store forgets with the pair is ConfigStoreTest's.
    manager->removePair(pair.id);
    EXPECT_TRUE(manager->engines().empty());
    EXPECT_TRUE(h.store->pairs().empty());
}

// A pair paused by the user is disabled and resumed by the same toggle; a pause of all leaves the
// pairs enabled, for the next power poll to resume.
TEST_F(StatusManagerTest, APauseByTheUserHoldsUntilTheToggleAndAPauseOfAllUntilThePoll) {
    const BackupPair pair = h.makePair();
    startManager();
    finishRuns();
    manager->togglePausePair(pair.id);
    EXPECT_EQ(engine(pair.id).status(), BackupStatus::paused());
    EXPECT_FALSE(h.storedPair(pair.id)->isEnabled);

    writeFile(pair.sourceURL / "f", "x");
    manager->togglePausePair(pair.id);
    EXPECT_TRUE(h.storedPair(pair.id)->isEnabled);
    ASSERT_TRUE(runUntilStatus(pair.id, Case::completed));
    finishRuns();
    EXPECT_TRUE(fs::exists(pair.destinationURL / "Quillstow/Work/f"));

    manager->pauseAll();
    EXPECT_EQ(engine(pair.id).status(), BackupStatus::paused());
    EXPECT_TRUE(h.storedPair(pair.id)->isEnabled);
    writeFile(pair.sourceURL / "later", "x");
    h.queue.advance(untilNextPoll() - 0.1);
    EXPECT_EQ(engine(pair.id).status(), BackupStatus::paused());
    h.queue.advance(0.1);
    ASSERT_TRUE(runUntilStatus(pair.id, Case::completed));
    finishRuns();
    EXPECT_TRUE(fs::exists(pair.destinationURL / "Quillstow/Work/later"));
}

// A relink whose bookmark can't be made shows access denied and keeps the old bookmark; one that
// can backs up to the new destination with a bookmark of it.
TEST_F(StatusManagerTest, ARelinkedPairBacksUpToItsNewDestinationOrShowsAccessDenied) {
    BackupPair pair = h.makePair();
    writeFile(pair.sourceURL / "f", "x");
    pair.destinationBookmark = BookmarkManager::bookmarkData(pair.destinationURL, false);
    h.store->updatePair(pair);
    startManager();
    finishRuns();
    LogCapture log;
    const fs::path missing = h.root / "not-there";
    ASSERT_EQ(manager->relinkPair(pair.id, missing), std::nullopt);
    EXPECT_EQ(engine(pair.id).status(),
              BackupStatus::error(BackupError::bookmarkAccessDenied(missing)));
    EXPECT_THAT(log.messages("Bookmark"),
                ElementsAre("Could not create destination bookmark for relink: No such file or "
                            "directory"));
    EXPECT_EQ(h.storedPair(pair.id)->destinationURL, missing);
    EXPECT_EQ(h.storedPair(pair.id)->destinationBookmark, pair.destinationBookmark)
        << "the old bookmark stays";

    const fs::path newDrive = h.root / "new-drive";
    fs::create_directories(newDrive);
    ASSERT_EQ(manager->relinkPair(pair.id, newDrive), std::nullopt);
    ASSERT_TRUE(runUntilStatus(pair.id, Case::completed));
    finishRuns();
    const auto stored = h.storedPair(pair.id);
    EXPECT_EQ(stored->destinationURL, newDrive);
    ASSERT_TRUE(stored->destinationBookmark);
    EXPECT_EQ(BookmarkManager::resolveBookmark(*stored->destinationBookmark, newDrive, false).url,
              newDrive);
    EXPECT_EQ(readFile(newDrive / "Quillstow/Work/f"), "x");
}

TEST_F(StatusManagerTest, ADriveThatGoesAndComesBackStopsAndRestartsOnlyItsPairsOneAtATime) {
    const BackupPair one = h.makePair("One");
    const BackupPair two = h.makePair("Two");
    const BackupPair elsewhere = h.makePair("Elsewhere", h.root / "drive 2");
    startManager();
    finishRuns();

    manager->onVolumeDidUnmount(h.root / "drive");
    EXPECT_EQ(engine(one.id).status(), BackupStatus::destinationUnreachable());
    EXPECT_EQ(engine(two.id).status(), BackupStatus::destinationUnreachable());
    EXPECT_NE(engine(elsewhere.id).status(), BackupStatus::destinationUnreachable())
        << "\"drive 2\" is another volume";
    const auto lost = h.eventTypes();
    EXPECT_EQ(std::count(lost.begin(), lost.end(), Type::volumeLost), 2);
    EXPECT_THAT(h.notifier->sent, ::testing::Contains("volume lost: One"));
    EXPECT_THAT(h.notifier->sent, ::testing::Contains("volume lost: Two"));

    writeFile(one.sourceURL / "new", "x");
    writeFile(two.sourceURL / "new", "y");
    StatusHistory historyOne(engine(one.id));
    StatusHistory historyTwo(engine(two.id));
    manager->onVolumeDidMount(h.root / "drive");
    const auto types = h.eventTypes();
    EXPECT_EQ(std::count(types.begin(), types.end(), Type::volumeRestored), 2);
    finishRuns();
    EXPECT_THAT(historyOne.cases(), ::testing::Contains(Case::completed));
    EXPECT_THAT(historyTwo.cases(), ::testing::Contains(Case::completed));
    EXPECT_TRUE(fs::exists(one.destinationURL / "Quillstow/One/new"));
    EXPECT_TRUE(fs::exists(two.destinationURL / "Quillstow/Two/new"));
    for (const auto* pair : {&one, &two}) {
        EXPECT_EQ(std::count_if(h.watchers.begin(), h.watchers.end(),
                                [&](const auto& watcher) {
                                    return watcher->isWatching() &&
                                           watcher->watchedPath == pair->sourceURL;
                                }),
                  1)
            << pair->name << "'s source is watched again";
    }

    // A mount leaves alone a pair that does not wait for its drive.
    const auto before = h.events().size();
    manager->onVolumeDidMount(h.root / "drive 2");
    finishRuns();
    EXPECT_EQ(h.events().size(), before);
    EXPECT_EQ(engine(elsewhere.id).status(), BackupStatus::idle());
}

TEST_F(StatusManagerTest, APairWhoseMirrorFolderIsAnothersIsRefusedOnAddAndRelink) {
    const BackupPair documents = h.makePair("Documents");
    writeFile(documents.sourceURL / "mine.txt", "mine");
    const BackupPair photos = h.makePair("Photos", h.root / "other-drive");
    startManager();
    finishRuns();

    BackupPair twin = documents;
    twin.id = Uuid::random();
    twin.sourceURL = h.root / "other-documents";
    writeFile(twin.sourceURL / "theirs.txt", "theirs");
    EXPECT_EQ(manager->addPair(twin),
              "\"Documents\" already backs up into this folder. Choose another destination or "
              "name.");
    EXPECT_EQ(h.store->pairs().size(), 2u);
    EXPECT_EQ(manager->engines().size(), 2u);

    const fs::path documentsDrive = documents.destinationURL;
    EXPECT_EQ(manager->relinkPair(photos.id, documentsDrive), std::nullopt)
        << "\"Photos\" on the first drive is no clash";
    finishRuns();
    twin.name = "Photos";
    EXPECT_TRUE(manager->addPair(twin)) << "Photos has that folder now";

    twin.name = "Documents 2";
    EXPECT_EQ(manager->addPair(twin), std::nullopt);
    finishRuns();
    EXPECT_EQ(manager->relinkPair(twin.id, documentsDrive / "Quillstow/Documents"),
              "This backup would overlap the backup of \"Documents\". Choose another "
              "destination.");
    EXPECT_EQ(h.storedPair(twin.id)->destinationURL, documentsDrive) << "the pair is unchanged";
    finishRuns();
    EXPECT_TRUE(fs::exists(documentsDrive / "Quillstow/Documents/mine.txt"));
    EXPECT_FALSE(fs::exists(h.root / "drive/.Quillstow-Trash")) << "nobody archived anything";
}

struct MirrorClash {
    const char* name;
    const char* destination;
    const char* pairName;
    bool clashes;
};

TEST(MirrorFolderConflict, ComparesTheFoldersThePassesMirrorInto) {
    BackupPair existing;
    existing.id = Uuid::random();
    existing.name = "Documents";
    existing.destinationURL = "/media/ana/Drive";
    const MirrorClash cases[] = {
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
}

TEST(LiesOnVolume, NeedsTheMountPointFollowedByASlash) {
    EXPECT_TRUE(liesOnVolume("/media/u/Photos/Backups", "/media/u/Photos"));
    EXPECT_TRUE(liesOnVolume("/media/u/Photos", "/media/u/Photos/"));
    EXPECT_TRUE(liesOnVolume("/media/u/Photos/", "/media/u/Photos"));
    EXPECT_FALSE(liesOnVolume("/media/u/Photos 2/Backups", "/media/u/Photos"));
    EXPECT_FALSE(liesOnVolume("/media/u/Photo", "/media/u/Photos"));
    EXPECT_TRUE(liesOnVolume("/home/u/x", "/"));
}

}  // namespace
}  // namespace quillstow
