#include "model/ConfigFile.hpp"

namespace quillstow {

json::Value toJson(const ConfigFile& file) {
    json::Value pairs = json::Value::array();
    for (const auto& pair : file.pairs)
        pairs.push_back(toJson(pair));
    return json::Value{{"pairs", std::move(pairs)}, {"appConfig", toJson(file.appConfig)}};
}

ConfigFile configFileFromJson(const json::Value& value) {
    using namespace coding;
    const Value& source = object(value, "the settings");
    ConfigFile file;
    for (const auto& pair : array(required(source, "pairs"), "\"pairs\"")) {
        file.pairs.push_back(backupPairFromJson(pair));
    }
    file.appConfig = appConfigFromJson(required(source, "appConfig"));
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
