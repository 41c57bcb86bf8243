// The JSON shape of the settings and the log: what is written, what is read around, what is
// kept for a newer version, and what fails a whole record.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestTree.hpp"
#include "model/ConfigFile.hpp"
#include "model/EventLogReader.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::StartsWith;

json::Value minimalPair() {
    return json::Value{
        {"id", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"},
        {"name", "Projects"},
        {"sourceURL", "file:///home/ana/Projects/"},
        {"destinationURL", "file:///media/ana/Drive/"},
        {"isEnabled", true},
        {"createdAt", "2026-03-01T09:30:00Z"},
    };
}

json::Value minimalConfig() {
    return json::Value{
        {"backupInterval", "1hr"},
        {"notificationLevel", "errorsOnly"},
        {"launchAtLogin", true},
        {"hasCompletedOnboarding", false},
    };
}

// One value of a record set, or its key removed for null.
json::Value with(json::Value record, const char* key, const json::Value& value) {
    if (value.is_null()) {
        record.erase(key);
    } else {
        record[key] = value;
    }
    return record;
}

struct OddValue {
    const char* key;
    json::Value value;    // null: the key is missing
    json::Value readAs;   // the field's encoding after reading; null: nothing
    json::Value written;  // what a write puts under the key; null: nothing
};

// Reads `good` with the odd value in it: the record reads around it, says so, and writes back
// what it could not use, all its other fields unchanged.
template <typename Decode>
void expectReadAroundAndWrittenBack(const json::Value& good, const OddValue& odd, Decode decode) {
    const std::string where = std::string(odd.key) + " = " + odd.value.dump();
    coding::DecodingNotes notes;
    const auto decoded = decode(with(good, odd.key, odd.value), &notes);
    const json::Value fields = toJson(decode(good, nullptr));
    auto plain = decoded;
    plain.keptValues = {};
    EXPECT_EQ(toJson(plain), with(fields, odd.key, odd.readAs)) << where;
    EXPECT_EQ(toJson(decoded), with(fields, odd.key, odd.written)) << where;
    EXPECT_THAT(notes, Contains(HasSubstr(std::string("\"") + odd.key + "\""))) << where;
    EXPECT_EQ(decode(toJson(decoded), nullptr), decoded) << where;
}

void expectDecodingFailure(const std::function<void()>& decode, const std::string& why) {
    try {
        decode();
        ADD_FAILURE() << "decoded although " << why;
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.error().domain, errors::decodingDomain) << why;
    }
}

// Records written by an older version, without the later keys, read as fresh ones.
TEST(Coding, OlderRecordsReadWithTheFreshValuesOfTheLaterKeys) {
    EXPECT_EQ(appConfigFromJson(minimalConfig()), AppConfig{});
    const BackupPair pair = backupPairFromJson(minimalPair());
    EXPECT_EQ(pair.profile, BackupProfile::standard);
    EXPECT_FALSE(pair.didSuggestProfile);
    EXPECT_EQ(pair.sourceURL, std::filesystem::path("/home/ana/Projects/"));
    EXPECT_EQ(pair.createdAt, sys_days{2026y / March / 1} + 9h + 30min);
}

TEST(AppConfigCoding, RoundTripsEveryCase) {
    for (auto [interval, intervalName] : backupIntervalNames) {
        for (auto [level, levelName] : notificationLevelNames) {
            for (auto [mode, modeName] : bandwidthModeNames) {
                AppConfig config{interval, level, false, true, false, mode};
                const json::Value value = toJson(config);
                EXPECT_EQ(value["backupInterval"], intervalName);
                EXPECT_EQ(value["bandwidthMode"], modeName);
                EXPECT_EQ(appConfigFromJson(json::read(json::write(value))), config);
            }
        }
    }
}

TEST(AppConfigCoding, AnOddValueTakesTheFreshValueAndIsWrittenBackAsItStood) {
    const OddValue cases[] = {
        {"backupInterval", "2hr", "1hr", "2hr"},
        {"backupInterval", nullptr, "1hr", "1hr"},
        {"notificationLevel", "loud", "errorsOnly", "loud"},
        {"launchAtLogin", 1, true, 1},
        {"launchAtLogin", nullptr, true, true},
        {"hasCompletedOnboarding", "yes", false, "yes"},
        {"trashReminderEnabled", "no", true, "no"},
        {"bandwidthMode", "turbo", "auto", "turbo"},
        {"futureSetting", {{"on", true}}, nullptr, {{"on", true}}},
    };
    for (const auto& odd : cases) {
        expectReadAroundAndWrittenBack(
            minimalConfig(), odd,
            [](const json::Value& value, auto notes) { return appConfigFromJson(value, notes); });
    }
    expectDecodingFailure([] { appConfigFromJson("1hr"); }, "not an object");
}

TEST(BackupPairCoding, RoundTripsEveryFieldAndLosesOnlyFractionsOfDates) {
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = "Film \"Final\" / ü";
    pair.sourceURL = "/home/ana/Film Projects/";
    pair.destinationURL = "/media/ana/T7 Shield/";
    pair.sourceBookmark = base64::Bytes{0, 1, 2, 255};
    pair.destinationBookmark = base64::Bytes{};
    pair.isEnabled = false;
    pair.createdAt = sys_days{2025y / December / 31} + 23h + 59min + 59s;
    pair.lastBackupAt = pair.createdAt + 1s + 250ms;
    pair.lastBackupFileCount = 42;
    pair.lastBackupByteCount = 9'000'000'000'000;
    pair.offsiteURL = "/home/ana/Dropbox/Offsite";
    pair.offsiteBookmark = base64::Bytes{9};
    pair.lastOffsiteAt = pair.createdAt;
    pair.lastOffsiteFileCount = 0;
    pair.profile = BackupProfile::film;
    pair.didSuggestProfile = true;

    BackupPair decoded = backupPairFromJson(json::read(json::write(toJson(pair))));
    EXPECT_EQ(*decoded.lastBackupAt, pair.createdAt + 1s);
    decoded.lastBackupAt = pair.lastBackupAt;
    EXPECT_EQ(decoded, pair);
}

TEST(BackupPairCoding, AnOddValueTakesItsDefaultAndIsWrittenBackAsItStood) {
    const OddValue cases[] = {
        {"profile", "cinema", "standard", "cinema"},
        {"didSuggestProfile", "yes", false, "yes"},
        // A pair whose switch can't be read waits for the user.
        {"isEnabled", "yes", false, "yes"},
        {"isEnabled", nullptr, false, false},
        {"createdAt", "2026-03-01", "1970-01-01T00:00:00Z", "2026-03-01"},
        {"createdAt", "2026-03-01T09:30:00.5Z", "1970-01-01T00:00:00Z", "2026-03-01T09:30:00.5Z"},
        {"sourceBookmark", "not base64!", nullptr, "not base64!"},
        {"lastBackupFileCount", 1.5, nullptr, 1.5},
        {"lastBackupByteCount", "12", nullptr, "12"},
        {"lastBackupByteCount", json::read("18446744073709551616"), nullptr,
         json::read("18446744073709551616")},
        {"offsiteURL", "https://example.com/", nullptr, "https://example.com/"},
        {"offsiteURL", "file:///home/ana/100%zz/", nullptr, "file:///home/ana/100%zz/"},
        {"lastOffsiteAt", 7, nullptr, 7},
        {"excludedFolders", {"node_modules"}, nullptr, {"node_modules"}},
    };
    for (const auto& odd : cases) {
        expectReadAroundAndWrittenBack(
            minimalPair(), odd,
            [](const json::Value& value, auto notes) { return backupPairFromJson(value, notes); });
    }
}

TEST(BackupPairCoding, FailsWhenThePairCantBeToldApartOrPlaced) {
    const std::pair<const char*, json::Value> cases[] = {
        {"id", "not-a-uuid"},
        {"id", 7},
        {"id", nullptr},
        {"name", 7},
        {"name", nullptr},
        {"sourceURL", "relative/path"},
        {"sourceURL", "https://example.com/"},
        {"sourceURL", "file:///home/ana/100%zz/"},
        {"destinationURL", "/no/scheme"},
        {"destinationURL", nullptr},
    };
    for (const auto& [key, value] : cases) {
        expectDecodingFailure([&] { backupPairFromJson(with(minimalPair(), key, value)); },
                              std::string(key) + " = " + value.dump());
    }
    expectDecodingFailure([] { backupPairFromJson(json::Value::array()); }, "not an object");
}

TEST(ConfigFileCoding, APairThatCantBeReadStaysAsItStoodAndCostsNoOther) {
    const json::Value unreadable = with(minimalPair(), "sourceURL", "smb://nas/ana");
    const json::Value file{
        {"pairs", {minimalPair(), unreadable, with(minimalPair(), "profile", "cinema"), 7}},
        {"appConfig", minimalConfig()},
    };
    coding::DecodingNotes notes;
    const ConfigFile decoded = configFileFromJson(file, &notes);
    EXPECT_EQ(decoded.pairs.size(), 2u);
    EXPECT_THAT(notes, Contains(StartsWith("pair 2: kept as it stands, unread: ")));
    EXPECT_THAT(notes, Contains(StartsWith("pair 4: kept as it stands, unread: ")));
    const json::Value written = toJson(decoded)["pairs"];
    ASSERT_EQ(written.size(), 4u);
    EXPECT_EQ(written[2], unreadable);
    EXPECT_EQ(written[3], 7);
    EXPECT_EQ(configFileFromJson(toJson(decoded)), decoded);
}

TEST(ConfigFileCoding, SettingsThatCantBeReadCostNoPair) {
    const OddValue cases[] = {
        {"appConfig", nullptr, toJson(AppConfig{}), toJson(AppConfig{})},
        {"appConfig", "hourly", toJson(AppConfig{}), "hourly"},
        {"futureDocumentKey", {1, 2}, nullptr, {1, 2}},
    };
    const json::Value file{{"pairs", {minimalPair()}}, {"appConfig", minimalConfig()}};
    for (const auto& odd : cases) {
        expectReadAroundAndWrittenBack(file, odd, [](const json::Value& value, auto notes) {
            const ConfigFile decoded = configFileFromJson(value, notes);
            EXPECT_EQ(decoded.pairs.size(), 1u);
            return decoded;
        });
    }
    const std::pair<const char*, json::Value> unusable[] = {
        {"not an object", json::Value::array()},
        {"no pairs", with(file, "pairs", nullptr)},
        {"pairs not a list", with(file, "pairs", "none")},
    };
    for (const auto& [name, value] : unusable) {
        expectDecodingFailure([&] { configFileFromJson(value); }, name);
    }
}

TEST(EventLogCoding, RoundTripsAndAcceptsEveryType) {
    std::vector<BackupEvent> events;
    for (auto [type, name] : eventTypeNames) {
        BackupEvent event;
        event.id = Uuid::random();
        event.pairId = Uuid::random();
        event.timestamp = sys_days{2026y / November / 23} + 5h;
        event.type = type;
        event.filesAffected = 3;
        event.bytesTransferred = 1 << 20;
        event.duration = 1.25;
        if (type == BackupEvent::EventType::error)
            event.message = "3 of 4 files couldn't be backed up.";
        events.push_back(event);
    }
    const json::Value value = toJson(events);
    EXPECT_FALSE(value[0].contains("message"));
    EXPECT_EQ(eventLogFromJson(json::read(json::write(value))), events);

    json::Value bad = value;
    bad[3]["type"] = "exploded";
    expectDecodingFailure([&] { eventLogFromJson(bad); }, "unknown event type");
    bad = value;
    bad[0].erase("duration");
    expectDecodingFailure([&] { eventLogFromJson(bad); }, "no duration");
}

// Messages that hold everything that could mislead a reader that follows only strings and
// brackets.
std::vector<BackupEvent> eventsWithAwkwardMessages(int count) {
    const char* const messages[] = {R"(a "quoted" ] name)", "back\\slash\\",
                                    "}{][,:", "\u00FC\u3000 \\\"", ""};
    std::vector<BackupEvent> events(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        BackupEvent& event = events[std::size_t(i)];
        event.id = Uuid::random();
        event.pairId = event.id;
        event.timestamp = sys_days{2026y / March / 1} + seconds(i);
        event.filesAffected = i;
        event.message = std::string(messages[i % std::size(messages)]) + std::to_string(i);
    }
    return events;
}

TEST(EventLogReading, KeepsTheNewestWhereverChunksAndEscapesFall) {
    const auto events = eventsWithAwkwardMessages(3000);
    const std::string text = json::write(toJson(events));
    const std::vector<BackupEvent> newest(events.end() - 500, events.end());
    EXPECT_EQ(readNewestEvents(text, 500), newest);
    TemporaryFolder folder;
    // Some 700 KB: the file is read in chunks whose ends fall inside strings and escapes.
    writeFile(folder / "backup-log.json", text);
    EXPECT_EQ(readNewestEventsFromFile(folder / "backup-log.json", 500), newest);
    EXPECT_EQ(readNewestEvents(text, 0), std::vector<BackupEvent>{});
    EXPECT_EQ(readNewestEvents(json::write(toJson(newest)).insert(0, "\xEF\xBB\xBF \n"), 500),
              newest);
}

TEST(EventLogReading, FailsOnAnythingButAList) {
    const std::string event = json::write(toJson(eventsWithAwkwardMessages(1)[0]));
    const std::pair<const char*, std::string> cases[] = {
        {"empty", ""},
        {"blank", " \n"},
        {"not JSON", "log"},
        {"an object", "{}"},
        {"unclosed", "[" + event},
        {"unclosed string", "[\"abc]"},
        {"a comma too many", "[" + event + ",]"},
        {"a comma too few", "[" + event + " " + event + "]"},
        {"a leading comma", "[," + event + "]"},
        {"crossed brackets", "[{]}"},
        {"text after the list", "[]x"},
        {"a second list", "[] []"},
        {"a number for an event", "[1]"},
        {"a bad event", "[" + event + ", {\"id\": 1}]"},
    };
    for (const auto& [name, text] : cases) {
        expectDecodingFailure([&] { readNewestEvents(text, 500); }, name);
    }
    EXPECT_TRUE(readNewestEvents(std::string_view(" [ \r\n\t] "), 500).empty());
    // As for the parser, a NUL byte outside a string ends the text, as after a crash.
    EXPECT_TRUE(readNewestEvents(std::string_view("[]\0\0x", 5), 500).empty());
    expectDecodingFailure([] { readNewestEvents(std::string_view("[\0]", 3), 500); }, "NUL");
}

TEST(SanitizedFolderName, RemovesWhatCouldLeaveTheFolder) {
    const std::pair<std::string, std::string> cases[] = {
        {"../My Docs/", "My Docs"},
        {"Projects", "Projects"},
        {"a/b\\c", "abc"},
        {std::string("nul\0l", 5), "null"},
        {"  \n Photos 2026 \t", "Photos 2026"},
        {"...hidden", "hidden"},
        // Whitespace is trimmed before the dots go, so a blank behind a dot stays.
        {". .name", " .name"},
        {"....", "Untitled Backup"},
        {" . ", "Untitled Backup"},
        {"", "Untitled Backup"},
        {"/", "Untitled Backup"},
        {"v1.0..2", "v1.02"},
        // Every Unicode white space is trimmed, as the user sees none of them.
        {"\u00A0Photos\u2003", "Photos"},
        {"\u3000\u2028Docs\u2029\u0085\u202F", "Docs"},
        {"\u1680\u205F\u00A0", "Untitled Backup"},
        {"\u00A0.hidden", "hidden"},
        {"My\u00A0Docs", "My\u00A0Docs"},
        // Not white space: a zero-width space, and bytes that are not UTF-8.
        {"\u200BName", "\u200BName"},
        {"\xA0Name\xE3\x80", "\xA0Name\xE3\x80"},
    };
    for (const auto& [name, folder] : cases)
        EXPECT_EQ(sanitizedFolderName(name), folder) << name;
}

}  // namespace
}  // namespace quillstow
