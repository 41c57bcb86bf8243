// The settings, pairs and log in their files: first run, damage and recovery, trimming, the
// coalesced log write, and observers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "LogCapture.hpp"
#include "TestTree.hpp"
#include "model/ConfigStore.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::StartsWith;
namespace fs = std::filesystem;

BackupPair pairNamed(const std::string& name) {
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = name;
    pair.sourceURL = "/home/ana/" + name;
    pair.destinationURL = "/media/ana/Drive";
    pair.createdAt = sys_days{2026y / March / 1} + 9h + 30min;
    return pair;
}

BackupEvent eventNumber(int number) {
    BackupEvent event;
    event.id = Uuid::random();
    event.pairId = Uuid::random();
    event.timestamp = sys_days{2026y / March / 1} + seconds(number);
    event.filesAffected = number;
    return event;
}

// Counts the files renamed into a folder: every atomic write ends in one.
class WriteCounter {
  public:
    explicit WriteCounter(const fs::path& folder) : fd_(::inotify_init1(IN_NONBLOCK)) {
        ::inotify_add_watch(fd_, folder.c_str(), IN_MOVED_TO);
    }
    ~WriteCounter() { ::close(fd_); }
    int writesOf(const std::string& name) {
        alignas(inotify_event) char buffer[8192];
        for (ssize_t length; (length = ::read(fd_, buffer, sizeof buffer)) > 0;) {
            for (char* at = buffer; at < buffer + length;) {
                const auto* event = reinterpret_cast<const inotify_event*>(at);
                if (event->len > 0) seen_.emplace_back(event->name);
                at += sizeof(inotify_event) + event->len;
            }
        }
        return int(std::count(seen_.begin(), seen_.end(), name));
    }

  private:
    int fd_;
    std::vector<std::string> seen_;
};

class ConfigStoreTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path folder = root / "config/Quillstow";
    ManualClock clock;
    VirtualMainQueue queue{clock};
    InMemoryUserDefaults defaults;
    LogCapture log;

    std::unique_ptr<ConfigStore> open() {
        return std::make_unique<ConfigStore>(folder, queue, defaults);
    }

    void writeGoodConfig(const fs::path& file, const std::vector<BackupPair>& pairs) {
        writeFile(file, json::write(toJson(ConfigFile{pairs, AppConfig{}})));
    }
};

TEST_F(ConfigStoreTest, AFirstRunStartsFreshAndWritesNothingUntilTheFirstSave) {
    auto store = open();
    EXPECT_TRUE(store->pairs().empty());
    EXPECT_TRUE(store->events().empty());
    EXPECT_EQ(store->appConfig(), AppConfig{});
    EXPECT_TRUE(fs::is_directory(folder));
    EXPECT_TRUE(fs::is_empty(folder));
    EXPECT_TRUE(log.records().empty());

    store->save();
    EXPECT_TRUE(fs::exists(folder / "config.json"));
    EXPECT_TRUE(fs::exists(folder / "backup-log.json"));
    EXPECT_FALSE(fs::exists(folder / "config.json.backup"));
}

TEST_F(ConfigStoreTest, WritesTheSettingsInTheirExactShape) {
    BackupPair pair = pairNamed("Film");
    pair.id = *Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    pair.lastBackupAt = pair.createdAt + 90s + 500ms;
    open()->addPair(pair);
    EXPECT_EQ(readFile(folder / "config.json"), R"({
  "appConfig": {
    "backupInterval": "1hr",
    "bandwidthMode": "auto",
    "hasCompletedOnboarding": false,
    "launchAtLogin": true,
    "notificationLevel": "errorsOnly",
    "trashReminderEnabled": true
  },
  "pairs": [
    {
      "createdAt": "2026-03-01T09:30:00Z",
      "destinationURL": "file:\/\/\/media\/ana\/Drive",
      "didSuggestProfile": false,
      "id": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
      "isEnabled": true,
      "lastBackupAt": "2026-03-01T09:31:30Z",
      "name": "Film",
      "profile": "standard",
      "sourceURL": "file:\/\/\/home\/ana\/Film"
    }
  ]
})");
}

TEST_F(ConfigStoreTest, PairsSurviveARestart) {
    const BackupPair film = pairNamed("Film");
    const BackupPair photos = pairNamed("Photos");
    {
        auto store = open();
        store->addPair(film);
        store->addPair(photos);
        AppConfig config;
        config.bandwidthMode = BandwidthMode::quiet;
        store->setAppConfig(config);
        store->save();
    }
    auto store = open();
    EXPECT_EQ(store->pairs(), (std::vector<BackupPair>{film, photos}));
    EXPECT_EQ(store->appConfig().bandwidthMode, BandwidthMode::quiet);
    // Every write but the first kept the file before it.
    EXPECT_TRUE(fs::exists(folder / "config.json.backup"));
}

TEST_F(ConfigStoreTest, ADamagedConfigIsRecoveredFromTheBackupAndRewritten) {
    const BackupPair pair = pairNamed("Film");
    writeGoodConfig(folder / "config.json.backup", {pair});
    writeFile(folder / "config.json", "{\"pairs\": [");

    auto store = open();

    EXPECT_EQ(store->pairs(), std::vector<BackupPair>{pair});
    const auto messages = log.messages("ConfigStore");
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_TRUE(messages[0].starts_with("Failed to load config.json: ")) << messages[0];
    EXPECT_EQ(messages[1], "Recovered from config.json.backup");
    EXPECT_EQ(log.records()[1].level, LogLevel::standard);
    EXPECT_EQ(configFileFromJson(json::read(readFile(folder / "config.json"))).pairs,
              std::vector<BackupPair>{pair});
    // The first save copied the damaged file over the backup.
    EXPECT_EQ(readFile(folder / "config.json.backup"), "{\"pairs\": [");
}

TEST_F(ConfigStoreTest, EveryKindOfDamageTakesTheRecoveryPath) {
    const json::Value good = toJson(ConfigFile{{pairNamed("Film")}, AppConfig{}});
    const auto damaged = [&](const std::function<void(json::Value&)>& damage) {
        json::Value value = good;
        damage(value);
        return json::write(value);
    };
    const std::vector<std::pair<const char*, std::string>> cases{
        {"truncated", json::write(good).substr(0, 100)},
        {"not JSON", "config, but not as we know it"},
        {"empty", ""},
        {"wrong type", damaged([](auto& v) { v["appConfig"]["launchAtLogin"] = "yes"; })},
        {"unknown case", damaged([](auto& v) { v["appConfig"]["backupInterval"] = "2hr"; })},
        {"missing key", damaged([](auto& v) { v["appConfig"].erase("launchAtLogin"); })},
        {"bad UUID", damaged([](auto& v) { v["pairs"][0]["id"] = "E621E1F8"; })},
        {"bad date", damaged([](auto& v) { v["pairs"][0]["createdAt"] = "yesterday"; })},
        {"relative URL", damaged([](auto& v) { v["pairs"][0]["sourceURL"] = "home/ana"; })},
        {"non-file URL", damaged([](auto& v) { v["pairs"][0]["sourceURL"] = "smb://nas/ana"; })},
        {"bad base64", damaged([](auto& v) { v["pairs"][0]["sourceBookmark"] = "%%%"; })},
        {"no pairs", damaged([](auto& v) { v.erase("pairs"); })},
        {"deep nesting", std::string(100000, '[')},
    };
    const BackupPair rescued = pairNamed("Rescued");
    for (const auto& [name, text] : cases) {
        fs::remove_all(folder);
        writeFile(folder / "config.json", text);
        writeGoodConfig(folder / "config.json.backup", {rescued});
        LogCapture caseLog;
        auto store = open();
        EXPECT_EQ(store->pairs(), std::vector<BackupPair>{rescued}) << name;
        const auto messages = caseLog.messages("ConfigStore");
        EXPECT_EQ(messages.size(), 2u) << name;
        EXPECT_EQ(messages.back(), "Recovered from config.json.backup") << name;
    }
}

TEST_F(ConfigStoreTest, BothFilesDamagedStartsFreshAndKeepsThemUntilTheNextSave) {
    writeFile(folder / "config.json", "garbage");
    writeFile(folder / "config.json.backup", "{}");

    auto store = open();

    EXPECT_TRUE(store->pairs().empty());
    const auto messages = log.messages("ConfigStore");
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_TRUE(messages[0].starts_with("Failed to load config.json: "));
    EXPECT_TRUE(messages[1].starts_with("Backup recovery also failed: "));
    EXPECT_EQ(readFile(folder / "config.json"), "garbage");

    store->addPair(pairNamed("New"));
    EXPECT_EQ(configFileFromJson(json::read(readFile(folder / "config.json"))).pairs.size(), 1u);
    EXPECT_EQ(readFile(folder / "config.json.backup"), "garbage") << "kept for whoever can read it";
}

TEST_F(ConfigStoreTest, ADamagedLogIsLoggedAndReplacedByTheNextWrite) {
    std::vector<BackupEvent> events;
    for (int i = 1; i <= 600; ++i)
        events.push_back(eventNumber(i));
    json::Value badLast = toJson(events);
    badLast.back().erase("duration");
    for (const std::string& text : {std::string("log"), json::write(badLast)}) {
        fs::remove_all(folder);
        writeFile(folder / "backup-log.json", text);
        LogCapture caseLog;
        auto store = open();
        EXPECT_TRUE(store->events().empty());
        const auto messages = caseLog.messages("ConfigStore");
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_THAT(messages[0], StartsWith("Failed to load backup-log.json: "));
        store->addEvent(eventNumber(1));
        queue.advance(0.5);
        EXPECT_EQ(eventLogFromJson(json::read(readFile(folder / "backup-log.json"))).size(), 1u);
    }
}

TEST_F(ConfigStoreTest, UpdatingAnUnknownPairWritesNothing) {
    auto store = open();
    const BackupPair kept = pairNamed("Kept");
    store->addPair(kept);
    const std::string before = readFile(folder / "config.json");
    ASSERT_FALSE(fs::exists(folder / "config.json.backup"));

    BackupPair removedMeanwhile = pairNamed("Gone");
    store->updatePair(removedMeanwhile);

    EXPECT_EQ(store->pairs(), std::vector<BackupPair>{kept});
    EXPECT_EQ(readFile(folder / "config.json"), before);
    EXPECT_FALSE(fs::exists(folder / "config.json.backup")) << "a save would have made one";
}

TEST_F(ConfigStoreTest, UpdateReplacesInPlaceAndRemoveForgetsTheCatchUpDefault) {
    auto store = open();
    BackupPair first = pairNamed("First");
    const BackupPair second = pairNamed("Second");
    store->addPair(first);
    store->addPair(second);
    first.isEnabled = false;
    store->updatePair(first);
    EXPECT_EQ(store->pairs(), (std::vector<BackupPair>{first, second}));

    defaults.setBoolean(packageUpgradeKey(first.id), true);
    defaults.setBoolean(packageUpgradeKey(second.id), true);
    store->addEvent(eventNumber(1));
    store->removePair(first.id);
    EXPECT_EQ(store->pairs(), std::vector<BackupPair>{second});
    EXPECT_FALSE(defaults.value(packageUpgradeKey(first.id)));
    EXPECT_TRUE(defaults.boolean(packageUpgradeKey(second.id)));
    EXPECT_EQ(store->events().size(), 1u) << "a removed pair's events stay in the log";
    EXPECT_EQ(packageUpgradeKey(first.id), "didLogPackageUpgrade_" + first.id.text());
}

TEST_F(ConfigStoreTest, TheLogKeepsTheNewestFiveHundred) {
    auto store = open();
    for (int i = 1; i <= 501; ++i)
        store->addEvent(eventNumber(i));
    ASSERT_EQ(store->events().size(), 500u);
    EXPECT_EQ(store->events().front().filesAffected, 2);
    EXPECT_EQ(store->events().back().filesAffected, 501);
}

TEST_F(ConfigStoreTest, ALogGrownPastItsLimitLoadsItsNewestFiveHundred) {
    std::vector<BackupEvent> events;
    for (int i = 1; i <= 800; ++i)
        events.push_back(eventNumber(i));
    json::Value log = toJson(events);
    // Entries the log would drop at its next write are passed over unread, flaws and all.
    log[0] = {{"type", "exploded"}};
    log[1] = json::Value::array({"}", "\"{", nullptr, 1e300});
    writeFile(folder / "backup-log.json", json::write(log));
    auto store = open();
    ASSERT_EQ(store->events().size(), 500u);
    EXPECT_EQ(store->events().front(), events[300]);
    EXPECT_EQ(store->events().back(), events.back());
    store->addEvent(eventNumber(801));
    ASSERT_EQ(store->events().size(), 500u);
    EXPECT_EQ(store->events().front().filesAffected, 302);
}

TEST_F(ConfigStoreTest, ABurstOfEventsIsWrittenOnceHalfASecondAfterTheLast) {
    auto store = open();
    WriteCounter writes(folder);
    for (int i = 0; i < 10; ++i) {
        store->addEvent(eventNumber(i));
        queue.advance(0.05);
    }
    // The last add was 0.05 s ago: nothing yet, not even inside the call.
    EXPECT_FALSE(fs::exists(folder / "backup-log.json"));
    queue.advance(0.449);
    EXPECT_FALSE(fs::exists(folder / "backup-log.json"));
    queue.advance(0.002);
    EXPECT_EQ(eventLogFromJson(json::read(readFile(folder / "backup-log.json"))).size(), 10u);
    queue.advance(10);
    EXPECT_EQ(writes.writesOf("backup-log.json"), 1);
}

TEST_F(ConfigStoreTest, SaveWritesAPendingLogAtOnceAndOnlyOnce) {
    auto store = open();
    WriteCounter writes(folder);
    store->addEvent(eventNumber(1));
    store->save();
    EXPECT_EQ(eventLogFromJson(json::read(readFile(folder / "backup-log.json"))).size(), 1u);
    EXPECT_EQ(queue.scheduledCount(), 0u);
    queue.advance(5);
    EXPECT_EQ(writes.writesOf("backup-log.json"), 1);
}

TEST_F(ConfigStoreTest, ObserversAreToldOfEveryChange) {
    auto store = open();
    int pairChanges = 0, configChanges = 0, eventChanges = 0;
    std::size_t lastPairCount = 0;
    auto pairs = store->observePairs([&](const auto& value) {
        ++pairChanges;
        lastPairCount = value.size();
    });
    auto config = store->observeAppConfig([&](const auto&) { ++configChanges; });
    auto events = store->observeEvents([&](const auto&) { ++eventChanges; });

    BackupPair pair = pairNamed("A");
    store->addPair(pair);
    store->updatePair(pair);
    store->removePair(pair.id);
    store->setAppConfig(AppConfig{});
    store->addEvent(eventNumber(1));
    store->setEvents({});

    EXPECT_EQ(pairChanges, 3);
    EXPECT_EQ(lastPairCount, 0u);
    EXPECT_EQ(configChanges, 1);
    EXPECT_EQ(eventChanges, 2);

    pairs.cancel();
    store->addPair(pairNamed("B"));
    EXPECT_EQ(pairChanges, 3);
}

TEST(DefaultSettingsFolder, FollowsXdgConfigHomeAndIgnoresARelativeOne) {
    const char* saved = std::getenv("XDG_CONFIG_HOME");
    const std::string previous = saved ? saved : "";
    ::setenv("XDG_CONFIG_HOME", "/xdg/config", 1);
    EXPECT_EQ(defaultSettingsFolder(), fs::path("/xdg/config/Quillstow"));
    ::setenv("XDG_CONFIG_HOME", "relative/config", 1);
    EXPECT_EQ(defaultSettingsFolder().parent_path().filename(), ".config");
    if (saved) {
        ::setenv("XDG_CONFIG_HOME", previous.c_str(), 1);
    } else {
        ::unsetenv("XDG_CONFIG_HOME");
    }
}

}  // namespace
}  // namespace quillstow
