#pragma once

// What follows a pass, decided in one place: from the pass's result, what the engine read once
// it had ended, the pair and the time, the status to show, the events for the log, what the
// user is told and the fields of the pair to change. The engine does the reading before and
// posts what these functions return; they touch nothing themselves.
//
// Pure functions: any thread.

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "control/EngineStages.hpp"
#include "model/BackupEvent.hpp"
#include "model/BackupPair.hpp"
#include "model/BackupStatus.hpp"
#include "model/Results.hpp"
#include "support/Dates.hpp"

namespace quillstow {

// An event of the log without its identity: the engine gives it an id, the pair and the time.
struct PassEvent {
    BackupEvent::EventType type = BackupEvent::EventType::backup;
    std::optional<std::string> message;
    std::int64_t filesAffected = 0;
    std::int64_t bytesTransferred = 0;
    double duration = 0;

    bool operator==(const PassEvent&) const = default;
};

// One call on the notifier.
struct Notice {
    enum class Kind { error, trashReminder, volumeLost, backupComplete };
    Kind kind = Kind::error;
    std::string pairName;
    std::optional<std::string> message;
    // The files of a completed pass, the bytes of a trash reminder.
    std::int64_t count = 0;

    bool operator==(const Notice&) const = default;
};

// The fields of a pair that change; what is absent stays as the store holds it.
struct PairFields {
    std::optional<Date> lastBackupAt;
    std::optional<std::int64_t> lastBackupFileCount;
    std::optional<std::int64_t> lastBackupByteCount;
    std::optional<Date> lastOffsiteAt;
    std::optional<std::int64_t> lastOffsiteFileCount;
    bool didSuggestProfile = false;

    bool operator==(const PairFields&) const = default;
    void applyTo(BackupPair& pair) const;
};

// What the engine read once the pass had ended and the hashes were kept up.
struct AfterPass {
    BackupResult result;
    // The run was stopped while the hashes were kept up: the pass is recorded, nothing told.
    bool wasStopped = false;
    // The drive is not there any more, or the pair's folder has gone.
    bool destinationLeft = false;
    std::optional<SampleCheck> sample;
    // Copies whose size isn't their source's: the copy at fault, or the source changed since.
    std::int64_t copiesFailed = 0;
    std::int64_t sourcesChanged = 0;
    std::optional<std::int64_t> trashSize;
    // The pair's one-time catch-up message was given on an earlier pass.
    bool catchUpGiven = false;
    bool wasThrottling = false;
    // The rotation of the tips, as the user defaults hold it.
    std::int64_t tipCounter = 0;
};

struct PassSummary {
    std::optional<BackupStatus> status;
    std::vector<PassEvent> events;
    std::vector<Notice> notices;
    PairFields pair;
    // The profile to suggest, once per pair, with the source's size.
    std::optional<std::pair<BackupProfile, std::int64_t>> suggestion;
    bool givesCatchUp = false;
    // The tip counter's next value, when a completion was told.
    std::optional<std::int64_t> tipCounter;
    bool offsiteDue = false;
};

inline constexpr std::int64_t trashReminderThreshold = 1073741824;
inline constexpr int catchUpThreshold = 10;
inline constexpr std::int64_t largeCopyBytes = 67108864;
inline constexpr double offsitePeriod = 604800.0;

PassSummary summarize(const AfterPass& pass, const BackupPair& pair, Date now);

// The weekly offsite copy's record and event.
PassSummary summarize(const OffsiteSyncResult& result, Date now);

}  // namespace quillstow
