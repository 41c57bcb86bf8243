// libFuzzer target for everything the program reads from disk: the settings, the log, the user
// defaults' values, bookmarks, and the text forms inside them. A decode may fail, never crash;
// what decodes must survive being written and read again unchanged; no pair of the settings is
// ever lost; and the log's streaming reader agrees with a reader of the whole document.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "model/BookmarkManager.hpp"
#include "model/ConfigFile.hpp"
#include "model/EventLogReader.hpp"
#include "support/Dates.hpp"
#include "support/FileUrl.hpp"

namespace {

using namespace quillstow;

void expect(bool condition) {
    if (!condition) std::abort();
}

// Decodes `value`; what decodes is read back unchanged, and, nothing having been set since
// reading, forgets no kept value.
template <typename Decoded>
void roundTrip(const json::Value& value, Decoded (*decode)(const json::Value&)) {
    Decoded decoded;
    try {
        decoded = decode(value);
    } catch (const Failure&) {
        return;
    }
    expect(decode(json::read(json::write(toJson(decoded)))) == decoded);
    if constexpr (requires { decoded.keptValues; }) {
        Decoded settled = decoded;
        coding::forgetOverwrittenValues(settled);
        expect(settled == decoded);
    }
}

ConfigFile configFile(const json::Value& value) {
    coding::DecodingNotes notes;
    const ConfigFile file = configFileFromJson(value, &notes);
    // Every entry of the file's list of pairs is read or kept, and written again.
    const std::size_t entries = value["pairs"].size();
    expect(file.pairs.size() + file.unreadablePairs.size() == entries);
    expect(toJson(file)["pairs"].size() == entries);
    return file;
}

// What a reader of the whole document takes, the streaming reader takes too, newest last.
void expectTheLogReadersAgree(const std::string& text, const json::Value& value) {
    std::vector<BackupEvent> whole;
    try {
        whole = eventLogFromJson(value);
    } catch (const Failure&) {
        return;
    }
    for (const std::size_t keep : {std::size_t(0), std::size_t(2), std::size_t(500)}) {
        const auto from = whole.size() > keep ? whole.end() - std::ptrdiff_t(keep) : whole.begin();
        expect(readNewestEvents(text, keep) == std::vector<BackupEvent>(from, whole.end()));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    (void)dates::parseISO8601(text);
    (void)Uuid::parse(text);
    (void)base64::decode(text);
    if (const auto path = fileurls::toPath(text))
        expect(fileurls::toPath(fileurls::fromPath(*path)) == path);
    try {
        BookmarkManager::resolveBookmark(base64::Bytes(text.begin(), text.end()), "/nonexistent",
                                         true);
    } catch (const BackupFailure&) {
    }
    try {
        (void)readNewestEvents(text, 2);
    } catch (const Failure&) {
    }
    json::Value value;
    try {
        value = json::read(text);
    } catch (const Failure&) {
        return 0;
    }
    expectTheLogReadersAgree(text, value);
    roundTrip<ConfigFile>(value, configFile);
    roundTrip<std::vector<BackupEvent>>(value, eventLogFromJson);
    roundTrip<AppConfig>(value, [](const json::Value& v) { return appConfigFromJson(v); });
    roundTrip<BackupPair>(value, [](const json::Value& v) { return backupPairFromJson(v); });
    return 0;
}
