// The settings, pairs and log in their files: first run, damage and recovery, odd values kept
// for a newer version, trimming, the coalesced log write, and observers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <random>
#include <thread>

#include "LogCapture.hpp"
#include "TestTree.hpp"
#include "model/ConfigStore.hpp"
#include "support/AtomicFile.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
using ::testing::Contains;
using ::testing::ElementsAre;
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

// Settings mutated one value at a time, for the property test below.
constexpr std::uint64_t seed = 20260301;
constexpr int mutationCount = 200;

std::vector<BackupPair> everyKindOfPair() {
    std::vector<BackupPair> pairs(4);
    const Date created = sys_days{2026y / March / 1} + 9h;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        BackupPair& pair = pairs[i];
        pair.id = Uuid::random();
        pair.name = "Pair " + std::to_string(i);
        pair.sourceURL = "/home/ana/Source " + std::to_string(i) + "/";
        pair.destinationURL = "/media/ana/Drive/";
        pair.createdAt = created + hours(i);
        pair.profile = backupProfileNames[i].first;
        if (i % 2 == 1) {
            pair.sourceBookmark = base64::Bytes{1, 2, std::uint8_t(i)};
            pair.destinationBookmark = base64::Bytes{};
            pair.lastBackupAt = created + days(i);
            pair.lastBackupFileCount = std::int64_t(i) * 10;
            pair.lastBackupByteCount = std::int64_t(i) << 40;
            pair.offsiteURL = "/home/ana/Cloud/";
            pair.offsiteBookmark = base64::Bytes{9};
            pair.lastOffsiteAt = created;
            pair.lastOffsiteFileCount = 0;
            pair.isEnabled = false;
            pair.didSuggestProfile = true;
        }
    }
    return pairs;
}

// Values that a newer version, an outside hand or a damaged disk might leave under any key.
json::Value oddValue(std::mt19937_64& random) {
    static const json::Value values = json::read(R"([
        [], {}, null, true, 0, -1, 1.5, -0.0, 9223372036854775807, 9223372036854775808,
        18446744073709551616, 1e300, "", "cinema", "1hr", "film", "2hr", "http://nas.local/ana/",
        "home/ana/relative", "file:///home/ana/100%zz/", "file:///home/ana/%00/",
        "file://localhost/home/ana/", "not base64!", "AAEC/w==", "2026-03-01",
        "2026-03-01T10:30:00+01:00", "e621e1f8-c36c-495a-93fc-0c247a3e6e5f",
        "\u00A0Documents\u3000", [1, "two", {"three": [null]}], {"future": {"nested": true}}
    ])");
    return values[random() % values.size()];
}

struct Mutation {
    std::string where;                     // for the failure message
    std::optional<std::size_t> pairIndex;  // nothing for the settings
    std::string key;                       // empty when the whole pair is replaced
};

// One value set, removed or added somewhere in the document; returns where.
Mutation mutate(json::Value& file, std::mt19937_64& random) {
    Mutation mutation;
    json::Value* holder = &file["appConfig"];
    if (random() % 5 != 0) {
        mutation.pairIndex = random() % file["pairs"].size();
        holder = &file["pairs"][*mutation.pairIndex];
    }
    const json::Value value = oddValue(random);
    if (mutation.pairIndex && random() % 10 == 0) {
        *holder = value;
        mutation.where = "pair " + std::to_string(*mutation.pairIndex) + " = " + value.dump();
        return mutation;
    }
    std::vector<std::string> keys{"futureKey"};
    for (const auto& [key, ignored] : holder->items())
        keys.push_back(key);
    mutation.key = keys[random() % keys.size()];
    const bool removes = random() % 4 == 0;
    if (removes) {
        holder->erase(mutation.key);
    } else {
        (*holder)[mutation.key] = value;
    }
    mutation.where = (mutation.pairIndex ? "pair " + std::to_string(*mutation.pairIndex)
                                         : std::string("appConfig")) +
                     "." + mutation.key + (removes ? " removed" : " = " + value.dump());
    return mutation;
}

// Every key of `before` but `except` stands unchanged in `after`.
void expectOtherFieldsKept(const json::Value& before, const json::Value& after,
                           const std::string& except, const std::string& where) {
    for (const auto& [key, value] : before.items()) {
        if (key == except) continue;
        EXPECT_EQ(after.value(key, json::Value()), value) << where << ": " << key;
    }
}

class ConfigStoreTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path folder = root / "config/Quillstow";
    ManualClock clock;
    VirtualMainQueue queue{clock};
    InMemoryUserDefaults defaults;
    LogCapture log;

    std::shared_ptr<ConfigStore> open(ConfigStore::WriteFile writeFile = nullptr) {
        auto store = std::make_shared<ConfigStore>(folder, queue, defaults, std::move(writeFile));
        opened_.push_back(store);
        return store;
    }

    // The stores write on a thread of their own: what they have handed over, once written.
    void flushAll() {
        for (const auto& weak : opened_) {
            if (const auto store = weak.lock()) store->flush();
        }
    }
    std::string onDisk(const fs::path& file) {
        flushAll();
        return readFile(file);
    }
    bool existsOnDisk(const fs::path& file) {
        flushAll();
        return fs::exists(file);
    }

    void writeGoodConfig(const fs::path& file, const std::vector<BackupPair>& pairs) {
        writeFile(file, json::write(toJson(ConfigFile{pairs, AppConfig{}})));
    }

  private:
    std::vector<std::weak_ptr<ConfigStore>> opened_;
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
    EXPECT_TRUE(existsOnDisk(folder / "config.json"));
    EXPECT_TRUE(existsOnDisk(folder / "backup-log.json"));
    EXPECT_FALSE(existsOnDisk(folder / "config.json.backup"));
}

TEST_F(ConfigStoreTest, WritesTheSettingsInTheirExactShape) {
    BackupPair pair = pairNamed("Film");
    pair.id = *Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    pair.lastBackupAt = pair.createdAt + 90s + 500ms;
    open()->addPair(pair);
    EXPECT_EQ(onDisk(folder / "config.json"), R"({
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

TEST_F(ConfigStoreTest, TheBackupIsRenamedIntoPlaceNeverRewrittenWhereItStands) {
    auto store = open();
    // One write each: saves that wait for the writer become one.
    store->addPair(pairNamed("Film"));
    flushAll();
    store->addPair(pairNamed("Photos"));
    const std::string firstBackup = onDisk(folder / "config.json.backup");
    // A second name for the backup as it stands: a write in place would change it too.
    fs::create_hard_link(folder / "config.json.backup", root / "earlier-backup");
    const std::string previous = onDisk(folder / "config.json");
    WriteCounter writes(folder);

    store->addPair(pairNamed("Music"));
    flushAll();

    EXPECT_EQ(readFile(folder / "config.json.backup"), previous);
    EXPECT_EQ(readFile(root / "earlier-backup"), firstBackup);
    EXPECT_EQ(writes.writesOf("config.json.backup"), 1) << "a temporary renamed over it";
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().native());
    EXPECT_THAT(names, ::testing::UnorderedElementsAre("config.json", "config.json.backup"))
        << "no temporary stays behind";
}

// Whatever stands in place of config.json, the pairs come back from the backup, and neither this
// start nor the saves after it ever write over the backup that could be read.
TEST_F(ConfigStoreTest, AConfigThatCannotBeReadIsRecoveredAndNeverCostsTheBackup) {
    const json::Value good = toJson(ConfigFile{{pairNamed("Film")}, AppConfig{}});
    const auto damaged = [&](const std::function<void(json::Value&)>& damage) {
        json::Value value = good;
        damage(value);
        return json::write(value);
    };
    const auto text = [](std::string text) {
        return [text](const fs::path& config) { writeFile(config, text); };
    };
    const std::vector<std::pair<const char*, std::function<void(const fs::path&)>>> cases{
        {"truncated", text(json::write(good).substr(0, 100))},
        {"not JSON", text("config, but not as we know it")},
        {"empty", text("")},
        {"not an object", text("[]")},
        {"no pairs", text(damaged([](auto& v) { v.erase("pairs"); }))},
        {"pairs not a list", text(damaged([](auto& v) { v["pairs"] = "none"; }))},
        {"deep nesting", text(std::string(100000, '['))},
        {"a folder in its place", [](const fs::path& config) { makeFolder(config / "x"); }},
        {"a link to itself", [](const fs::path& config) { makeLink(config, config); }},
        {"gone", [](const fs::path&) {}},
    };
    const BackupPair rescued = pairNamed("Rescued");
    const auto pairsIn = [&](const char* name) {
        return configFileFromJson(json::read(onDisk(folder / name))).pairs;
    };
    for (const auto& [name, damage] : cases) {
        SCOPED_TRACE(name);
        fs::remove_all(folder);
        writeGoodConfig(folder / "config.json.backup", {rescued});
        damage(folder / "config.json");
        LogCapture caseLog;
        auto store = open();
        EXPECT_EQ(store->pairs(), std::vector<BackupPair>{rescued});
        const auto messages = caseLog.messages("ConfigStore");
        if (std::string_view(name) != "gone") {
            ASSERT_EQ(messages.size(), 2u);
            EXPECT_THAT(messages[0], StartsWith("Failed to load config.json: "));
            EXPECT_EQ(messages[1], "Recovered from config.json.backup");
        }
        // A file that could be read but not decoded is replaced by the recovered settings.
        if (fs::is_regular_file(fs::symlink_status(folder / "config.json"))) {
            EXPECT_EQ(pairsIn("config.json"), std::vector<BackupPair>{rescued}) << "rewritten";
        }
        store->addPair(pairNamed("Later"));
        EXPECT_EQ(pairsIn("config.json.backup"), std::vector<BackupPair>{rescued});
        for (int start = 2; start <= 3; ++start) {
            store = open();
            EXPECT_THAT(store->pairs(), Contains(rescued)) << "start " << start;
            store->save();
        }
    }
}

TEST_F(ConfigStoreTest, AValueSetByTheUserReplacesTheKeptOneForGood) {
    json::Value file = toJson(ConfigFile{{pairNamed("Film")}, AppConfig{}});
    file["appConfig"]["backupInterval"] = "2hr";
    writeFile(folder / "config.json", json::write(file));
    auto store = open();
    const auto savedInterval = [&] {
        return json::read(onDisk(folder / "config.json"))["appConfig"]["backupInterval"];
    };
    store->save();
    EXPECT_EQ(savedInterval(), "2hr");

    AppConfig config = store->appConfig();
    config.backupInterval = BackupInterval::thirtyMinutes;
    store->setAppConfig(config);
    store->save();
    EXPECT_EQ(savedInterval(), "30min");
    config.backupInterval = BackupInterval::hourly;
    store->setAppConfig(config);
    store->save();
    EXPECT_EQ(savedInterval(), "1hr");
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
    EXPECT_EQ(onDisk(folder / "config.json"), "garbage");

    store->addPair(pairNamed("New"));
    EXPECT_EQ(configFileFromJson(json::read(onDisk(folder / "config.json"))).pairs.size(), 1u);
    EXPECT_EQ(onDisk(folder / "config.json.backup"), "garbage") << "kept for whoever can read it";
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
        EXPECT_EQ(eventLogFromJson(json::read(onDisk(folder / "backup-log.json"))).size(), 1u);
    }
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

    // A pair removed meanwhile is not brought back, and nothing is written for it.
    const std::string before = onDisk(folder / "config.json");
    const std::string backup = onDisk(folder / "config.json.backup");
    store->updatePair(pairNamed("Gone"));
    EXPECT_EQ(store->pairs(), (std::vector<BackupPair>{first, second}));
    EXPECT_EQ(onDisk(folder / "config.json"), before);
    EXPECT_EQ(onDisk(folder / "config.json.backup"), backup) << "a save would have rotated it";

    defaults.setBoolean(packageUpgradeKey(first.id), true);
    defaults.setBoolean(packageUpgradeKey(second.id), true);
    store->addEvent(eventNumber(1));
    store->removePair(first.id);
    EXPECT_EQ(store->pairs(), std::vector<BackupPair>{second});
    EXPECT_FALSE(defaults.value(packageUpgradeKey(first.id)));
    EXPECT_TRUE(defaults.boolean(packageUpgradeKey(second.id)));
    EXPECT_EQ(store->events().size(), 1u) << "a removed pair's events stay in the log";
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

TEST_F(ConfigStoreTest, ABurstOfEventsIsWrittenOnceHalfASecondAfterTheLastAndASaveAtOnce) {
    auto store = open();
    WriteCounter writes(folder);
    for (int i = 0; i < 10; ++i) {
        store->addEvent(eventNumber(i));
        queue.advance(0.05);
    }
    // The last add was 0.05 s ago: nothing yet, not even inside the call.
    EXPECT_FALSE(existsOnDisk(folder / "backup-log.json"));
    queue.advance(0.449);
    EXPECT_FALSE(existsOnDisk(folder / "backup-log.json"));
    queue.advance(0.002);
    EXPECT_EQ(eventLogFromJson(json::read(onDisk(folder / "backup-log.json"))).size(), 10u);
    queue.advance(10);
    flushAll();
    EXPECT_EQ(writes.writesOf("backup-log.json"), 1);

    // A save writes what waits at once, and nothing is left to write after it.
    store->addEvent(eventNumber(11));
    store->save();
    EXPECT_EQ(eventLogFromJson(json::read(onDisk(folder / "backup-log.json"))).size(), 11u);
    EXPECT_EQ(queue.scheduledCount(), 0u);
    queue.advance(5);
    flushAll();
    EXPECT_EQ(writes.writesOf("backup-log.json"), 2);
}

// A disk that answers only when the test lets it: the first write waits there.
class HeldDisk {
  public:
    ConfigStore::WriteFile writeFile() {
        return [this](const fs::path& file, std::string_view bytes) {
            std::unique_lock lock(mutex_);
            writes_.push_back(file.filename().native());
            changed_.notify_all();
            // Bounded, so that a store that writes on the main thread fails instead of hanging.
            if (!changed_.wait_for(lock, std::chrono::seconds(10), [&] { return isReleased_; })) {
                wasHeldTooLong_ = true;
            }
            lock.unlock();
            atomicfile::write(file, bytes);
        };
    }
    bool waitForAWrite() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return !writes_.empty(); });
    }
    void release() {
        std::lock_guard lock(mutex_);
        isReleased_ = true;
        changed_.notify_all();
    }
    std::vector<std::string> writes() {
        std::lock_guard lock(mutex_);
        return writes_;
    }
    bool wasHeldTooLong() {
        std::lock_guard lock(mutex_);
        return wasHeldTooLong_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> writes_;
    bool isReleased_ = false;
    bool wasHeldTooLong_ = false;
};

TEST_F(ConfigStoreTest, TheMainThreadNeverWaitsForTheDiskAndSavesMeanwhileCoalesce) {
    HeldDisk disk;
    auto store = open(disk.writeFile());
    const BackupPair film = pairNamed("Film");
    store->addPair(film);
    ASSERT_TRUE(disk.waitForAWrite());
    // The writer is stuck in its first write; every call here still returns at once.
    for (const char* name : {"Photos", "Music", "Notes"})
        store->addPair(pairNamed(name));
    store->addEvent(eventNumber(1));
    store->save();
    EXPECT_FALSE(fs::exists(folder / "config.json")) << "nothing has reached the disk yet";
    disk.release();
    store->flush();
    EXPECT_FALSE(disk.wasHeldTooLong()) << "a call waited for the held write";
    EXPECT_EQ(configFileFromJson(json::read(readFile(folder / "config.json"))).pairs.size(), 4u);
    EXPECT_EQ(eventLogFromJson(json::read(readFile(folder / "backup-log.json"))).size(), 1u);
    // The held write, then one for the four saves that came while it waited, and the log.
    EXPECT_THAT(disk.writes(),
                ElementsAre("config.json", "config.json.backup", "config.json", "backup-log.json"));
}

TEST_F(ConfigStoreTest, ASaveRightBeforeTheEndIsOnDiskAfterIt) {
    const BackupPair film = pairNamed("Film");
    {
        auto store = open([](const fs::path& file, std::string_view bytes) {
            // A slow disk.
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            atomicfile::write(file, bytes);
        });
        store->addPair(film);
        store->addEvent(eventNumber(7));
        store->save();
    }
    EXPECT_EQ(open()->pairs(), std::vector<BackupPair>{film});
    EXPECT_EQ(open()->events().size(), 1u);
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

// Whatever one value of config.json holds, every other pair loads as it was, the odd pair keeps
// its other fields, and a save keeps every pair. The mutations come from one seed, so a failure
// names the mutation that replays it.
TEST_F(ConfigStoreTest, OneOddValueNeverCostsAnotherPairOrAField) {
    const std::vector<BackupPair> pairs = everyKindOfPair();
    AppConfig settings;
    settings.backupInterval = BackupInterval::fourHours;
    settings.bandwidthMode = BandwidthMode::quiet;
    const json::Value good = toJson(ConfigFile{pairs, settings});
    std::mt19937_64 random(seed);

    for (int i = 0; i < mutationCount; ++i) {
        json::Value file = good;
        const Mutation mutation = mutate(file, random);
        const std::string where = "mutation " + std::to_string(i) + ": " + mutation.where;
        fs::remove_all(folder);
        writeFile(folder / "config.json", json::write(file));

        auto store = open();
        for (std::size_t p = 0; p < pairs.size(); ++p) {
            if (mutation.pairIndex == p) continue;
            EXPECT_THAT(store->pairs(), Contains(pairs[p])) << where;
        }
        if (mutation.pairIndex && !mutation.key.empty() && mutation.key != "id") {
            const auto odd = std::find_if(
                store->pairs().begin(), store->pairs().end(),
                [&](const BackupPair& pair) { return pair.id == pairs[*mutation.pairIndex].id; });
            if (odd != store->pairs().end()) {
                expectOtherFieldsKept(good["pairs"][*mutation.pairIndex], toJson(*odd),
                                      mutation.key, where);
            }
        }
        if (!mutation.pairIndex) {
            expectOtherFieldsKept(good["appConfig"], toJson(store->appConfig()), mutation.key,
                                  where);
        }

        store->save();
        const json::Value saved = json::read(onDisk(folder / "config.json"));
        ASSERT_EQ(saved["pairs"].size(), pairs.size()) << where;
        for (std::size_t p = 0; p < pairs.size(); ++p) {
            if (mutation.pairIndex != p) {
                EXPECT_THAT(saved["pairs"], Contains(good["pairs"][p])) << where;
            }
        }
        const auto again = open();
        EXPECT_EQ(again->pairs(), store->pairs()) << where;
        EXPECT_EQ(again->appConfig(), store->appConfig()) << where;
    }
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
