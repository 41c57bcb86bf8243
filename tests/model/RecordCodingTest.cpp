// The records of the settings, the log and the chosen folders: written and read back, odd values
// read around and written back as they stood, what fails a whole record, the newest events of
// every type wherever the reader's chunks fall, folder names that cannot leave their folder, and
// folder records that lead only to the folder a pair names.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestTree.hpp"
#include "model/BookmarkManager.hpp"
#include "model/ConfigFile.hpp"
#include "model/EventLogReader.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
using json::Value;
namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::HasSubstr;

enum class Record { settings, pair, file };

const Value minimalSettings = json::read(R"({"backupInterval": "1hr",
    "notificationLevel": "errorsOnly", "launchAtLogin": true, "hasCompletedOnboarding": false})");
const Value minimalPair = json::read(R"({"id": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
    "name": "Projects", "sourceURL": "file:///home/ana/Projects/", "isEnabled": true,
    "destinationURL": "file:///media/ana/Drive/", "createdAt": "2026-03-01T09:30:00Z"})");
const Value goodRecords[] = {
    minimalSettings, minimalPair, {{"pairs", {minimalPair}}, {"appConfig", minimalSettings}}};

Value good(Record record) {
    return goodRecords[int(record)];
}

// One value of a record set, or its key removed for null.
Value with(Value record, const char* key, const Value& value) {
    if (value.is_null()) {
        record.erase(key);
    } else {
        record[key] = value;
    }
    return record;
}

struct Decoded {
    Value fields;   // what was read: kept values and unreadable pairs left out
    Value written;  // what a write puts in the file
    coding::DecodingNotes notes;
    bool readsBack = false;
};

template <typename Decode>
Decoded decodeWith(const Value& value, Decode decode) {
    Decoded result;
    auto decoded = decode(value, &result.notes);
    result.written = toJson(decoded);
    result.readsBack = decode(result.written, nullptr) == decoded;
    decoded.keptValues = {};
    if constexpr (requires { decoded.unreadablePairs; }) decoded.unreadablePairs = {};
    result.fields = toJson(decoded);
    return result;
}

Decoded decode(Record record, const Value& value) {
    switch (record) {
        case Record::settings:
            return decodeWith(value, [](auto& v, auto n) { return appConfigFromJson(v, n); });
        case Record::pair:
            return decodeWith(value, [](auto& v, auto n) { return backupPairFromJson(v, n); });
        case Record::file:
            return decodeWith(value, [](auto& v, auto n) { return configFileFromJson(v, n); });
    }
    return {};
}

// Each row sets one key of a good record (no key: the row's value is the whole record) and says
// how the field reads and is written back; or, with no reading, the words of the error that
// rejects the whole record.
TEST(RecordCoding, ReadsAroundOddValuesWritesThemBackAndRejectsOnlyWhatCantBeToldApart) {
    using enum Record;
    const std::optional<Value> rejected;
    const Value absent;
    const Value freshSettings = toJson(AppConfig{});
    const Value freshPair =
        with(with(minimalPair, "profile", "standard"), "didSuggestProfile", false);
    const AppConfig allSet{
        BackupInterval::fourHours, NotificationLevel::everyBackup, false, true, true,
        BandwidthMode::quiet};
    const Value unreadable = with(minimalPair, "sourceURL", "smb://nas/ana");
    const Value asStood = Value::array({minimalPair, unreadable, 7});
    const Value readable = Value::array({freshPair});
    const Value written = Value::array({freshPair, unreadable, 7});
    const Value odd = {{"on", true}};
    const struct {
        const char* name;
        Record record;
        const char* key;
        Value value;
        std::optional<Value> readAs;
        Value written;
    } cases[] = {
        {"older settings read fresh", settings, nullptr, minimalSettings, freshSettings,
         freshSettings},
        {"every setting", settings, nullptr, toJson(allSet), toJson(allSet), toJson(allSet)},
        {"an unknown interval", settings, "backupInterval", "2hr", "1hr", "2hr"},
        {"no interval", settings, "backupInterval", absent, "1hr", "1hr"},
        {"a number for a switch", settings, "launchAtLogin", 1, true, 1},
        {"a newer setting", settings, "futureSetting", odd, absent, odd},
        {"settings not an object", settings, nullptr, "1hr", rejected, "not an object"},

        {"an older pair reads fresh", pair, nullptr, minimalPair, freshPair, freshPair},
        {"an unknown profile", pair, "profile", "cinema", "standard", "cinema"},
        // A pair whose switch can't be read waits for the user.
        {"text for the switch", pair, "isEnabled", "yes", false, "yes"},
        {"no switch", pair, "isEnabled", absent, false, false},
        {"a date without a time", pair, "createdAt", "2026-03-01", "1970-01-01T00:00:00Z",
         "2026-03-01"},
        {"a bookmark not base64", pair, "sourceBookmark", "not base64!", absent, "not base64!"},
        {"a fraction for a count", pair, "lastBackupFileCount", 1.5, absent, 1.5},
        {"a web offsite", pair, "offsiteURL", "https://example.com/", absent,
         "https://example.com/"},
        {"a newer field", pair, "excludedFolders", {"node_modules"}, absent, {"node_modules"}},
        {"an id that is no UUID", pair, "id", "not-a-uuid", rejected, "\"id\""},
        {"a number for a name", pair, "name", 7, rejected, "\"name\""},
        {"a relative source", pair, "sourceURL", "relative/path", rejected, "\"sourceURL\""},
        {"a broken escape", pair, "sourceURL", "file:///home/ana/100%zz/", rejected,
         "\"sourceURL\""},
        {"no destination", pair, "destinationURL", absent, rejected, "\"destinationURL\""},
        {"a pair not an object", pair, nullptr, Value::array(), rejected, "not an object"},

        // What can't be read stays in the file as it stood, and costs no other pair.
        {"unreadable pairs", file, "pairs", asStood, readable, written},
        {"no settings", file, "appConfig", absent, freshSettings, freshSettings},
        {"settings not an object", file, "appConfig", "hourly", freshSettings, "hourly"},
        {"a newer document key", file, "future", {1, 2}, absent, {1, 2}},
        {"no pairs", file, "pairs", absent, rejected, "\"pairs\""},
        {"pairs not a list", file, "pairs", "none", rejected, "not an array"},
        {"a file not an object", file, nullptr, Value::array(), rejected, "not an object"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Value document = c.key ? with(good(c.record), c.key, c.value) : c.value;
        if (!c.readAs) {
            try {
                decode(c.record, document);
                ADD_FAILURE() << "decoded";
            } catch (const Failure& failure) {
                EXPECT_EQ(failure.error().domain, errors::decodingDomain);
                EXPECT_THAT(failure.error().description, HasSubstr(c.written.get<std::string>()));
            }
            continue;
        }
        const Decoded decoded = decode(c.record, document);
        const Value fields = decode(c.record, good(c.record)).fields;
        EXPECT_EQ(decoded.fields, c.key ? with(fields, c.key, *c.readAs) : *c.readAs);
        EXPECT_EQ(decoded.written, c.key ? with(fields, c.key, c.written) : c.written);
        EXPECT_TRUE(decoded.readsBack);
        // Whatever was read around is noted, by its key where it has one of its own.
        EXPECT_EQ(decoded.notes.empty(), c.key == nullptr);
        if (c.key && c.record != file) {
            EXPECT_THAT(decoded.notes, Contains(HasSubstr(c.key)));
        }
    }
}

TEST(EventLogReading, KeepsTheNewestWhereverChunksAndEscapesFallAndFailsOnAnythingButAList) {
    // Messages that hold everything that could mislead a reader that follows only strings and
    // brackets, and events of every type.
    const char* const messages[] = {R"(a "quoted" ] name)", "back\\slash\\",
                                    "}{][,:", "\u00FC\u3000 \\\"", ""};
    std::vector<BackupEvent> events(3000);
    for (std::size_t i = 0; i < events.size(); ++i) {
        events[i].id = Uuid::random();
        events[i].timestamp = sys_days{2026y / March / 1} + seconds(i);
        events[i].type = eventTypeNames[i % eventTypeNames.size()].first;
        events[i].message = messages[i % std::size(messages)] + std::to_string(i);
    }
    const std::string text = json::write(toJson(events));
    const std::vector<BackupEvent> newest(events.end() - 500, events.end());
    TemporaryFolder folder;
    // Some 700 KB: the file is read in chunks whose ends fall inside strings and escapes.
    writeFile(folder / "backup-log.json", text);
    EXPECT_EQ(readNewestEventsFromFile(folder / "backup-log.json", 500), newest);
    EXPECT_EQ(readNewestEvents(json::write(toJson(newest)).insert(0, "\xEF\xBB\xBF \n"), 500),
              newest);
    EXPECT_TRUE(readNewestEvents(std::string_view(" [ \r\n\t] "), 500).empty());
    // As for the parser, a NUL byte outside a string ends the text, as after a crash.
    EXPECT_TRUE(readNewestEvents(std::string_view("[]\0\0x", 5), 500).empty());

    // @ stands for an event.
    const std::string event = json::write(toJson(events[0]));
    std::vector<std::string> bad{
        "",      "log",  "{}",    "[@",  "[\"abc]",          "[@,]",
        "[@ @]", "[{]}", "[] []", "[1]", "[@, {\"id\": 1}]", std::string("[\0]", 3)};
    for (auto& text : bad) {
        for (std::size_t at = 0; (at = text.find('@', at)) != std::string::npos; at += event.size())
            text.replace(at, 1, event);
    }
    bad.push_back("[" + json::write(with(toJson(events[0]), "type", "exploded")) + "]");
    bad.push_back("[" + json::write(with(toJson(events[0]), "duration", nullptr)) + "]");
    for (const auto& text : bad) {
        try {
            readNewestEvents(text, 500);
            ADD_FAILURE() << "read " << text;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.error().domain, errors::decodingDomain) << text;
        }
    }
}

TEST(SanitizedFolderName, RemovesWhatCouldLeaveTheFolder) {
    const std::pair<std::string, std::string> cases[] = {
        {"../My Docs/", "My Docs"},
        {"a/b\\c", "abc"},
        {std::string("nul\0l", 5), "null"},
        {"  \n Photos 2026 \t", "Photos 2026"},
        {"...hidden", "hidden"},
        {"....", "Untitled Backup"},
        // Every Unicode white space is trimmed, as the user sees none of them.
        {"\u3000\u2028Docs\u2029\u0085\u202F", "Docs"},
        {"My\u00A0Docs", "My\u00A0Docs"},
        // Bytes that are not UTF-8 are no white space.
        {"\xA0Name\xE3\x80", "\xA0Name\xE3\x80"},
    };
    for (const auto& [name, folder] : cases)
        EXPECT_EQ(sanitizedFolderName(name), folder) << name;
}

void unchanged(const fs::path&) {}
void renamed(const fs::path& root) {
    fs::rename(root / "A", root / "A (old)");
}
void madeAnew(const fs::path& root) {
    fs::remove(root / "A");
    makeFolder(root / "elsewhere-to-take-the-inode");
    makeFolder(root / "A");
}
void aFileInstead(const fs::path& root) {
    fs::remove(root / "A");
    writeFile(root / "A", "a file now");
}

// Each row: the record (none: the one of folder A), what happens to A, and the folder the pair
// names. A record that no longer leads to that folder is stale: never followed elsewhere.
TEST(Bookmarks, LeadOnlyToTheFolderThePairNamesAndAreMadeAnewForAnotherAtItsPath) {
    const auto text = [](std::string text) { return base64::Bytes(text.begin(), text.end()); };
    enum Outcome { same, refreshed, stale };
    const struct {
        const char* name;
        std::optional<base64::Bytes> record;
        void (*change)(const fs::path&);
        const char* pairFolder;
        Outcome outcome;
    } cases[] = {
        {"the same folder", std::nullopt, unchanged, "A", same},
        {"the same folder, a slash behind", std::nullopt, unchanged, "A/", same},
        {"another folder at its path", std::nullopt, madeAnew, "A", refreshed},
        {"renamed", std::nullopt, renamed, "A", stale},
        // The pair names B, the record A: the record may not lead the pair to another folder.
        {"another folder's", std::nullopt, madeAnew, "B", stale},
        {"a file where the folder was", std::nullopt, aFileInstead, "A", stale},
        {"not JSON", text("not json"), unchanged, "A", stale},
        {"a newer version", text(R"({"version": 2, "path": "/"})"), unchanged, "A", stale},
        {"a relative path",
         text(R"({"version": 1, "path": "relative", "volume": "", "belowMount": "", "inode": 1,
                  "birth": 0, "readOnly": true})"),
         unchanged, "A", stale},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder root;
        makeFolder(root / "A");
        makeFolder(root / "B");
        const auto record = c.record.value_or(BookmarkManager::bookmarkData(root / "A", true));
        c.change(root.path());
        try {
            const auto resolved =
                BookmarkManager::resolveBookmark(record, root / c.pairFolder, true);
            EXPECT_EQ(resolved.newBytes ? refreshed : same, c.outcome);
            EXPECT_EQ(resolved.url, root / "A");
            if (resolved.newBytes) {
                EXPECT_FALSE(BookmarkManager::resolveBookmark(*resolved.newBytes, root / "A", true)
                                 .newBytes);
            }
        } catch (const BackupFailure& failure) {
            EXPECT_EQ(c.outcome, stale);
            EXPECT_EQ(failure.error().kind(), BackupError::Case::bookmarkStale);
            EXPECT_EQ(failure.error().url(), root / c.pairFolder) << "the folder the user knows";
        }
    }
}

}  // namespace
}  // namespace quillstow
