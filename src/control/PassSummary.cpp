#include "control/PassSummary.hpp"

#include <array>
#include <string_view>

#include "model/Tips.hpp"

namespace quillstow {

namespace {

using Type = BackupEvent::EventType;

std::string counted(std::int64_t count, const char* singular, const char* plural) {
    return std::to_string(count) + " " + (count == 1 ? singular : plural);
}

double secondsBetween(Date earlier, Date later) {
    return std::chrono::duration<double>(later - earlier).count();
}

// Names inside the bundles and packages that older exclusion rules passed over.
constexpr std::array<std::string_view, 13> packageMarkers{
    ".app/",          ".rtfd/",       ".framework/",    ".bundle/", ".xcodeproj/",
    ".xcworkspace/",  ".playground/", ".pkg/",          ".mpkg/",   ".photoslibrary/",
    ".musiclibrary/", ".tvlibrary/",  ".imovielibrary/"};

int packageFiles(const std::vector<std::string>& relativePaths) {
    int count = 0;
    for (const auto& path : relativePaths) {
        for (const auto marker : packageMarkers) {
            if (path.find(marker) != std::string::npos) {
                ++count;
                break;
            }
        }
    }
    return count;
}

void tell(PassSummary& summary, Notice::Kind kind, const std::string& pairName,
          std::optional<std::string> message, std::int64_t count = 0) {
    summary.notices.push_back(Notice{kind, pairName, std::move(message), count});
}

void log(PassSummary& summary, Type type, std::optional<std::string> message) {
    summary.events.push_back(PassEvent{type, std::move(message)});
}

void recordThePass(PassSummary& summary, const BackupResult& result, Date now) {
    summary.pair.lastBackupAt = now;
    summary.pair.lastBackupFileCount = result.copiedFiles;
    summary.pair.lastBackupByteCount = result.bytesTransferred;
    std::optional<std::string> message;
    if (result.abortedDueToVolumeLoss) {
        message =
            "Backup aborted — a volume disconnected mid-backup. Your existing backups are safe.";
    } else if (!result.errors.empty()) {
        message =
            counted(std::int64_t(result.errors.size()), "file", "files") + " couldn't be copied.";
    }
    summary.events.push_back(PassEvent{result.errors.empty() ? Type::backup : Type::error,
                                       std::move(message), result.copiedFiles,
                                       result.bytesTransferred, result.duration});
}

// The catch-up message, the profile suggestion and the files an editor held.
void noteWhatThePassFound(PassSummary& summary, const AfterPass& pass, const BackupPair& pair) {
    const BackupResult& result = pass.result;
    // Below the threshold nothing is stored, so the next pass counts afresh.
    if (!pass.catchUpGiven && packageFiles(result.copiedRelativePaths) >= catchUpThreshold) {
        log(summary, Type::backup,
            "Found app bundles and document packages that weren't backed up before — catching "
            "up now. This is a one-time boost and will only happen once.");
        summary.givesCatchUp = true;
    }
    if (!pair.didSuggestProfile && result.recommendedProfile != BackupProfile::standard) {
        summary.suggestion = {result.recommendedProfile, result.approximateSourceBytes};
        summary.pair.didSuggestProfile = true;
    }
    for (const auto& [editor, count] : result.filesDeferredByEditor) {
        if (count < 1) continue;
        log(summary, Type::backup,
            "Skipped " + counted(count, "file", "files") + " currently being edited in " + editor +
                " — they'll back up after you close it.");
    }
}

void reportTheSample(PassSummary& summary, const AfterPass& pass, const BackupPair& pair) {
    if (!pass.sample) return;
    const IntegrityResult& checked = pass.sample->result;
    if (checked.corrupted.empty()) {
        if (checked.verified >= 1) log(summary, Type::integrityChecked, pass.sample->coverage);
        return;
    }
    // Files that can't be read because their drive went are not damaged.
    if (pass.destinationLeft) return;
    const auto n = std::int64_t(checked.corrupted.size());
    const std::string message =
        n == 1 ? "1 file on the backup drive may have been damaged. It's worth copying it again."
               : std::to_string(n) +
                     " files on the backup drive may have been damaged. It's worth copying them "
                     "again.";
    log(summary, Type::verificationFailed, message);
    tell(summary, Notice::Kind::error, pair.name, message);
}

void reportTheSizes(PassSummary& summary, const AfterPass& pass, const BackupPair& pair) {
    if (pass.sourcesChanged > 0) {
        // Not a fault: the watcher has heard the change, and the next pass copies it.
        log(summary, Type::backup,
            pass.sourcesChanged == 1
                ? "1 file changed while it was being backed up — it'll back up again on the next "
                  "pass."
                : std::to_string(pass.sourcesChanged) +
                      " files changed while they were being backed up — they'll back up again on "
                      "the next pass.");
    }
    if (pass.copiesFailed > 0) {
        const std::string message =
            counted(pass.copiesFailed, "file", "files") + " failed verification after copying.";
        log(summary, Type::verificationFailed, message);
        tell(summary, Notice::Kind::error, pair.name, message);
    }
}

BackupStatus reportTheOutcome(PassSummary& summary, const AfterPass& pass, const BackupPair& pair) {
    const BackupResult& result = pass.result;
    const int errorCount = int(result.errors.size());
    if (errorCount > 0) {
        const int total = result.copiedFiles + errorCount;
        tell(summary, Notice::Kind::error, pair.name,
             std::to_string(errorCount) + " of " + std::to_string(total) +
                 " files couldn't be backed up.");
        return BackupStatus::error(BackupError::partialFailure(errorCount, total));
    }
    const auto tip = tipAt(pass.tipCounter, result.copiedFiles,
                           result.bytesTransferred > largeCopyBytes, true, pass.wasThrottling);
    summary.tipCounter = pass.tipCounter + 1;
    std::optional<std::string> message;
    if (tip) message = completionMessage(result.copiedFiles, tip);
    tell(summary, Notice::Kind::backupComplete, pair.name, message, result.copiedFiles);
    return BackupStatus::completed(result.copiedFiles, result.duration);
}

void remindOfTheTrash(PassSummary& summary, const AfterPass& pass) {
    if (!pass.trashSize || *pass.trashSize < trashReminderThreshold) return;
    tell(summary, Notice::Kind::trashReminder, "", std::nullopt, *pass.trashSize);
}

bool isOffsiteDue(const BackupPair& pair, Date now) {
    if (!pair.offsiteURL) return false;
    return !pair.lastOffsiteAt || secondsBetween(*pair.lastOffsiteAt, now) >= offsitePeriod;
}

}  // namespace

void PairFields::applyTo(BackupPair& pair) const {
    if (lastBackupAt) pair.lastBackupAt = lastBackupAt;
    if (lastBackupFileCount) pair.lastBackupFileCount = *lastBackupFileCount;
    if (lastBackupByteCount) pair.lastBackupByteCount = *lastBackupByteCount;
    if (lastOffsiteAt) pair.lastOffsiteAt = lastOffsiteAt;
    if (lastOffsiteFileCount) pair.lastOffsiteFileCount = *lastOffsiteFileCount;
    if (didSuggestProfile) pair.didSuggestProfile = true;
}

PassSummary summarize(const AfterPass& pass, const BackupPair& pair, Date now) {
    PassSummary summary;
    const BackupResult& result = pass.result;
    recordThePass(summary, result, now);
    // Whoever stopped the run tells what happened: a pulled drive, a time limit.
    if (pass.wasStopped) return summary;
    if (result.abortedDueToVolumeLoss) {
        summary.status = BackupStatus::error(BackupError::partialFailure(0, result.copiedFiles));
        tell(summary, Notice::Kind::error, pair.name,
             "Backup aborted — a drive disconnected. Your backups are safe; will retry later.");
        remindOfTheTrash(summary, pass);
        return summary;
    }
    noteWhatThePassFound(summary, pass, pair);
    reportTheSample(summary, pass, pair);
    if (pass.destinationLeft) {
        // Gone after the copy: every copy would look bad, and none is.
        summary.status = BackupStatus::destinationUnreachable();
        log(summary, Type::volumeLost, std::nullopt);
        tell(summary, Notice::Kind::volumeLost, pair.name, std::nullopt);
        return summary;
    }
    reportTheSizes(summary, pass, pair);
    summary.status = reportTheOutcome(summary, pass, pair);
    remindOfTheTrash(summary, pass);
    summary.offsiteDue = result.errors.empty() && isOffsiteDue(pair, now);
    return summary;
}

PassSummary summarize(const OffsiteSyncResult& result, Date now) {
    PassSummary summary;
    summary.pair.lastOffsiteAt = now;
    summary.pair.lastOffsiteFileCount = result.copiedFiles;
    if (result.abortedDueToFolderLoss) {
        log(summary, Type::error,
            "Offsite copy paused — the cloud folder became unavailable. Will retry next week.");
    } else if (!result.errors.empty()) {
        log(summary, Type::error,
            "Offsite copy completed with " + std::to_string(result.errors.size()) + " error(s).");
    } else if (result.copiedFiles > 0) {
        log(summary, Type::backup,
            "Offsite copy updated — " + counted(result.copiedFiles, "file", "files") +
                " synced to your cloud folder.");
    }
    return summary;
}

}  // namespace quillstow
