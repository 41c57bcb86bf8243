#pragma once

// Every word that the restore and recovery windows show, in one place: the summaries after a
// restore (with their deliberate "Restored 1 files."), the states, buttons, help texts and the
// icon of a row. Pure functions; any thread.

#include <cstdint>
#include <string>
#include <string_view>

namespace quillstow::restoretext {

// "{n} file(s) restored successfully." or "Error: Restored {n} files. {m} file(s) failed.";
// a cancelled restore says so first, after "Error: " when files failed.
std::string summary(int restored, int failed, bool cancelled);

// A message the window marks with the warning icon rather than the check mark.
bool isError(std::string_view message);

// The icon of a row, by the file's lower-cased extension ("photo", "film", ..., "doc").
std::string_view iconForFile(std::string_view name);

std::string windowTitle(std::string_view pairName);
std::string selectedCounter(std::int64_t selectedCount);
std::string fileCounter(std::int64_t shownCount);
std::string_view restoreToHelp(std::int64_t selectedCount);
std::string_view restoreToOriginalHelp(std::int64_t selectedCount);

inline constexpr std::string_view scanning = "Scanning backup files…";
inline constexpr std::string_view emptyTitle = "No backed-up files found.";
inline constexpr std::string_view emptyDetail =
    "Run a backup first, then come back here to restore.";
inline constexpr std::string_view emptyIcon = "doc.questionmark";
inline constexpr std::string_view filterPlaceholder = "Filter files…";
inline constexpr std::string_view selectAll = "Select All";
// In place of the rows when the filter hides every file.
inline constexpr std::string_view noMatch = "No files match the filter.";
inline constexpr std::string_view showInFileManager = "Open in File Manager";
inline constexpr std::string_view restoreTo = "Restore to…";
inline constexpr std::string_view restoreToOriginal = "Restore to Original";
inline constexpr std::string_view chooserPrompt = "Restore Here";
inline constexpr std::string_view chooserMessage = "Choose where to restore the selected files";
inline constexpr std::string_view errorIcon = "exclamationmark.triangle.fill";
inline constexpr std::string_view successIcon = "checkmark.circle.fill";

// The window over the deletion archive.
std::string recoveryWindowTitle(std::string_view pairName);
inline constexpr std::string_view recoveryMenuItem = "Recover Deleted Files…";
inline constexpr std::string_view recoveryScanning = "Scanning deleted files…";
inline constexpr std::string_view recoveryEmptyTitle = "No deleted files found.";
inline constexpr std::string_view recoveryEmptyDetail =
    "Files removed from the source are kept here after the next backup.";
// Why "Restore to Original" is off when other pairs share the archive.
inline constexpr std::string_view sharedArchiveHelp =
    "Other backups to this location keep their deleted files here too, so a file can't be "
    "traced to its original folder. Use Restore to… to choose a folder.";
// The range of days: "From [the first day] to [today]", or named days between.
inline constexpr std::string_view rangeFrom = "From";
inline constexpr std::string_view rangeTo = "to";
inline constexpr std::string_view earliestDay = "the first day";
inline constexpr std::string_view latestDay = "today";
// "Deleted on 2026-03-01", the heading of a day's group.
std::string dayHeading(std::string_view day);
// "Deleted at 14:05", beside a file archived more than once on one day; local time.
std::string archivedAtText(std::int64_t secondsSinceEpoch);

// "Restoring 3 of 10 files — 1.2 MB of 4 MB"; "of 1 file" for one.
std::string progress(std::int64_t filesDone, std::int64_t filesTotal, std::int64_t bytesDone,
                     std::int64_t bytesTotal);
inline constexpr std::string_view cancel = "Cancel";

}  // namespace quillstow::restoretext
