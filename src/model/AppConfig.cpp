#include "model/AppConfig.hpp"

namespace quillstow {

std::optional<double> timerSeconds(BackupInterval interval) {
    switch (interval) {
        case BackupInterval::thirtyMinutes:
            return 1800.0;
        case BackupInterval::hourly:
            return 3600.0;
        case BackupInterval::fourHours:
            return 14400.0;
        case BackupInterval::manual:
            return std::nullopt;
    }
    return std::nullopt;
}

json::Value toJson(const AppConfig& config) {
    return json::Value{
        {"backupInterval", coding::nameOf(backupIntervalNames, config.backupInterval)},
        {"notificationLevel", coding::nameOf(notificationLevelNames, config.notificationLevel)},
        {"launchAtLogin", config.launchAtLogin},
        {"hasCompletedOnboarding", config.hasCompletedOnboarding},
        {"trashReminderEnabled", config.trashReminderEnabled},
        {"bandwidthMode", coding::nameOf(bandwidthModeNames, config.bandwidthMode)},
    };
}

AppConfig appConfigFromJson(const json::Value& value) {
    using namespace coding;
    const Value& source = object(value, "appConfig");
    AppConfig config;
    config.backupInterval =
        toEnum(backupIntervalNames, required(source, "backupInterval"), "backupInterval");
    config.notificationLevel =
        toEnum(notificationLevelNames, required(source, "notificationLevel"), "notificationLevel");
    config.launchAtLogin = toBool(required(source, "launchAtLogin"), "launchAtLogin");
    config.hasCompletedOnboarding =
        toBool(required(source, "hasCompletedOnboarding"), "hasCompletedOnboarding");
    if (const Value* reminder = optional(source, "trashReminderEnabled")) {
        config.trashReminderEnabled = toBool(*reminder, "trashReminderEnabled");
    }
    if (const Value* mode = optional(source, "bandwidthMode")) {
        config.bandwidthMode = toEnum(bandwidthModeNames, *mode, "bandwidthMode");
    }
    return config;
}

}  // namespace quillstow
