#include "viewmodels/PopoverState.hpp"

#include <algorithm>

#include "viewmodels/Texts.hpp"

namespace quillstow::shell {

namespace {

double secondsBetween(Date earlier, Date later) {
    return std::chrono::duration<double>(later - earlier).count();
}

std::string lastComponent(const std::filesystem::path& path) {
    const auto name = path.filename().string();
    return name.empty() ? path.parent_path().filename().string() : name;
}

BackupStatus statusOf(const StatusManager& manager, const Uuid& id) {
    const auto found = manager.engines().find(id);
    return found == manager.engines().end() ? BackupStatus::idle() : found->second->status();
}

std::string errorDetailOf(const BackupStatus& status) {
    if (!status.backupError()) return status.displayText();
    const BackupError& error = *status.backupError();
    const std::string recovery = error.recoverySuggestion();
    return error.errorDescription() + (recovery.empty() ? "" : "\n" + recovery);
}

PairRowState rowOf(const StatusManager& manager, const BackupPair& pair, Date now) {
    using Case = BackupStatus::Case;
    const BackupStatus status = statusOf(manager, pair.id);
    PairRowState row;
    row.id = pair.id;
    row.name = pair.name;
    row.status = status.kind();
    std::optional<std::string> ago;
    if (pair.lastBackupAt) ago = texts::shortTimeAgo(secondsBetween(*pair.lastBackupAt, now));
    row.statusText = texts::rowStatusText(status, ago ? &*ago : nullptr);
    row.offersErrorDetail =
        status.kind() == Case::error || status.kind() == Case::destinationUnreachable;
    if (row.offersErrorDetail) row.errorDetail = errorDetailOf(status);
    row.destinationLine = texts::destinationLine(lastComponent(pair.destinationURL));
    row.destinationPath = pair.destinationURL.string();
    const auto engine = manager.engines().find(pair.id);
    if (engine != manager.engines().end()) {
        const auto free = engine->second->destinationFreeSpace();
        if (free && *free < lowFreeSpace) row.freeSpaceLine = texts::freeSpaceLine(*free);
    }
    if (pair.offsiteURL) {
        std::optional<std::string> synced;
        if (pair.lastOffsiteAt)
            synced = texts::shortTimeAgo(secondsBetween(*pair.lastOffsiteAt, now));
        row.offsiteLine =
            texts::offsiteLine(lastComponent(*pair.offsiteURL), synced ? &*synced : nullptr);
    }
    const auto redundancy = manager.copyRedundancy().find(pair.id);
    if (redundancy != manager.copyRedundancy().end() &&
        redundancy->second.kind != CopyRedundancy::Case::redundant) {
        row.redundancyWarning = texts::redundancyWarning(redundancy->second.kind);
        row.redundancySymbol = texts::redundancySymbol(redundancy->second.kind);
    }
    row.isEnabled = pair.isEnabled;
    row.isWorking = status.kind() == Case::syncing || status.kind() == Case::scanning ||
                    status.kind() == Case::queued;
    return row;
}

}  // namespace

PopoverState popoverState(const StatusManager& manager, Date now) {
    PopoverState state;
    std::optional<Date> latest;
    for (const BackupPair& pair : manager.configStore().pairs()) {
        state.rows.push_back(rowOf(manager, pair, now));
        if (pair.lastBackupAt && (!latest || *pair.lastBackupAt > *latest))
            latest = pair.lastBackupAt;
    }
    if (latest) state.lastBackupLine = texts::lastBackupLine(secondsBetween(*latest, now));
    state.offersPauseAll =
        std::any_of(manager.engines().begin(), manager.engines().end(), [](const auto& entry) {
            return entry.second->status().kind() != BackupStatus::Case::paused;
        });
    return state;
}

}  // namespace quillstow::shell
