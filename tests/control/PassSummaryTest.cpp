// What follows a pass, as one table: for a result and the readings after it (or for the weekly
// offsite copy's result), the status, the log, what the user is told and what the pair records.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "control/PassSummary.hpp"
#include "model/Tips.hpp"

namespace quillstow {
namespace {

using namespace std::chrono;

const Date now{seconds(1'700'000'000)};

// Lines of a summary joined by " | ".
void add(std::string& lines, const std::string& line) {
    lines += (lines.empty() ? "" : " | ") + line;
}

std::string eventsOf(const PassSummary& summary) {
    std::string lines;
    for (const auto& event : summary.events) {
        add(lines, std::string(coding::nameOf(eventTypeNames, event.type)) + ": " +
                       event.message.value_or(""));
    }
    return lines;
}

// What the user is told, and what the engine is asked to do next.
std::string toldOf(const PassSummary& summary) {
    std::string lines;
    for (const auto& notice : summary.notices) {
        static constexpr const char* kinds[] = {"error", "trash", "volume lost", "complete"};
        add(lines, std::string(kinds[int(notice.kind)]) + " " + notice.pairName + " " +
                       std::to_string(notice.count) + " " + notice.message.value_or(""));
    }
    if (const auto& suggestion = summary.suggestion) {
        add(lines, "suggest " + std::string(coding::nameOf(backupProfileNames, suggestion->first)) +
                       " " + std::to_string(suggestion->second));
    }
    if (summary.offsiteDue) add(lines, "offsite due");
    return lines;
}

std::vector<std::string> copied(int count, const std::string& folder = "") {
    std::vector<std::string> paths;
    for (int i = 0; i < count; ++i)
        paths.push_back(folder + std::to_string(i));
    return paths;
}

SampleCheck sample(int verified, int corrupted, std::string coverage = "") {
    IntegrityResult result;
    result.verified = verified;
    result.corrupted = copied(corrupted);
    return {result, std::move(coverage)};
}

OffsiteSyncResult offsite(int copiedFiles, int errors = 0, bool folderLost = false) {
    OffsiteSyncResult result;
    result.copiedFiles = copiedFiles;
    result.errors.resize(errors);
    result.abortedDueToFolderLoss = folderLost;
    return result;
}

const BackupStatus done = BackupStatus::completed(0, 0);
const std::string told = "complete Work 0 ";
const std::string damaged =
    "1 file on the backup drive may have been damaged. It's worth copying it again.";

struct SummaryCase {
    const char* name;
    void (*given)(AfterPass&, BackupPair&);
    std::string events = "backup: ";
    std::string tells = told;
    std::optional<BackupStatus> status = done;
};

const SummaryCase rows[] = {
    {"NothingCopiedCompletesWithZeroFilesAndAStandardSourceGetsNoSuggestion",
     [](AfterPass&, BackupPair& pair) { pair.didSuggestProfile = false; }},
    {"AnotherProfileIsSuggestedOncePerPairWithTheSourcesSize",
     [](AfterPass& pass, BackupPair& pair) {
         pair.didSuggestProfile = false;
         pass.result.recommendedProfile = BackupProfile::photography;
         pass.result.approximateSourceBytes = 12345;
     },
     "backup: ", told + " | suggest photography 12345"},
    {"ATipOnEveryThirdPassRidesOnTheCompletion",
     [](AfterPass& pass, BackupPair&) { pass.tipCounter = 3; },
     "backup: ", told + completionMessage(0, tipAt(3, 0, false, true, false))},
    {"ThreeFailedFilesOfThirteenArePartialFailureWithoutOffsite",
     [](AfterPass& pass, BackupPair& pair) {
         pass.result.copiedFiles = 10;
         pass.result.errors.resize(3);
         pair.offsiteURL = "/cloud";
     },
     "error: 3 files couldn't be copied.", "error Work 0 3 of 13 files couldn't be backed up.",
     BackupStatus::error(BackupError::partialFailure(3, 13))},
    {"AVolumeLostMidPassIsAnAbortThatStillRemindsOfTheTrash",
     [](AfterPass& pass, BackupPair& pair) {
         pass.result.copiedFiles = 4;
         pass.result.abortedDueToVolumeLoss = true;
         pass.trashSize = trashReminderThreshold;
         pair.offsiteURL = "/cloud";
     },
     "backup: Backup aborted — a volume disconnected mid-backup. Your existing backups are safe.",
     "error Work 0 Backup aborted — a drive disconnected. Your backups are safe; will retry "
     "later. | trash  1073741824 ",
     BackupStatus::error(BackupError::partialFailure(0, 4))},
    {"AStopWhileTheHashesWereKeptRecordsThePassAndTellsNothing",
     [](AfterPass& pass, BackupPair&) {
         pass.wasStopped = true;
         pass.result.copiedFiles = 2;
         pass.trashSize = trashReminderThreshold;
     },
     "backup: ", "", std::nullopt},
    {"ADriveGoneAfterCopyingIsUnreachableAndItsUnreadableSampleIsNoDamage",
     [](AfterPass& pass, BackupPair& pair) {
         pass.destinationLeft = true;
         pass.sample = sample(0, 3);
         pass.trashSize = trashReminderThreshold;
         pair.offsiteURL = "/cloud";
     },
     "backup:  | volumeLost: ", "volume lost Work 0 ", BackupStatus::destinationUnreachable()},
    {"DamageFoundByTheSampleIsLoggedAndTold",
     [](AfterPass& pass, BackupPair&) { pass.sample = sample(4, 1); },
     "backup:  | verificationFailed: " + damaged, "error Work 0 " + damaged + " | " + told},
    {"AHealthySampleLogsItsCoverage",
     [](AfterPass& pass, BackupPair&) { pass.sample = sample(2, 0, "Every file checked."); },
     "backup:  | integrityChecked: Every file checked."},
    {"ASampleThatReadNothingLogsNothing",
     [](AfterPass& pass, BackupPair&) { pass.sample = sample(0, 0, "x"); }},
    {"NinePackageFilesGiveNoCatchUp",
     [](AfterPass& pass, BackupPair&) { pass.result.copiedRelativePaths = copied(9, "T.app/"); }},
    {"TenPackageFilesGiveTheCatchUp",
     [](AfterPass& pass, BackupPair&) { pass.result.copiedRelativePaths = copied(10, "N.rtfd/"); },
     "backup:  | backup: Found app bundles and document packages that weren't backed up before — "
     "catching up now. This is a one-time boost and will only happen once."},
    {"TheCatchUpIsNeverGivenTwice",
     [](AfterPass& pass, BackupPair&) {
         pass.result.copiedRelativePaths = copied(10, "N.rtfd/");
         pass.catchUpGiven = true;
     }},
    {"FilesAnEditorHeldAreLoggedPerEditor",
     [](AfterPass& pass, BackupPair&) {
         pass.result.filesDeferredByEditor = {{"Gimp", 1}, {"Kate", 0}};
     },
     "backup:  | backup: Skipped 1 file currently being edited in Gimp — they'll back up after you "
     "close it."},
    {"ASourceChangedDuringItsCopyIsNoFaultButABadCopyIs",
     [](AfterPass& pass, BackupPair&) {
         pass.sourcesChanged = 2;
         pass.copiesFailed = 1;
     },
     "backup:  | backup: 2 files changed while they were being backed up — they'll back up again "
     "on the next pass. | verificationFailed: 1 file failed verification after copying.",
     "error Work 0 1 file failed verification after copying. | " + told},
    {"ATrashJustBelowAGibibyteIsNoReminder",
     [](AfterPass& pass, BackupPair&) { pass.trashSize = trashReminderThreshold - 1; }},
    {"AnOffsiteCopyAWeekOldIsDue",
     [](AfterPass&, BackupPair& pair) {
         pair.offsiteURL = "/cloud";
         pair.lastOffsiteAt = now - seconds(604800);
     },
     "backup: ", told + " | offsite due"},
    {"AnOffsiteCopyASecondYoungerIsNot",
     [](AfterPass&, BackupPair& pair) {
         pair.offsiteURL = "/cloud";
         pair.lastOffsiteAt = now - seconds(604799);
     }},
};

TEST(PassSummary, DecidesWhatFollowsAPass) {
    for (const SummaryCase& row : rows) {
        SCOPED_TRACE(row.name);
        AfterPass pass;
        pass.tipCounter = 1;
        BackupPair pair;
        pair.name = "Work";
        pair.didSuggestProfile = true;
        row.given(pass, pair);
        const PassSummary summary = summarize(pass, pair, now);
        EXPECT_EQ(summary.status, row.status);
        EXPECT_EQ(eventsOf(summary), row.events);
        EXPECT_EQ(toldOf(summary), row.tells);
        const bool completed = summary.status && summary.status->kind() == done.kind();
        EXPECT_EQ(summary.tipCounter.has_value(), completed) << "the rotation moves when told";
        // Whatever it told, the pass is recorded, in its own fields only.
        BackupPair recorded;
        summary.pair.applyTo(recorded);
        EXPECT_EQ(recorded.lastBackupAt, now);
        EXPECT_EQ(recorded.lastBackupFileCount, pass.result.copiedFiles);
        EXPECT_EQ(recorded.didSuggestProfile, summary.suggestion.has_value());
        EXPECT_FALSE(recorded.lastOffsiteAt);
    }
}

// Recorded whatever its end, so that the next try is a week later, as the message says.
TEST(PassSummary, RecordsTheOffsiteCopyAndLogsHowItEnded) {
    const struct {
        OffsiteSyncResult result;
        std::string events;
    } rows[] = {
        {offsite(3, 0, true),
         "error: Offsite copy paused — the cloud folder became unavailable. Will retry next week."},
        {offsite(0, 2), "error: Offsite copy completed with 2 error(s)."},
        {offsite(1), "backup: Offsite copy updated — 1 file synced to your cloud folder."},
        {offsite(0), ""},
    };
    for (const auto& row : rows) {
        const PassSummary summary = summarize(row.result, now);
        EXPECT_EQ(eventsOf(summary), row.events);
        BackupPair recorded;
        summary.pair.applyTo(recorded);
        EXPECT_EQ(recorded.lastOffsiteAt, now);
        EXPECT_EQ(recorded.lastOffsiteFileCount, row.result.copiedFiles);
        EXPECT_FALSE(recorded.lastBackupAt);
    }
}

}  // namespace
}  // namespace quillstow
