// The machine around a pass: the gates that pause or slow it on readings a test sets, and its
// destinations: the mount that holds a path in the kernel's table, drives that are not there,
// the shares GVFS can bring back, the reconnector that brings them back on a trigger, the
// folders a cloud client keeps in sync, and a destination nested twice by an older layout.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <mutex>

#include "Pairs.hpp"
#include "TestTree.hpp"
#include "environment/CloudSyncDetector.hpp"
#include "environment/DestinationProbe.hpp"
#include "environment/FakePower.hpp"
#include "environment/FakeTrigger.hpp"
#include "environment/Gates.hpp"
#include "environment/MountTable.hpp"
#include "environment/NestingMigration.hpp"
#include "environment/VolumeReconnector.hpp"
#include "environment/Volumes.hpp"
#include "support/RecordingSleeper.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using MountTable::Mount;
using ::testing::ElementsAre;
using testing::FakePower;
using ::testing::Pair;
using testing::RecordingSleeper;
namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;

class FakeActivity final : public UserActivity {
  public:
    double secondsSinceLastUserInput() const override {
        ++reads;
        return idle;
    }
    double idle = 1e9;
    mutable int reads = 0;
};

std::string battery(int percent) {
    return "Battery at " + std::to_string(percent) + "% — will resume when plugged in.";
}

BatteryDescription charged(std::int64_t current, std::optional<std::int64_t> maximum,
                           std::optional<std::string> source = "Battery Power") {
    return {current, maximum, std::move(source)};
}

// Each row: the power readings, the bandwidth mode and the user's idle time; why the pass pauses
// (nothing: it runs, as on every doubt), the pauses taken between files and between chunks (0:
// none), and how often the idle time was read: afresh on each call.
TEST(Gates, PauseForHeatThenPowerSavingThenALowBatteryAndSlowDownForTheUser) {
    const std::string hot = "Your computer is running hot — will resume when it cools down.";
    const std::string saver = "Power saver mode is on — will resume when disabled or plugged in.";
    const std::optional<std::string> runs;
    const std::optional<BatteryDescription> desktop;
    using enum ThermalState;
    using enum BandwidthMode;
    const struct {
        const char* name;
        std::optional<BatteryDescription> battery;
        bool lowPower;
        ThermalState heat;
        BandwidthMode mode;
        double idle;
        std::optional<std::string> reason;
        double filePause, chunkPause;
        int reads;
    } rows[] = {
        {"under 30%, full mode", charged(29, 100), false, nominal, full, 0, battery(29), 0, 0, 0},
        {"29.9% reads 29, quiet", charged(299, 1000), false, nominal, quiet, 1e5, battery(29),
         0.030, 0.002, 0},
        {"on AC, the user there", charged(29, 100, "AC Power"), false, nominal, automatic, 119.9,
         runs, 0.010, 0.002, 3},
        {"exactly 30%, the user away", charged(30, 100), false, nominal, automatic, 120, runs, 0, 0,
         3},
        {"serious heat before all", charged(10, 100), true, serious, full, 0, hot, 0, 0, 0},
        {"critical heat", desktop, false, critical, full, 0, hot, 0, 0, 0},
        {"fair heat is none", charged(10, 100), true, fair, full, 0, saver, 0, 0, 0},
        {"power saving on AC", charged(100, 100, "AC Power"), true, nominal, full, 0, saver, 0, 0,
         0},
        {"a desktop", desktop, false, nominal, full, 0, runs, 0, 0, 0},
        {"a zero maximum", charged(5, 0), false, nominal, full, 0, runs, 0, 0, 0},
        {"no source reads as AC", charged(5, 100, std::nullopt), false, nominal, full, 0, runs, 0,
         0, 0},
        {"only those words mean AC", charged(5, 100, "Charging"), false, nominal, full, 0,
         battery(5), 0, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakePower power;
        power.setBattery(row.battery);
        power.setLowPower(row.lowPower);
        power.setHeat(row.heat);
        EXPECT_EQ(powerPauseReason(power), row.reason);

        FakeActivity activity;
        RecordingSleeper sleeper;
        ActivityGate gate{activity, sleeper};
        gate.setBandwidthMode(row.mode);
        activity.idle = row.idle;
        EXPECT_EQ(gate.isThrottling(), row.filePause > 0);
        gate.pauseBetweenFiles({});
        gate.pauseBetweenChunks();
        const std::vector<double> expected{row.filePause, row.chunkPause};
        EXPECT_EQ(sleeper.slept, row.filePause > 0 ? expected : std::vector<double>{});
        EXPECT_EQ(activity.reads, row.reads);
    }
}

Mount local(std::string point, std::string source = "/dev/sdb1", std::string type = "ext4") {
    return {std::move(point), std::move(source), false, std::move(type)};
}

// Each row: a path, the mount that holds it, and whether it is a drive that is not there: below
// a removable root but held by a mount above it.
TEST(MountTable, TakesTheLongestMountPointByItsExactBytesAndKnowsADriveThatIsNotThere) {
    const std::vector<Mount> mounts{local("/", "/dev/vda"),          local("/media/u/Photos"),
                                    local("/media/u/Photos 2"),      local("/media/u/backup"),
                                    local("/run", "tmpfs", "tmpfs"), local("/mnt")};
    const struct {
        const char* path;
        const char* mountPoint;
        bool isMissingDrive;
    } cases[] = {
        {"/media/u/Photos 2/a", "/media/u/Photos 2", false},
        {"/media/u/Photos", "/media/u/Photos", false},
        {"/media/u/Photos2", "/", true},   // no slash after the name
        {"/media/u/PHOTOS/a", "/", true},  // case counts: another folder of the disk above
        {"/media/u/backup/x", "/media/u/backup", false},
        {"/run/media/u/Drive", "/run", true},
        {"/Volumes/Photos/a", "/", true},
        {"/MEDIA/u/Drive", "/", false},
        {"/mnt/backup", "/mnt", false},  // a drive at the root itself
        {"/mediafiles/x", "/", false},
    };
    for (const auto& c : cases) {
        const auto mount = MountTable::mount(c.path, mounts);
        ASSERT_TRUE(mount) << c.path;
        EXPECT_EQ(mount->mountPoint, c.mountPoint) << c.path;
        EXPECT_EQ(isMissingDrive(c.path, *mount), c.isMissingDrive) << c.path;
    }
    EXPECT_FALSE(MountTable::mount("/home/u", {local("/media/u/Photos")}));

    TemporaryFolder root;
    writeFile(root / "mountinfo",
              "22 1 254:0 / / rw,relatime - ext4 /dev/vda rw\n"
              "40 22 8:17 / /media/u/Photos\\0402 rw,nosuid - exfat /dev/sdb1 rw\n"
              "41 22 0:50 / /media/u/Share rw - cifs //nas/share rw,vers=3.0\n"
              "42 22 0:51 / /home/u/remote rw - fuse.sshfs u@host:/srv rw\n"
              "43 22 0:52 / /mnt/nfs rw - nfs4 host:/export rw\n");
    std::vector<std::pair<std::string, bool>> points;
    for (const auto& mount : MountTable::snapshot(root / "mountinfo"))
        points.emplace_back(mount.mountPoint, mount.isNetwork);
    EXPECT_THAT(points, ElementsAre(Pair("/", false), Pair("/media/u/Photos 2", false),
                                    Pair("/media/u/Share", true), Pair("/home/u/remote", true),
                                    Pair("/mnt/nfs", true)));
}

// Reachable exactly when present: the mount judged by the path as written, the folder by what
// it leads to.
TEST(DestinationState, JudgesByTheMountFirstAndThenByTheFolderAfterLinks) {
    TemporaryFolder root;
    makeFolder(root / "home/Backups");
    makeLink(root / "home/Link", root / "home/Backups");
    makeLink(root / "home/IntoDrive", root / "media/Drive/Backups");
    writeFile(root / "home/File", "not a folder");
    makeFolder(root / "media/Drive/Backups");  // a stale folder where a drive was
    const Volumes volumes({(root / "media").native() + "/"});
    const std::vector<Mount> onlyRoot{local("/", "/dev/vda")};
    const std::vector<Mount> withDrive{local("/", "/dev/vda"),
                                       local((root / "media/Drive").native())};
    using enum DestinationState;
    const struct {
        const char* name;
        fs::path path;
        std::vector<Mount> mounts;
        DestinationState expected;
    } cases[] = {
        {"a folder", root / "home/Backups", onlyRoot, present},
        {"a link to a folder", root / "home/Link", onlyRoot, present},
        {"a link into a missing drive", root / "home/IntoDrive", onlyRoot, present},
        {"a file", root / "home/File", onlyRoot, folderMissing},
        {"nothing", root / "home/Gone", onlyRoot, folderMissing},
        {"a stale folder of a drive not there", root / "media/Drive/Backups", onlyRoot, notMounted},
        {"an empty table", root / "home/Backups", {}, notMounted},
        {"the drive mounted", root / "media/Drive/Backups", withDrive, present},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(volumes.destinationState(c.path, c.mounts), c.expected) << c.name;
        // The real table holds these paths by the root or /tmp, as `onlyRoot` does.
        if (c.mounts == onlyRoot) {
            EXPECT_EQ(volumes.isDestinationReachable(c.path), c.expected == present) << c.name;
        }
    }
}

TEST(GvfsMountUri, NamesTheShareOfEachKindThatGvfsMounts) {
    const std::string gvfs = "/run/user/1000/gvfs/";
    const std::optional<std::string> none;
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {gvfs + "smb-share:server=nas,share=photos/Backups/2024", "smb://nas/photos/"},
        {gvfs + "smb-share:domain=WORK,port=4450,server=nas,share=My%20Photos,user=ana",
         "smb://WORK;ana@nas:4450/My%20Photos/"},
        {gvfs + "sftp:host=example.org,port=2222,user=bob/home/bob",
         "sftp://bob@example.org:2222/"},
        {gvfs + "dav:host=cloud,ssl=true,user=me,prefix=%2Fremote.php%2Fwebdav/Photos",
         "davs://me@cloud/remote.php/webdav/"},
        {gvfs + "afp-volume:host=LCARS.local,user=jie%20mei,volume=video/Shows",
         "afp://jie%20mei@LCARS.local/video/"},
        {"/run/user/1000/gvfs/x/../sftp:host=h/./a", "sftp://h/"},
        {gvfs + "mtp:host=Phone/DCIM", none},  // a phone is no share
        {gvfs + "dav:ssl=true", none},
        {"/media/ana/gvfs/smb-share:server=a,share=b", none},
    };
    for (const auto& [path, uri] : cases)
        EXPECT_EQ(gvfsMountUri(path), uri) << path;
}

// Mounts nothing, and remembers what it was asked to mount.
class RecordingMounter final : public GvfsMounter {
  public:
    bool mount(const std::string& uri) const override {
        std::lock_guard lock(mutex_);
        asked.push_back(uri);
        return true;
    }
    mutable std::mutex mutex_;
    mutable std::vector<std::string> asked;
};

// The probe opens the destination itself, as an automount point needs, and asks GVFS only for
// its own locations.
TEST(SystemDestinationProbe, OpensTheDestinationAndAsksGvfsOnlyForItsOwnLocations) {
    TemporaryFolder root;
    makeFolder(root / "Back");
    const fs::path missingDrive = root / "media/Share/Backups";
    makeFolder(missingDrive);
    const auto mounter = std::make_shared<RecordingMounter>();
    // A folder below media/ stands where a drive is not: the mount that holds it is above.
    const SystemDestinationProbe probe{{(root / "media").native() + "/"}, mounter};
    const int events = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    const int watch = ::inotify_add_watch(events, missingDrive.c_str(), IN_OPEN);
    ASSERT_GE(watch, 0);

    EXPECT_TRUE(probe.isBack(root / "Back"));
    EXPECT_FALSE(probe.isBack(missingDrive));
    EXPECT_FALSE(probe.isBack("/run/user/4242/gvfs/smb-share:server=nas,share=photos/Backups"));
    EXPECT_THAT(mounter->asked, ElementsAre("smb://nas/photos/"));

    // An event without a name is the folder itself opened; a stat, or opening its parent only,
    // makes none.
    alignas(inotify_event) char buffer[4096];
    const ssize_t length = ::read(events, buffer, sizeof buffer);
    ::close(events);
    ASSERT_GT(length, 0) << "the destination was not opened";
    const auto* event = reinterpret_cast<const inotify_event*>(buffer);
    EXPECT_EQ(event->len, 0u);
    EXPECT_TRUE(event->mask & IN_OPEN);
}

TEST(CloudSyncDetector, KnowsProvidersByTheirFoldersBelowHomeAfterLinks) {
    using enum CloudSyncDetector::Provider;
    TemporaryFolder root;
    const fs::path home = root / "home/ana";
    const std::optional<CloudSyncDetector::Provider> none;
    const std::pair<const char*, std::optional<CloudSyncDetector::Provider>> cases[] = {
        {"Library/Mobile Documents/com~apple~CloudDocs/Backups", iCloud},
        {"Library/CloudStorage/OneDrive-Personal/x", oneDrive},
        {"Library/CloudStorage/GoogleDrive-someone/My Drive", googleDrive},
        {"Library/CloudStorage/ownCloud/x", nextcloud},
        {"Library/CloudStorage/SomethingElse/x", dropbox},  // the last resort
        {"Dropbox/x", dropbox},
        {"Dropbox2", none},
        {"Sync/a", sync},
        {"Documents/Dropbox", none},
    };
    for (const auto& [relative, provider] : cases)
        EXPECT_EQ(CloudSyncDetector::provider(home / relative, home), provider) << relative;
    EXPECT_FALSE(CloudSyncDetector::provider("/media/ana/Drive/Dropbox", home));

    makeFolder(home / "Dropbox/Work");
    makeLink(root / "shortcut", home / "Dropbox/Work");
    EXPECT_EQ(CloudSyncDetector::provider(root / "shortcut/Backups", home), dropbox);
    makeLink(root / "home-link", home);
    EXPECT_EQ(CloudSyncDetector::provider(home / "OneDrive/x", root / "home-link"), oneDrive);
}

BackupPair pairAt(const std::string& name, const fs::path& destination) {
    return pairOf(name, {}, destination);
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
    EXPECT_TRUE(queue.runUntil([&] { return reconnected == std::vector<std::string>{"Work"}; }));
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

TEST(NestingMigration, MovesWhatIsFreeKeepsWhatIsTakenAndRemovesOnlyEmptiedFolders) {
    struct Case {
        const char* name;
        const char* destination;
        Files before;
        Files after;
        std::vector<const char*> foldersAfter = {};
        std::vector<const char*> goneAfter = {};
    };
    const auto nothingToDo = [](const char* name, const char* destination, Files files) {
        return Case{name, destination, files, files};
    };
    const Case cases[] = {
        nothingToDo("a destination that doesn't end in Quillstow", "Backups",
                    {{"Backups/Quillstow/Work/a", "a"}}),
        nothingToDo("nothing nested", "Quillstow", {{"Quillstow/Work/a", "a"}}),
        nothingToDo("a file where the nested folder would be", "Quillstow",
                    {{"Quillstow/Quillstow/Work", "file"}}),
        {"everything moves, hidden files too, and the emptied folders go",
         "Quillstow",
         {{"Quillstow/Quillstow/Work/a", "a"},
          {"Quillstow/Quillstow/Work/.quillstow-hashes.json", "{}"},
          {"Quillstow/Quillstow/Work/sub/b", "b"}},
         {{"Quillstow/Work/a", "a"},
          {"Quillstow/Work/.quillstow-hashes.json", "{}"},
          {"Quillstow/Work/sub/b", "b"}},
         {},
         {"Quillstow/Quillstow"}},
        {"a name taken at the right place stays nested, and the copy there wins",
         "Quillstow",
         {{"Quillstow/Quillstow/Work/a", "nested"},
          {"Quillstow/Quillstow/Work/b", "b"},
          {"Quillstow/Work/a", "correct"}},
         {{"Quillstow/Quillstow/Work/a", "nested"},
          {"Quillstow/Work/b", "b"},
          {"Quillstow/Work/a", "correct"}}},
        {"another pair's folder keeps the inner folder",
         "Quillstow",
         {{"Quillstow/Quillstow/Work/a", "a"}, {"Quillstow/Quillstow/Home/h", "h"}},
         {{"Quillstow/Work/a", "a"}, {"Quillstow/Quillstow/Home/h", "h"}},
         {"Quillstow/Quillstow"},
         {"Quillstow/Quillstow/Work"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder root;
        for (const auto& [path, content] : c.before)
            writeFile(root / path, content);
        BackupPair pair = pairAt("Work", root / c.destination);
        // A record that can't be resolved falls back to the folder the pair names.
        pair.destinationBookmark = base64::Bytes{'x'};
        for (int run = 1; run <= 2; ++run) {
            NestingMigration::run({pair});
            EXPECT_EQ(filesBelow(root.path()), c.after) << "run " << run;
        }
        for (const auto* folder : c.foldersAfter)
            EXPECT_TRUE(fs::is_directory(root / folder)) << folder;
        for (const auto* gone : c.goneAfter)
            EXPECT_FALSE(fs::exists(root / gone)) << gone;
    }
}

}  // namespace
}  // namespace quillstow
