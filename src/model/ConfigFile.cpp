#include "model/ConfigFile.hpp"

namespace quillstow {

json::Value toJson(const ConfigFile& file) {
    json::Value pairs = json::Value::array();
    for (const auto& pair : file.pairs)
        pairs.push_back(toJson(pair));
    for (const auto& pair : file.unreadablePairs)
        pairs.push_back(pair);
    json::Value value{{"pairs", std::move(pairs)}, {"appConfig", toJson(file.appConfig)}};
    file.keptValues.restoreInto(value);
    return value;
}

ConfigFile configFileFromJson(const json::Value& value, coding::DecodingNotes* notes) {
    using namespace coding;
    FieldReader fields(value, "the settings", notes);
    ConfigFile file;
    const Value& pairs = fields.required(
        "pairs",
        [](const Value& pairs, const char*) -> auto& { return array(pairs, "\"pairs\""); });
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const std::string where = "pair " + std::to_string(i + 1);
        try {
            file.pairs.push_back(backupPairFromJson(pairs[i], notes, where));
        } catch (const Failure& failure) {
            file.unreadablePairs.push_back(pairs[i]);
            if (notes) {
                notes->push_back(where + ": kept as it stands, unread: " +
                                 json::decodingReason(failure.error()));
            }
        }
    }
    file.appConfig = fields.orDefault("appConfig", AppConfig{}, [&](const Value& config, auto) {
        return appConfigFromJson(config, notes);
    });
    file.keptValues = fields.kept(toJson(file));
    return file;
}

json::Value toJson(const std::vector<BackupEvent>& events) {
    json::Value array = json::Value::array();
    for (const auto& event : events)
        array.push_back(toJson(event));
    return array;
}

std::vector<BackupEvent> eventLogFromJson(const json::Value& value) {
    std::vector<BackupEvent> events;
    for (const auto& event : coding::array(value, "the log")) {
        events.push_back(backupEventFromJson(event));
    }
    return events;
}

}  // namespace quillstow
