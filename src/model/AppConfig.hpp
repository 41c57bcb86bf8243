#pragma once

// The global settings and their three enumerations.

#include <cstdint>
#include <optional>
#include <string_view>

#include "model/Coding.hpp"

namespace quillstow {

enum class BackupInterval { thirtyMinutes, hourly, fourHours, manual };
enum class NotificationLevel { errorsOnly, dailySummary, everyBackup, nothing };
enum class BandwidthMode : std::uint8_t { automatic, quiet, full };

inline constexpr coding::EnumNames<BackupInterval, 4> backupIntervalNames{{
    {BackupInterval::thirtyMinutes, "30min"},
    {BackupInterval::hourly, "1hr"},
    {BackupInterval::fourHours, "4hr"},
    {BackupInterval::manual, "manual"},
}};

inline constexpr coding::EnumNames<NotificationLevel, 4> notificationLevelNames{{
    {NotificationLevel::errorsOnly, "errorsOnly"},
    {NotificationLevel::dailySummary, "dailySummary"},
    {NotificationLevel::everyBackup, "everyBackup"},
    {NotificationLevel::nothing, "nothing"},
}};

// The case `auto` of the settings is `automatic` here, auto being a C++ keyword.
inline constexpr coding::EnumNames<BandwidthMode, 3> bandwidthModeNames{{
    {BandwidthMode::automatic, "auto"},
    {BandwidthMode::quiet, "quiet"},
    {BandwidthMode::full, "full"},
}};

// The period of the scheduled timer; nothing for manual.
std::optional<double> timerSeconds(BackupInterval interval);

struct AppConfig {
    BackupInterval backupInterval = BackupInterval::hourly;
    NotificationLevel notificationLevel = NotificationLevel::errorsOnly;
    bool launchAtLogin = true;
    bool hasCompletedOnboarding = false;
    bool trashReminderEnabled = true;
    BandwidthMode bandwidthMode = BandwidthMode::automatic;
    // What the file held that this version can't use, written back with the settings.
    KeptValues keptValues{};

    bool operator==(const AppConfig&) const = default;
};

json::Value toJson(const AppConfig& config);
// Fails only when the value is not an object. A missing, mistyped or unknown value takes its
// fresh value, with a note; what stood there is kept.
AppConfig appConfigFromJson(const json::Value& value, coding::DecodingNotes* notes = nullptr);

}  // namespace quillstow
