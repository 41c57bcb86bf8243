#include "model/BackupEvent.hpp"

namespace quillstow {

json::Value toJson(const BackupEvent& event) {
    json::Value value{
        {"id", event.id.text()},
        {"pairId", event.pairId.text()},
        {"timestamp", coding::fromDate(event.timestamp)},
        {"type", coding::nameOf(eventTypeNames, event.type)},
        {"filesAffected", event.filesAffected},
        {"bytesTransferred", event.bytesTransferred},
        {"duration", event.duration},
    };
    if (event.message) value["message"] = *event.message;
    return value;
}

BackupEvent backupEventFromJson(const json::Value& value) {
    using namespace coding;
    const Value& source = object(value, "an event");
    BackupEvent event;
    event.id = toUuid(required(source, "id"), "id");
    event.pairId = toUuid(required(source, "pairId"), "pairId");
    event.timestamp = toDate(required(source, "timestamp"), "timestamp");
    event.type = toEnum(eventTypeNames, required(source, "type"), "type");
    event.filesAffected = toInteger(required(source, "filesAffected"), "filesAffected");
    event.bytesTransferred = toInteger(required(source, "bytesTransferred"), "bytesTransferred");
    event.duration = toNumber(required(source, "duration"), "duration");
    if (const Value* message = optional(source, "message")) {
        event.message = toString(*message, "message");
    }
    return event;
}

}  // namespace quillstow
