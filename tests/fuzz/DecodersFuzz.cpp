// libFuzzer target for everything the program reads from disk: the settings, the log, the user
// defaults' values, bookmarks, and the text forms inside them. A decode may fail, never crash;
// and what decodes must survive being written and read again unchanged.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "model/BookmarkManager.hpp"
#include "model/ConfigFile.hpp"
#include "support/Dates.hpp"
#include "support/FileUrl.hpp"

namespace {

using namespace quillstow;

template <typename Decoded, typename Decode>
void roundTrip(const json::Value& value, Decode decode) {
    Decoded decoded;
    try {
        decoded = decode(value);
    } catch (const Failure&) {
        return;
    }
    const Decoded again = decode(json::read(json::write(toJson(decoded))));
    if (!(again == decoded)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);

    (void)dates::parseISO8601(text);
    (void)Uuid::parse(text);
    (void)base64::decode(text);
    if (const auto path = fileurls::toPath(text)) {
        if (fileurls::toPath(fileurls::fromPath(*path)) != path) std::abort();
    }
    try {
        BookmarkManager::resolveBookmark(base64::Bytes(text.begin(), text.end()), "/nonexistent",
                                         true);
    } catch (const BackupFailure&) {
    }

    json::Value value;
    try {
        value = json::read(text);
    } catch (const Failure&) {
        return 0;
    }
    roundTrip<ConfigFile>(value, [](const json::Value& v) { return configFileFromJson(v); });
    roundTrip<std::vector<BackupEvent>>(value,
                                        [](const json::Value& v) { return eventLogFromJson(v); });
    roundTrip<AppConfig>(value, [](const json::Value& v) { return appConfigFromJson(v); });
    roundTrip<BackupPair>(value, [](const json::Value& v) { return backupPairFromJson(v); });
    return 0;
}
