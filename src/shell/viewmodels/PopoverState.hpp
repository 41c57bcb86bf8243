#pragma once

// What the popover shows, as plain data: one row per pair in the settings' order, the empty
// state, and the footer. Made from the status manager's state at a moment `now`, so that a
// test reads the same texts the view shows.
//
// Pure; main thread, where the status manager lives.

#include <optional>
#include <string>
#include <vector>

#include "control/StatusManager.hpp"

namespace quillstow::shell {

struct PairRowState {
    Uuid id;
    std::string name;
    BackupStatus::Case status = BackupStatus::Case::idle;
    std::string statusText;
    // The tooltip of the status and the error panel, for error and destinationUnreachable.
    bool offersErrorDetail = false;
    std::string errorDetail;
    std::string destinationLine;
    std::string destinationPath;
    std::optional<std::string> freeSpaceLine;
    std::optional<std::string> offsiteLine;
    std::optional<std::string> redundancyWarning;
    std::string redundancySymbol;
    bool isEnabled = true;
    // Syncing, scanning or queued: the row shows its pulsing ring.
    bool isWorking = false;

    bool operator==(const PairRowState&) const = default;
};

struct PopoverState {
    std::vector<PairRowState> rows;
    // "Last backup: …", or nothing when no pair has backed up.
    std::optional<std::string> lastBackupLine;
    // Whether the footer offers "Pause All" (else "Resume All").
    bool offersPauseAll = false;

    bool operator==(const PopoverState&) const = default;
};

// Below this free space on a destination a row says how much is left.
inline constexpr std::int64_t lowFreeSpace = 1073741824;

PopoverState popoverState(const StatusManager& manager, Date now);

}  // namespace quillstow::shell
