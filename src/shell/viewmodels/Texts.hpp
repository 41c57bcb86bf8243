#pragma once

// Every text the tray application shows, in one place, with the words a Linux user reads
// ("Show in File Manager", "system tray", "your computer"). The core's own texts (errors,
// notifications, tips) live beside the code that decides them and follow the same words.
//
// Pure; any thread.

#include <cstdint>
#include <string>

#include "archive/RestoreTexts.hpp"
#include "control/CopyRedundancy.hpp"
#include "model/AppConfig.hpp"
#include "model/BackupEvent.hpp"
#include "model/BackupStatus.hpp"

namespace quillstow::shell::texts {

inline constexpr const char* applicationName = "Quillstow";
inline constexpr const char* applicationId = "io.quillstow.Quillstow";

// "Just now", "{n}m ago", "{n}h ago", "{n}d ago", counts rounded down.
std::string shortTimeAgo(double seconds);
// The largest whole unit, rounded down: "5 sec. ago", "3 min. ago", "2 hr. ago", "1 day ago",
// "4 days ago", "3 wk. ago", "2 mo. ago", "1 yr. ago". A year is 365 days and a month its
// twelfth, so that the text needs no calendar.
std::string abbreviatedTimeAgo(double seconds);

// The icon of the tray for the one status of every pair, named after its symbol.
std::string statusSymbol(BackupStatus::Case status);
// The theme name of the icon of a symbol: "{symbol}-symbolic".
std::string themeIconName(const std::string& symbol);

// The mark of a pair in the menu: "↑", "●", "⚠", "○", "◷".
std::string menuMark(BackupStatus::Case status);
std::string eventMark(BackupEvent::EventType type);
std::string eventLabel(BackupEvent::EventType type);
std::string intervalTitle(BackupInterval interval);
std::string notificationLevelTitle(NotificationLevel level);

// The row's status line; `lastBackupAgo` is the short time-ago of the last backup, if any.
std::string rowStatusText(const BackupStatus& status, const std::string* lastBackupAgo);
std::string redundancyWarning(CopyRedundancy::Case redundancy);
// "exclamationmark.triangle.fill", "exclamationmark.circle", or "" for none.
std::string redundancySymbol(CopyRedundancy::Case redundancy);

// Menu.
inline constexpr const char* openQuillstow = "Open Quillstow";
inline constexpr const char* backUpAllNow = "Back Up All Now";
inline constexpr const char* noBackupsConfigured = "No backups configured";
inline constexpr const char* addFolder = "Add Folder…";
inline constexpr const char* fileAFinishedProject = "File a Finished Project…";
inline constexpr const char* recentActivity = "Recent Activity";
inline constexpr const char* noActivityYet = "No activity yet";
inline constexpr const char* clearHistory = "Clear History";
inline constexpr const char* settings = "Settings";
inline constexpr const char* backupFrequency = "Backup Frequency";
inline constexpr const char* notifications = "Notifications";
inline constexpr const char* launchAtLogin = "Launch at Login";
inline constexpr const char* trashCleanupReminders = "Trash Cleanup Reminders";
inline constexpr const char* autoCheckForUpdates = "Auto-check for Updates";
inline constexpr const char* checkForUpdatesNow = "Check for Updates Now";
inline constexpr const char* howQuillstowWorks = "How Quillstow Works";
inline constexpr const char* aboutQuillstow = "About Quillstow";
inline constexpr const char* quitQuillstow = "Quit Quillstow";
inline constexpr const char* backUpNow = "Back Up Now";
inline constexpr const char* pause = "Pause";
inline constexpr const char* resume = "Resume";
inline constexpr const char* changeDestination = "Change Destination…";
inline constexpr const char* showInFileManager = "Show in File Manager";
inline constexpr const char* removeThisBackup = "Remove This Backup…";
inline constexpr const char* restoreFiles = "Restore Files…";
inline constexpr const char* redoSmartSetup = "Redo Smart Setup…";
// The recovery window's own item, worded beside that window's texts.
inline constexpr const char* recoverDeletedFiles = restoretext::recoveryMenuItem.data();
inline constexpr const char* deletedPair = "(Deleted)";

// Popover.
inline constexpr const char* addBackupName = "Add backup";
inline constexpr const char* addBackupTooltip = "Add a new backup";
inline constexpr const char* settingsTooltip = "Settings";
inline constexpr const char* emptyTitle = "Nothing's being backed up yet.";
inline constexpr const char* emptyHint = "Click + to add your first folder.";
inline constexpr const char* pauseAll = "Pause All";
inline constexpr const char* pauseAllTooltip = "Pause all backups";
inline constexpr const char* resumeAll = "Resume All";
inline constexpr const char* resumeAllTooltip = "Resume all backups";
inline constexpr const char* backUpAllTooltip = "Back up all pairs now";
inline constexpr const char* tapForDetails = "Tap for details";
inline constexpr const char* relink = "Relink";
std::string lastBackupLine(double secondsAgo);
std::string destinationLine(const std::string& folderName);
std::string freeSpaceLine(std::int64_t bytes);
std::string offsiteLine(const std::string& folder, const std::string* lastSyncedAgo);

// Dialogs and alerts.
inline constexpr const char* chooseNewDestination = "Choose New Destination";
inline constexpr const char* chooseDestination = "Choose Destination";
std::string chooseWhereMessage(const std::string& name);
std::string stopBackingUpMessage(const std::string& name);
inline constexpr const char* existingFilesStay = "Your existing backup files won't be deleted.";
inline constexpr const char* stopBackup = "Stop Backup";
inline constexpr const char* cancel = "Cancel";
std::string removeMessage(const std::string& name);
inline constexpr const char* removeInformative =
    "This stops backing up this folder. Your existing backup files won't be deleted.";
inline constexpr const char* remove = "Remove";
std::string syncedWithMessage(const std::string& provider);
inline constexpr const char* chooseAnotherFolder = "Choose Another Folder";
inline constexpr const char* useAnyway = "Use Anyway";
inline constexpr const char* couldNotChangeDestination = "The destination couldn't be changed";

// Windows.
inline constexpr const char* aboutTitle = "About Quillstow";
inline constexpr const char* learnTitle = "How Quillstow Works";
inline constexpr const char* aboutTagline = "Keep your folders backed up, automatically.";
// "Version {version} (Beta)".
std::string versionLine(const std::string& version);
inline constexpr const char* learnHeading = "How Quillstow Keeps Your Files Safe";
inline constexpr const char* learnHint = "Tap any topic to learn more.";

struct LearnTopic {
    const char* icon;
    const char* title;
    const char* subtitle;
    const char* explanation;
};
inline constexpr int learnTopicCount = 9;
const LearnTopic* learnTopics();

// The update reminder of a source build.
inline constexpr const char* updateNotificationId = "quillstow-update";
inline constexpr const char* openReleasePageKey = "open-release-page";
inline constexpr const char* openReleasePage = "Open release page";
// "Quillstow {version} is available".
std::string updateAvailableTitle(const std::string& version);
inline constexpr const char* updateAvailableBody =
    "A newer version of Quillstow is out. Its release page says what changed and how to get it.";
inline constexpr const char* upToDate = "You're up to date";
// "Quillstow {version} is the newest version available."
std::string upToDateDetail(const std::string& version);
inline constexpr const char* updateCheckFailed = "Quillstow couldn't check for updates";

// No system tray.
inline constexpr const char* noTrayTitle = "Quillstow has no tray icon";
inline constexpr const char* noTrayBody =
    "Your desktop shows no system tray, so Quillstow opens as a window. To get the tray icon on "
    "GNOME, install and turn on the AppIndicator extension (gnome-shell-extension-appindicator), "
    "then start Quillstow again.";

// The window that files a finished project.
inline constexpr const char* filingWindowTitle = "File a Finished Project";
inline constexpr const char* filingChooseTitle = "File a finished project";
inline constexpr const char* filingChooseBody =
    "Pick a project folder you've finished with. It gets copied into your archive under the "
    "right year — your original stays exactly where it is.";
inline constexpr const char* chooseProjectButton = "Choose Project Folder…";
inline constexpr const char* chooseProjectMessage = "Choose the finished project folder";
inline constexpr const char* choosePrompt = "Choose";
inline constexpr const char* worthALook = "Worth a look first";
inline constexpr const char* fileAnyway = "You can file it anyway — this is just a heads-up.";
inline constexpr const char* fileItAs = "File it as";
inline constexpr const char* filingNameLabel = "Name";
inline constexpr const char* filingYearLabel = "Year";
inline constexpr const char* archiveFolder = "Archive folder";
inline constexpr const char* notChosenYet = "Not chosen yet";
inline constexpr const char* chooseArchiveButton = "Choose…";
inline constexpr const char* changeArchiveButton = "Change…";
inline constexpr const char* chooseArchiveMessage =
    "Choose the folder your archive lives in — the one holding your year folders";
// "Goes to {destination}".
std::string goesTo(const std::string& destinationPreview);
inline constexpr const char* filingBack = "Back";
inline constexpr const char* fileIt = "File It";
// "Filing "{name}"…".
std::string filingTitle(const std::string& name);
inline constexpr const char* filingCopying = "Copying…";
inline constexpr const char* originalUntouched = "Your original isn't being touched.";
inline constexpr const char* filedHeading = "Filed";
inline constexpr const char* notFiledHeading = "Couldn't file it";
inline constexpr const char* filedIcon = "checkmark.circle.fill";
inline constexpr const char* notFiledIcon = "exclamationmark.triangle.fill";
inline constexpr const char* fileAnother = "File Another";

}  // namespace quillstow::shell::texts
