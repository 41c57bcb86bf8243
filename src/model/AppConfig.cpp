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
    json::Value value{
        {"backupInterval", coding::nameOf(backupIntervalNames, config.backupInterval)},
        {"notificationLevel", coding::nameOf(notificationLevelNames, config.notificationLevel)},
        {"launchAtLogin", config.launchAtLogin},
        {"hasCompletedOnboarding", config.hasCompletedOnboarding},
        {"trashReminderEnabled", config.trashReminderEnabled},
        {"bandwidthMode", coding::nameOf(bandwidthModeNames, config.bandwidthMode)},
    };
    config.keptValues.restoreInto(value);
    return value;
}

AppConfig appConfigFromJson(const json::Value& value, coding::DecodingNotes* notes) {
    using namespace coding;
    FieldReader fields(value, "\"appConfig\"", notes);
    const AppConfig fresh;
    AppConfig config;
    config.backupInterval =
        fields.orDefault("backupInterval", fresh.backupInterval, caseOf(backupIntervalNames));
    config.notificationLevel = fields.orDefault("notificationLevel", fresh.notificationLevel,
                                                caseOf(notificationLevelNames));
    config.launchAtLogin = fields.orDefault("launchAtLogin", fresh.launchAtLogin, toBool);
    config.hasCompletedOnboarding =
        fields.orDefault("hasCompletedOnboarding", fresh.hasCompletedOnboarding, toBool);
    // Added in later versions: missing is no fault.
    config.trashReminderEnabled =
        fields.optional("trashReminderEnabled", toBool).value_or(fresh.trashReminderEnabled);
    config.bandwidthMode =
        fields.optional("bandwidthMode", caseOf(bandwidthModeNames)).value_or(fresh.bandwidthMode);
    config.keptValues = fields.kept(toJson(config));
    return config;
}

}  // namespace quillstow
