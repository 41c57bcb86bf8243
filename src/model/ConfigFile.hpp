#pragma once

// The documents of the settings folder: "config.json" holds the pairs and the settings,
// "backup-log.json" the events, oldest first.

#include <vector>

#include "model/AppConfig.hpp"
#include "model/BackupEvent.hpp"
#include "model/BackupPair.hpp"

namespace quillstow {

struct ConfigFile {
    std::vector<BackupPair> pairs;
    AppConfig appConfig;

    bool operator==(const ConfigFile&) const = default;
};

json::Value toJson(const ConfigFile& file);
// Both keys are required; one bad pair fails the whole document.
ConfigFile configFileFromJson(const json::Value& value);

json::Value toJson(const std::vector<BackupEvent>& events);
std::vector<BackupEvent> eventLogFromJson(const json::Value& value);

}  // namespace quillstow
