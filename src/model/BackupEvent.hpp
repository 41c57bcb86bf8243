#pragma once

// One entry of the event log.

#include <cstdint>
#include <optional>
#include <string>

#include "model/Coding.hpp"

namespace quillstow {

struct BackupEvent {
    enum class EventType {
        backup,
        deletion,  // part of the file format; nothing writes it, every reader accepts it
        error,
        volumeLost,
        volumeRestored,
        verificationFailed,
        integrityChecked,
    };

    Uuid id;
    Uuid pairId;
    Date timestamp;
    EventType type = EventType::backup;
    std::int64_t filesAffected = 0;
    std::int64_t bytesTransferred = 0;
    double duration = 0;
    std::optional<std::string> message;

    bool operator==(const BackupEvent&) const = default;
};

inline constexpr coding::EnumNames<BackupEvent::EventType, 7> eventTypeNames{{
    {BackupEvent::EventType::backup, "backup"},
    {BackupEvent::EventType::deletion, "deletion"},
    {BackupEvent::EventType::error, "error"},
    {BackupEvent::EventType::volumeLost, "volumeLost"},
    {BackupEvent::EventType::volumeRestored, "volumeRestored"},
    {BackupEvent::EventType::verificationFailed, "verificationFailed"},
    {BackupEvent::EventType::integrityChecked, "integrityChecked"},
}};

json::Value toJson(const BackupEvent& event);
BackupEvent backupEventFromJson(const json::Value& value);

}  // namespace quillstow
