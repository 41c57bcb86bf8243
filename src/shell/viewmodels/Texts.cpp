#include "viewmodels/Texts.hpp"

#include <cmath>

#include "support/ByteCount.hpp"

namespace quillstow::shell::texts {

namespace {

constexpr double day = 86400;
// A common year and its twelfth: a year ago to the day reads "1 yr. ago".
constexpr double year = 365 * day;
constexpr double month = year / 12;

std::string count(double value) {
    return std::to_string(static_cast<long long>(std::floor(value)));
}

}  // namespace

std::string shortTimeAgo(double seconds) {
    if (seconds < 60) return "Just now";
    if (seconds < 3600) return count(seconds / 60) + "m ago";
    if (seconds < 86400) return count(seconds / 3600) + "h ago";
    return count(seconds / 86400) + "d ago";
}

std::string abbreviatedTimeAgo(double seconds) {
    if (seconds < 60) return count(std::max(0.0, seconds)) + " sec. ago";
    if (seconds < 3600) return count(seconds / 60) + " min. ago";
    if (seconds < 86400) return count(seconds / 3600) + " hr. ago";
    if (seconds < 7 * day) {
        const std::string days = count(seconds / day);
        return days + (days == "1" ? " day ago" : " days ago");
    }
    if (seconds < month) return count(seconds / (7 * day)) + " wk. ago";
    if (seconds < year) return count(seconds / month) + " mo. ago";
    return count(seconds / year) + " yr. ago";
}

std::string statusSymbol(BackupStatus::Case status) {
    using Case = BackupStatus::Case;
    switch (status) {
        case Case::idle:
        case Case::completed:
            return "externaldrive.badge.checkmark";
        case Case::syncing:
        case Case::scanning:
        case Case::queued:
            return "arrow.triangle.2.circlepath";
        case Case::error:
            return "externaldrive.badge.exclamationmark";
        case Case::destinationUnreachable:
            return "externaldrive.trianglebadge.exclamationmark";
        case Case::paused:
            return "externaldrive.badge.minus";
    }
    return "externaldrive";
}

std::string themeIconName(const std::string& symbol) {
    return symbol + "-symbolic";
}

std::string menuMark(BackupStatus::Case status) {
    using Case = BackupStatus::Case;
    switch (status) {
        case Case::syncing:
        case Case::scanning:
            return "↑";
        case Case::completed:
        case Case::idle:
            return "●";
        case Case::error:
        case Case::destinationUnreachable:
            return "⚠";
        case Case::paused:
            return "○";
        case Case::queued:
            return "◷";
    }
    return "●";
}

std::string eventMark(BackupEvent::EventType type) {
    using Type = BackupEvent::EventType;
    switch (type) {
        case Type::backup:
            return "✓";
        case Type::deletion:
            return "🗑";
        case Type::error:
            return "✗";
        case Type::volumeLost:
            return "⏏";
        case Type::volumeRestored:
            return "↩";
        case Type::verificationFailed:
            return "⚠";
        case Type::integrityChecked:
            return "🛡";
    }
    return "";
}

std::string eventLabel(BackupEvent::EventType type) {
    using Type = BackupEvent::EventType;
    switch (type) {
        case Type::backup:
            return "Backup";
        case Type::deletion:
            return "Cleanup";
        case Type::error:
            return "Failed";
        case Type::volumeLost:
            return "Drive Disconnected";
        case Type::volumeRestored:
            return "Drive Reconnected";
        case Type::verificationFailed:
            return "Files Don't Match";
        case Type::integrityChecked:
            return "Health Check";
    }
    return "";
}

std::string intervalTitle(BackupInterval interval) {
    switch (interval) {
        case BackupInterval::thirtyMinutes:
            return "Every 30 Minutes";
        case BackupInterval::hourly:
            return "Every Hour";
        case BackupInterval::fourHours:
            return "Every 4 Hours";
        case BackupInterval::manual:
            return "Manual Only";
    }
    return "";
}

std::string notificationLevelTitle(NotificationLevel level) {
    switch (level) {
        case NotificationLevel::errorsOnly:
            return "Errors Only";
        case NotificationLevel::dailySummary:
            return "Daily Summary + Errors";
        case NotificationLevel::everyBackup:
            return "Every Backup";
        case NotificationLevel::nothing:
            return "Never";
    }
    return "";
}

std::string rowStatusText(const BackupStatus& status, const std::string* lastBackupAgo) {
    using Case = BackupStatus::Case;
    switch (status.kind()) {
        case Case::syncing:
            return "↑ " + count(status.progress() * 100) + "%";
        case Case::completed:
            return lastBackupAgo ? "✓ " + *lastBackupAgo : "✓ Done";
        case Case::idle:
            return lastBackupAgo ? "✓ " + *lastBackupAgo : "Up to date";
        case Case::error:
            return "⚠ Error";
        case Case::scanning:
            return "Scanning…";
        case Case::destinationUnreachable:
            return "Reconnecting…";
        case Case::paused:
            return "Paused";
        case Case::queued:
            return "Queued";
    }
    return "";
}

std::string redundancyWarning(CopyRedundancy::Case redundancy) {
    using Case = CopyRedundancy::Case;
    switch (redundancy) {
        case Case::noBackup:
            return "This folder isn't being backed up anywhere yet.";
        case Case::onlyCopy:
            return "This is the only copy of these files. The original folder is gone, so if this "
                   "drive stops working they're gone for good.";
        case Case::singleBackup:
            return "There's just one backup of this folder. If this drive stops working, the "
                   "original folder is all you'd have left.";
        case Case::redundant:
            return "";
    }
    return "";
}

std::string redundancySymbol(CopyRedundancy::Case redundancy) {
    using Case = CopyRedundancy::Case;
    switch (redundancy) {
        case Case::noBackup:
        case Case::onlyCopy:
            return "exclamationmark.triangle.fill";
        case Case::singleBackup:
            return "exclamationmark.circle";
        case Case::redundant:
            return "";
    }
    return "";
}

std::string lastBackupLine(double secondsAgo) {
    return "Last backup: " + shortTimeAgo(secondsAgo);
}

std::string destinationLine(const std::string& folderName) {
    return "→ " + folderName;
}

std::string freeSpaceLine(std::int64_t bytes) {
    return formatByteCount(bytes) + " free on destination";
}

std::string offsiteLine(const std::string& folder, const std::string* lastSyncedAgo) {
    return "Offsite copy in " + folder + " — " +
           (lastSyncedAgo ? "last synced " + *lastSyncedAgo : "first sync coming soon");
}

std::string chooseWhereMessage(const std::string& name) {
    return "Choose where \"" + name + "\" should be backed up to";
}

std::string stopBackingUpMessage(const std::string& name) {
    return "Stop backing up \"" + name + "\"?";
}

std::string removeMessage(const std::string& name) {
    return "Remove \"" + name + "\"?";
}

std::string syncedWithMessage(const std::string& provider) {
    return "This folder is synced with " + provider;
}

std::string versionLine(const std::string& version) {
    return "Version " + (version.empty() ? std::string("1.0") : version) + " (Beta)";
}

std::string updateAvailableTitle(const std::string& version) {
    return "Quillstow " + version + " is available";
}

std::string upToDateDetail(const std::string& version) {
    return "Quillstow " + version + " is the newest version available.";
}

const LearnTopic* learnTopics() {
    static constexpr LearnTopic topics[learnTopicCount] = {
        {"shield.checkered", "Safe Copies", "Your files are never half-written.",
         "When Quillstow copies a file, it writes to a temporary file first, then swaps it into "
         "place in one instant. If your computer loses power or the drive is unplugged "
         "mid-copy, the original backup stays intact — you never end up with a corrupted "
         "half-file."},
        {"checkmark.shield", "Copy Verification", "Every file is checked after copying.",
         "After copying each file, Quillstow immediately checks that the copy's size matches the "
         "original. If something went wrong during the copy, Quillstow deletes the bad copy and "
         "tries again on the next backup. Nothing slips through silently."},
        {"waveform.badge.magnifyingglass", "Bit Rot Detection",
         "Catches silent corruption before it's too late.",
         "Files on any drive — hard drive or SSD — can slowly corrupt over time. A single "
         "flipped bit might make a photo unreadable years later. Quillstow creates a unique "
         "fingerprint of every backed-up file, then periodically re-reads your backups and "
         "checks the fingerprints. If a file has silently changed, you'll know before it's too "
         "late to recover."},
        {"bolt.slash", "Disconnect Protection", "Yanking a cable won't destroy your backup.",
         "Quillstow continuously monitors whether your source and backup drives are still "
         "connected. If either disappears mid-backup, Quillstow stops immediately and protects "
         "your existing backups. It won't accidentally delete files just because a drive was "
         "briefly disconnected. When the drive comes back, backups resume automatically."},
        {"tortoise", "Quiet Mode", "Backups never slow down your computer.",
         "When you're actively using your computer — typing, browsing, editing — Quillstow "
         "automatically slows down so you never notice it running. When your computer has been "
         "idle for a couple of minutes, backups speed up to full speed. No configuration "
         "needed."},
        {"battery.25percent", "Battery Awareness", "Won't drain your battery.",
         "Quillstow pauses heavy backups when your computer is on battery below 30%, when power "
         "saver mode is on, or when your computer is running hot. Backups resume automatically "
         "when you plug in or conditions improve."},
        {"doc.on.doc", "Large File Handling", "Videos and big files are handled with care.",
         "Files over 64 MB (like videos, disk images, or project files) are copied in small "
         "chunks with progress tracking. This means you can cancel mid-copy without waiting for "
         "a huge file to finish, and Quillstow shows you exactly how far along each large file "
         "is. All metadata — permissions, extended attributes, creation dates — is preserved."},
        {"trash.slash", "Safe Deletion", "Deleted files aren't gone immediately.",
         "When you delete a file from your source folder, Quillstow never deletes the backup "
         "copy. Instead, it moves it to a dated trash folder where it stays until you decide to "
         "remove it. If you accidentally deleted something, you can always get it back. "
         "Quillstow also has a safety guard that refuses to archive files if an unusually large "
         "number would be removed — protecting against accidental mass deletion."},
        {"folder.badge.questionmark", "Path Safety", "We won't let you back up to the wrong place.",
         "Quillstow checks every destination you choose and rejects unsafe locations — system "
         "folders, your home folder root, or folders inside your source. It also warns you if "
         "you pick a cloud-synced folder (like iCloud Drive or Dropbox), because cloud sync can "
         "interfere with backup reliability."},
    };
    return topics;
}

std::string goesTo(const std::string& destinationPreview) {
    return "Goes to " + destinationPreview;
}

std::string filingTitle(const std::string& name) {
    return "Filing \"" + name + "\"…";
}

}  // namespace quillstow::shell::texts
