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
    // Pairs this version can't read at all, as they stood; written after the others, so that
    // no pair is ever lost from the file.
    std::vector<json::Value> unreadablePairs{};
    // Keys of the document this version doesn't know, and an appConfig it can't read.
    KeptValues keptValues{};

    bool operator==(const ConfigFile&) const = default;
};

json::Value toJson(const ConfigFile& file);
// Fails only when the document is not an object with a list of pairs. Each pair is read on its
// own, and an odd value of one costs nothing else; `notes` gets what could not be used.
ConfigFile configFileFromJson(const json::Value& value, coding::DecodingNotes* notes = nullptr);

json::Value toJson(const std::vector<BackupEvent>& events);
std::vector<BackupEvent> eventLogFromJson(const json::Value& value);

}  // namespace quillstow
