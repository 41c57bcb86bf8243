// The settings, pairs and log in their files: the backup renamed into place, damage and
// recovery, odd values kept for a newer version, the coalesced log write, a writer that never
// holds the main thread, and the user defaults.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <random>

#include "Pairs.hpp"
#include "TestTree.hpp"
#include "model/ConfigStore.hpp"
#include "model/FileUserDefaults.hpp"
#include "model/Tips.hpp"
#include "support/AtomicFile.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
using ::testing::Contains;
using ::testing::UnorderedElementsAre;
namespace fs = std::filesystem;

BackupPair pairNamed(const std::string& name) {
    BackupPair pair = pairOf(name, "/home/ana/" + name + "/", "/media/ana/Drive/");
    pair.createdAt = sys_days{2026y / March / 1} + 9h + 30min;
    return pair;
}

BackupEvent eventOf(int files) {
    BackupEvent event;
    event.filesAffected = files;
    return event;
}

class ConfigStoreTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path folder = root / "config/Quillstow";
    ManualClock clock;
    VirtualMainQueue queue{clock};
    InMemoryUserDefaults defaults;

    std::shared_ptr<ConfigStore> open(ConfigStore::WriteFile writeFile = nullptr) {
        auto store = std::make_shared<ConfigStore>(folder, queue, defaults, std::move(writeFile));
        opened_.push_back(store);
        return store;
    }
    // The stores write on a thread of their own: what they have handed over, once written.
    std::string onDisk(const char* name) {
        for (const auto& weak : opened_) {
            if (const auto store = weak.lock()) store->flush();
        }
        return readFile(folder / name);
    }
    std::vector<BackupPair> pairsOnDisk(const char* name) {
        return configFileFromJson(json::read(onDisk(name))).pairs;
    }
    std::size_t eventsOnDisk() {
        return eventLogFromJson(json::read(onDisk("backup-log.json"))).size();
    }

  private:
    std::vector<std::weak_ptr<ConfigStore>> opened_;
};

// Every save renames a copy of the previous config.json over the backup and leaves no temporary;
// an update of a pair removed meanwhile saves nothing.
TEST_F(ConfigStoreTest, TheBackupIsRenamedIntoPlaceAndARemovedPairIsNeverBroughtBack) {
    auto store = open();
    const BackupPair film = pairNamed("Film"), photos = pairNamed("Photos");
    store->addPair(film);
    onDisk("config.json");  // one write each: saves that wait for the writer become one
    store->addPair(photos);
    const std::string firstBackup = onDisk("config.json.backup");
    // A second name for the backup as it stands: a write in place would change it too.
    fs::create_hard_link(folder / "config.json.backup", root / "earlier-backup");
    const std::string previous = onDisk("config.json");

    store->removePair(film.id);
    EXPECT_EQ(onDisk("config.json.backup"), previous);
    EXPECT_EQ(readFile(root / "earlier-backup"), firstBackup);
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().native());
    EXPECT_THAT(names, UnorderedElementsAre("config.json", "config.json.backup"));
    store->updatePair(film);
    EXPECT_EQ(pairsOnDisk("config.json"), std::vector<BackupPair>{photos});
    EXPECT_EQ(onDisk("config.json.backup"), previous) << "a save would have rotated it";
}

// Whatever stands in place of config.json and the log, the pairs come back from the backup, the
// log starts anew, and neither this start nor the saves after it ever write over the backup.
TEST_F(ConfigStoreTest, DamagedFilesAreRecoveredOrReplacedAndNeverCostTheBackup) {
    const std::string good = json::write(toJson(ConfigFile{{pairNamed("Film")}, AppConfig{}}));
    const auto text = [](std::string text) {
        return [text](const fs::path& file) { writeFile(file, text); };
    };
    const std::vector<std::pair<const char*, std::function<void(const fs::path&)>>> cases{
        {"truncated", text(good.substr(0, 100))},
        {"not JSON", text("config, but not as we know it")},
        {"not an object", text("[]")},
        {"no pairs", text(R"({"appConfig": {}})")},
        {"deep nesting", text(std::string(100000, '['))},
        {"a folder in its place", [](const fs::path& file) { makeFolder(file / "x"); }},
        {"a link to itself", [](const fs::path& file) { makeLink(file, file); }},
        {"gone", [](const fs::path&) {}},
    };
    const BackupPair rescued = pairNamed("Rescued"), later = pairNamed("Later");
    const std::string backup = json::write(toJson(ConfigFile{{rescued}, AppConfig{}}));
    for (const auto& [name, damage] : cases) {
        SCOPED_TRACE(name);
        fs::remove_all(folder);
        writeFile(folder / "config.json.backup", backup);
        damage(folder / "config.json");
        damage(folder / "backup-log.json");
        auto store = open();
        EXPECT_EQ(store->pairs(), std::vector<BackupPair>{rescued});
        // The save after the recovery keeps the damaged file out of the backup even for a moment.
        EXPECT_EQ(onDisk("config.json.backup"), backup);
        EXPECT_TRUE(store->events().empty());
        store->addPair(later);
        store->addEvent(eventOf(1));
        queue.advance(1);
        EXPECT_EQ(pairsOnDisk("config.json.backup"), std::vector<BackupPair>{rescued});
        // A folder in its place can't be written over; the backup still holds the pairs.
        if (!fs::is_directory(folder / "config.json")) {
            EXPECT_EQ(pairsOnDisk("config.json"), (std::vector<BackupPair>{rescued, later}));
            EXPECT_EQ(eventsOnDisk(), 1u);
        }
        EXPECT_THAT(open()->pairs(), Contains(rescued)) << "the next start";
    }
}

TEST_F(ConfigStoreTest, BothFilesDamagedStartsFreshAndKeepsThemForWhoeverCanReadThem) {
    writeFile(folder / "config.json", "garbage");
    writeFile(folder / "config.json.backup", "{}");
    auto store = open();
    EXPECT_TRUE(store->pairs().empty());
    EXPECT_EQ(onDisk("config.json"), "garbage") << "untouched until the next save";
    store->addPair(pairNamed("New"));
    EXPECT_EQ(pairsOnDisk("config.json").size(), 1u);
    EXPECT_EQ(onDisk("config.json.backup"), "garbage");
}

// An interval this version can't read is kept; once the user sets one, it is gone for good.
TEST_F(ConfigStoreTest, AValueSetByTheUserReplacesTheKeptOneForGood) {
    json::Value file = toJson(ConfigFile{{}, AppConfig{}});
    file["appConfig"]["backupInterval"] = "2hr";
    writeFile(folder / "config.json", json::write(file));
    auto store = open();
    AppConfig config = store->appConfig();
    const auto savedWith = [&](BackupInterval interval) {
        config.backupInterval = interval;
        store->setAppConfig(config);
        store->save();
        return json::read(onDisk("config.json"))["appConfig"]["backupInterval"];
    };
    EXPECT_EQ(savedWith(BackupInterval::hourly), "2hr") << "the value read: nothing set";
    EXPECT_EQ(savedWith(BackupInterval::thirtyMinutes), "30min");
    EXPECT_EQ(savedWith(BackupInterval::hourly), "1hr");
}

TEST_F(ConfigStoreTest, ABurstOfEventsIsWrittenOnceHalfASecondAfterTheLast) {
    int logWrites = 0;  // by the writer; read after a flush
    auto store = open([&](const fs::path& file, std::string_view bytes) {
        logWrites += file.filename() == "backup-log.json";
        atomicfile::write(file, bytes);
    });
    for (int i = 0; i < 10; ++i) {
        store->addEvent(eventOf(i));
        queue.advance(0.05);
    }
    queue.advance(0.449);
    store->flush();
    EXPECT_EQ(logWrites, 0) << "nothing yet, not even inside the calls";
    queue.advance(0.002);
    EXPECT_EQ(eventsOnDisk(), 10u);
    queue.advance(10);
    store->flush();
    EXPECT_EQ(logWrites, 1);
}

// The writer is held in its first write: every call still returns at once, and the store's end
// waits for what it was handed.
TEST_F(ConfigStoreTest, TheMainThreadNeverWaitsForTheDiskAndTheEndWaitsForTheLastWrite) {
    std::promise<void> writing, release;
    const std::shared_future<void> released = release.get_future().share();
    std::once_flag first;
    std::atomic<bool> heldTooLong = false;
    auto store = open([&](const fs::path& file, std::string_view bytes) {
        std::call_once(first, [&] { writing.set_value(); });
        // Bounded, so that a store that writes on the main thread fails instead of hanging.
        if (released.wait_for(10s) != std::future_status::ready) heldTooLong = true;
        atomicfile::write(file, bytes);
    });
    store->addPair(pairNamed("Film"));
    ASSERT_EQ(writing.get_future().wait_for(10s), std::future_status::ready);
    store->addPair(pairNamed("Photos"));
    store->addEvent(eventOf(1));
    store->save();
    EXPECT_FALSE(fs::exists(folder / "config.json")) << "nothing has reached the disk yet";
    release.set_value();
    store.reset();
    EXPECT_FALSE(heldTooLong) << "a call waited for the held write";
    EXPECT_EQ(open()->pairs().size(), 2u);
    EXPECT_EQ(open()->events().size(), 1u);
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

// One value set, removed or added in the settings or a pair, or a whole pair replaced; says
// where in `where`.
struct Mutation {
    std::optional<std::size_t> pair;  // nothing for the settings
    std::string key;                  // empty when the whole pair is replaced
};

Mutation mutate(json::Value& file, std::mt19937_64& random, std::string& where) {
    std::optional<std::size_t> pair;
    if (random() % 5 != 0) pair = random() % file["pairs"].size();
    json::Value& holder = pair ? file["pairs"][*pair] : file["appConfig"];
    const json::Value value = oddValue(random);
    where = pair ? "pair " + std::to_string(*pair) : "appConfig";
    std::vector<std::string> keys{"futureKey", ""};
    for (const auto& [key, ignored] : holder.items())
        keys.push_back(key);
    const std::string key = keys[random() % keys.size()];
    if (key.empty() && pair) {
        holder = value;
    } else if (random() % 4 == 0) {
        holder.erase(key);
    } else {
        holder[key] = value;
    }
    where += "." + key + " = " + value.dump();
    return {pair, key};
}

// Whatever one value of config.json holds, every other pair loads as it was, and a save keeps
// every pair and every other field of the odd record as it stood. The mutations come from one
// seed, so a failure names the mutation that replays it.
TEST_F(ConfigStoreTest, OneOddValueNeverCostsAnotherPairOrAField) {
    std::vector<BackupPair> pairs{pairNamed("A"), pairNamed("B"), pairNamed("C")};
    BackupPair& full = pairs[1];
    full.sourceBookmark = base64::Bytes{1, 2, 3};
    full.lastBackupAt = full.createdAt + 1h;
    full.offsiteURL = "/home/ana/Cloud/";
    full.isEnabled = false;
    const json::Value good = toJson(ConfigFile{pairs, AppConfig{}});
    std::mt19937_64 random(20260301);
    for (int i = 0; i < 200; ++i) {
        json::Value file = good;
        std::string where;
        const Mutation changed = mutate(file, random, where);
        SCOPED_TRACE("mutation " + std::to_string(i) + ": " + where);
        fs::remove_all(folder);
        writeFile(folder / "config.json", json::write(file));

        auto store = open();
        store->save();
        const json::Value saved = json::read(onDisk("config.json"));
        ASSERT_EQ(saved["pairs"].size(), pairs.size());
        for (std::size_t p = 0; p < pairs.size(); ++p) {
            if (changed.pair == p) continue;
            EXPECT_THAT(store->pairs(), Contains(pairs[p]));
            EXPECT_THAT(saved["pairs"], Contains(good["pairs"][p]));
        }
        const json::Value& before = changed.pair ? good["pairs"][*changed.pair] : good["appConfig"];
        const json::Value none;
        for (const auto& record :
             changed.pair ? saved["pairs"] : json::Value::array({saved["appConfig"]})) {
            if (!record.is_object() || record.value("id", none) != before.value("id", none))
                continue;
            for (const auto& [key, value] : before.items()) {
                if (key != changed.key && key != "id") {
                    EXPECT_EQ(record.value(key, none), value) << key;
                }
            }
        }
        const auto again = open();
        EXPECT_EQ(again->pairs(), store->pairs());
        EXPECT_EQ(again->appConfig(), store->appConfig());
    }
}

// The tip counter, across starts: a damaged file reads as empty and the next change replaces
// it; a tip is given on every third pass, beginning with the first.
TEST(FileUserDefaults, KeepTheirValuesAcrossStartsAndReplaceADamagedFile) {
    TemporaryFolder root;
    const fs::path file = root / "defaults.json";
    writeFile(file, R"({"Quillstow.tipCounter": )");
    std::vector<bool> spoke;
    for (int start = 0; start < 3; ++start) {
        FileUserDefaults defaults(file);
        for (int pass = 0; pass < 2; ++pass)
            spoke.push_back(nextTip(defaults, 0, false, false, false).has_value());
    }
    EXPECT_EQ(spoke, (std::vector<bool>{true, false, false, true, false, false}));
    EXPECT_TRUE(json::read(readFile(file))[tipCounterKey].is_number_integer());
}

}  // namespace
}  // namespace quillstow
