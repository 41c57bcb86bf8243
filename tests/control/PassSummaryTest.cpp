// What follows a pass, as one table: for a result and the readings after it, the status, the
// log, what the user is told, and what changes in the pair.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "control/PassSummary.hpp"
#include "model/Tips.hpp"

namespace quillstow {
namespace {

using namespace std::chrono;
using ::testing::ElementsAreArray;

const Date now{seconds(1'700'000'000)};

std::vector<std::string> eventsOf(const PassSummary& summary) {
    std::vector<std::string> lines;
    for (const auto& event : summary.events) {
        lines.push_back(std::string(coding::nameOf(eventTypeNames, event.type)) + ": " +
                        event.message.value_or(""));
    }
    return lines;
}

std::vector<std::string> noticesOf(const PassSummary& summary) {
    std::vector<std::string> lines;
    for (const auto& notice : summary.notices) {
        static constexpr const char* kinds[] = {"error", "trash", "volume lost", "complete"};
        lines.push_back(std::string(kinds[int(notice.kind)]) + " " + notice.pairName + " " +
                        std::to_string(notice.count) + " " + notice.message.value_or(""));
    }
    return lines;
}

std::vector<std::string> copied(int count, const std::string& folder = "") {
    std::vector<std::string> paths;
    for (int i = 0; i < count; ++i)
        paths.push_back(folder + std::to_string(i));
    return paths;
}

IntegrityResult sample(int verified, int corrupted) {
    IntegrityResult result;
    result.verified = verified;
    result.corrupted = copied(corrupted);
    return result;
}

struct SummaryCase {
    const char* name;
    std::function<void(AfterPass&, BackupPair&)> given;
    BackupStatus status;
    std::vector<std::string> events;
    std::vector<std::string> notices;
    bool offsiteDue = false;
};

const std::string passed = "backup: ";
const std::string damaged =
    "1 file on the backup drive may have been damaged. It's worth copying it again.";

const std::vector<SummaryCase> summaryCases = {
    {"NothingCopiedCompletesWithZeroFiles",
     [](AfterPass&, BackupPair&) {},
     BackupStatus::completed(0, 0),
     {passed},
     {"complete Work 0 "}},
    {"ATipOnEveryThirdPassRidesOnTheCompletion",
     [](AfterPass& pass, BackupPair&) { pass.tipCounter = 3; },
     BackupStatus::completed(0, 0),
     {passed},
     {"complete Work 0 " + completionMessage(0, tipAt(3, 0, false, true, false))}},
    {"ThreeFailedFilesOfThirteenArePartialFailureWithoutOffsite",
     [](AfterPass& pass, BackupPair& pair) {
         pass.result.copiedFiles = 10;
         pass.result.errors.resize(3);
         pair.offsiteURL = "/cloud";
     },
     BackupStatus::error(BackupError::partialFailure(3, 13)),
     {"error: 3 files couldn't be copied."},
     {"error Work 0 3 of 13 files couldn't be backed up."}},
    {"AVolumeLostMidPassIsAnAbortThatStillRemindsOfTheTrash",
     [](AfterPass& pass, BackupPair& pair) {
         pass.result.copiedFiles = 4;
         pass.result.abortedDueToVolumeLoss = true;
         pass.trashSize = trashReminderThreshold;
         pair.offsiteURL = "/cloud";
     },
     BackupStatus::error(BackupError::partialFailure(0, 4)),
     {"backup: Backup aborted — a volume disconnected mid-backup. Your existing backups are "
      "safe."},
     {"error Work 0 Backup aborted — a drive disconnected. Your backups are safe; will retry "
      "later.",
      "trash  1073741824 "}},
    {"ADriveGoneAfterCopyingIsUnreachableAndItsUnreadableSampleIsNoDamage",
     [](AfterPass& pass, BackupPair& pair) {
         pass.destinationLeft = true;
         pass.sample = SampleCheck{sample(0, 3), ""};
         pass.trashSize = trashReminderThreshold;
         pair.offsiteURL = "/cloud";
     },
     BackupStatus::destinationUnreachable(),
     {passed, "volumeLost: "},
     {"volume lost Work 0 "}},
    {"DamageFoundByTheSampleIsLoggedAndTold",
     [](AfterPass& pass, BackupPair&) {
         pass.sample = SampleCheck{sample(4, 1), ""};
     },
     BackupStatus::completed(0, 0),
     {passed, "verificationFailed: " + damaged},
     {"error Work 0 " + damaged, "complete Work 0 "}},
    {"AHealthySampleLogsItsCoverageAndAnEmptyOneNothing",
     [](AfterPass& pass, BackupPair&) {
         pass.sample = SampleCheck{sample(2, 0), "Every file checked today."};
     },
     BackupStatus::completed(0, 0),
     {passed, "integrityChecked: Every file checked today."},
     {"complete Work 0 "}},
    {"ASampleThatReadNothingLogsNothing",
     [](AfterPass& pass, BackupPair&) {
         pass.sample = SampleCheck{sample(0, 0), "x"};
     },
     BackupStatus::completed(0, 0),
     {passed},
     {"complete Work 0 "}},
    {"NinePackageFilesGiveNoCatchUp",
     [](AfterPass& pass, BackupPair&) { pass.result.copiedRelativePaths = copied(9, "Tool.app/"); },
     BackupStatus::completed(0, 0),
     {passed},
     {"complete Work 0 "}},
    {"TenPackageFilesGiveTheCatchUpOnce",
     [](AfterPass& pass, BackupPair&) {
         pass.result.copiedRelativePaths = copied(10, "Notes.rtfd/");
     },
     BackupStatus::completed(0, 0),
     {passed,
      "backup: Found app bundles and document packages that weren't backed up before — "
      "catching up now. This is a one-time boost and will only happen once."},
     {"complete Work 0 "}},
    {"TheCatchUpIsNeverGivenTwice",
     [](AfterPass& pass, BackupPair&) {
         pass.result.copiedRelativePaths = copied(10, "Notes.rtfd/");
         pass.catchUpGiven = true;
     },
     BackupStatus::completed(0, 0),
     {passed},
     {"complete Work 0 "}},
    {"FilesAnEditorHeldAreLoggedPerEditorInItsWords",
     [](AfterPass& pass, BackupPair&) {
         pass.result.filesDeferredByEditor = {{"Gimp", 1}, {"Kate", 2}, {"Vim", 0}};
     },
     BackupStatus::completed(0, 0),
     {passed,
      "backup: Skipped 1 file currently being edited in Gimp — they'll back up after you close "
      "it.",
      "backup: Skipped 2 files currently being edited in Kate — they'll back up after you close "
      "it."},
     {"complete Work 0 "}},
    {"ASourceChangedDuringItsCopyIsNoFaultButABadCopyIs",
     [](AfterPass& pass, BackupPair&) {
         pass.sourcesChanged = 2;
         pass.copiesFailed = 1;
     },
     BackupStatus::completed(0, 0),
     {passed,
      "backup: 2 files changed while they were being backed up — they'll back up again on the "
      "next pass.",
      "verificationFailed: 1 file failed verification after copying."},
     {"error Work 0 1 file failed verification after copying.", "complete Work 0 "}},
    {"ATrashJustBelowAGibibyteIsNoReminder",
     [](AfterPass& pass, BackupPair&) { pass.trashSize = trashReminderThreshold - 1; },
     BackupStatus::completed(0, 0),
     {passed},
     {"complete Work 0 "}},
    {"AnOffsiteCopyAWeekOldIsDue",
     [](AfterPass&, BackupPair& pair) {
         pair.offsiteURL = "/cloud";
         pair.lastOffsiteAt = now - seconds(604800);
     },
     BackupStatus::completed(0, 0),
     {passed},
     {"complete Work 0 "},
     true},
    {"AnOffsiteCopyASecondYoungerIsNot",
     [](AfterPass&, BackupPair& pair) {
         pair.offsiteURL = "/cloud";
         pair.lastOffsiteAt = now - seconds(604799);
     },
     BackupStatus::completed(0, 0),
     {passed},
     {"complete Work 0 "}},
};

class SummaryTable : public ::testing::TestWithParam<SummaryCase> {};

TEST_P(SummaryTable, DecidesWhatFollowsThePass) {
    const SummaryCase& row = GetParam();
    AfterPass pass;
    pass.tipCounter = 1;
    BackupPair pair;
    pair.name = "Work";
    pair.didSuggestProfile = true;
    row.given(pass, pair);
    const PassSummary summary = summarize(pass, pair, now);
    EXPECT_EQ(summary.status, row.status);
    EXPECT_THAT(eventsOf(summary), ElementsAreArray(row.events));
    EXPECT_THAT(noticesOf(summary), ElementsAreArray(row.notices));
    EXPECT_EQ(summary.offsiteDue, row.offsiteDue);
    // Every pass that ends is recorded in the pair, whatever it told.
    EXPECT_EQ(summary.pair.lastBackupAt, now);
    EXPECT_EQ(summary.pair.lastBackupFileCount, pass.result.copiedFiles);
    const bool told = summary.status && summary.status->kind() == BackupStatus::Case::completed;
    EXPECT_EQ(summary.tipCounter.has_value(), told) << "the rotation moves with a completion";
}

INSTANTIATE_TEST_SUITE_P(Cases, SummaryTable, ::testing::ValuesIn(summaryCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PassSummary, AStopWhileTheHashesWereKeptRecordsThePassAndTellsNothing) {
    AfterPass pass;
    pass.wasStopped = true;
    pass.result.copiedFiles = 2;
    pass.trashSize = trashReminderThreshold;
    const PassSummary summary = summarize(pass, BackupPair{}, now);
    EXPECT_FALSE(summary.status);
    EXPECT_THAT(eventsOf(summary), ElementsAreArray({passed}));
    EXPECT_TRUE(summary.notices.empty());
    EXPECT_EQ(summary.pair.lastBackupFileCount, 2);
}

TEST(PassSummary, AProfileIsSuggestedOnceWithWhatThePassFound) {
    AfterPass pass;
    pass.result.recommendedProfile = BackupProfile::photography;
    pass.result.approximateSourceBytes = 12345;
    BackupPair pair;
    const PassSummary first = summarize(pass, pair, now);
    ASSERT_TRUE(first.suggestion);
    EXPECT_EQ(*first.suggestion, std::pair(BackupProfile::photography, std::int64_t(12345)));
    first.pair.applyTo(pair);
    EXPECT_TRUE(pair.didSuggestProfile);
    EXPECT_FALSE(summarize(pass, pair, now).suggestion);
    pass.result.recommendedProfile = BackupProfile::standard;
    EXPECT_FALSE(summarize(pass, BackupPair{}, now).suggestion);
}

TEST(PassSummary, TheOffsiteCopyIsRecordedWhateverItsEndAndLoggedByIt) {
    struct Row {
        OffsiteSyncResult result;
        std::vector<std::string> events;
    };
    OffsiteSyncResult lost;
    lost.abortedDueToFolderLoss = true;
    lost.copiedFiles = 3;
    OffsiteSyncResult failed;
    failed.errors.resize(2);
    OffsiteSyncResult one;
    one.copiedFiles = 1;
    const std::vector<Row> rows = {
        {lost,
         {"error: Offsite copy paused — the cloud folder became unavailable. Will retry next "
          "week."}},
        {failed, {"error: Offsite copy completed with 2 error(s)."}},
        {one, {"backup: Offsite copy updated — 1 file synced to your cloud folder."}},
        {OffsiteSyncResult{}, {}},
    };
    for (const auto& row : rows) {
        const PassSummary summary = summarize(row.result, now);
        EXPECT_THAT(eventsOf(summary), ElementsAreArray(row.events));
        BackupPair pair;
        summary.pair.applyTo(pair);
        EXPECT_EQ(pair.lastOffsiteAt, now) << "the next try is a week later, as the message says";
        EXPECT_EQ(pair.lastOffsiteFileCount, row.result.copiedFiles);
        EXPECT_FALSE(pair.lastBackupAt) << "no other field changes";
    }
}

}  // namespace
}  // namespace quillstow
