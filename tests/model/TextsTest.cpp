// The words of statuses, errors, completion messages and tips.

#include <gtest/gtest.h>

#include "model/BackupStatus.hpp"
#include "model/Tips.hpp"

namespace quillstow {
namespace {

// Each row: the words shown, and the words expected; the row names what it proves.
TEST(Texts, ComposeCountsNamesAndDurations) {
    const struct {
        const char* name;
        std::string shown;
        std::string expected;
    } rows[] = {
        {"progress is cut, not rounded", BackupStatus::syncing(0.999, "clip.mov").displayText(),
         "Backing up 99% — clip.mov"},
        {"full progress", BackupStatus::syncing(1.0, "a").displayText(), "Backing up 100% — a"},
        {"one file, under a second", BackupStatus::completed(1, 0.4).displayText(),
         "Backed up 1 file in 0 seconds"},
        {"no files, one second", BackupStatus::completed(0, 1).displayText(),
         "Backed up 0 files in 1 second"},
        {"seconds are cut", BackupStatus::completed(12, 59.9).displayText(),
         "Backed up 12 files in 59 seconds"},
        {"an error shows its description",
         BackupStatus::error(BackupError::timedOut()).displayText(),
         BackupError::timedOut().errorDescription()},
        {"a minute", durationText(60), "1 minute"},
        {"a minute up to the second", durationText(119), "1 minute"},
        {"minutes", durationText(120), "2 minutes"},
        {"minutes below the hour", durationText(3599), "59 minutes"},
        {"an hour", durationText(3600), "1 hour"},
        {"hours", durationText(7200), "2 hours"},
        {"the folder's own name",
         BackupError::sourceNotFound("/home/ana/Film Projects/").recoverySuggestion(),
         "Make sure the folder \"Film Projects\" still exists."},
        {"the space left", BackupError::diskSpaceLow(1'300'000, 5'000'000'000).recoverySuggestion(),
         "Free up space or remove old backups. Only 1.3 MB left."},
        {"failed of all", BackupError::partialFailure(1, 2).errorDescription(),
         "1 of 2 files couldn't be backed up."},
        {"nothing copied", completionMessage(0, std::nullopt), "Everything's up to date."},
        {"one file copied", completionMessage(1, std::nullopt), "1 file backed up."},
        {"files and a tip", completionMessage(2, std::string("Tip.")), "2 files backed up. Tip."},
        {"nothing copied and a tip", completionMessage(0, std::string("Tip.")),
         "Everything's up to date. Tip."},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.shown, row.expected) << row.name;
    // The reason behind a watcher failure is for the log, never for the user.
    EXPECT_EQ(BackupError::watcherFailed("inotify limit").recoverySuggestion().find("inotify"),
              std::string::npos);
}

TEST(NextTip, SpeaksOnEveryThirdPassBeginningWithTheFirst) {
    InMemoryUserDefaults defaults;
    std::vector<bool> spoke;
    for (int i = 0; i < 7; ++i)
        spoke.push_back(nextTip(defaults, 0, false, false, false).has_value());
    EXPECT_EQ(spoke, (std::vector<bool>{true, false, false, true, false, false, true}));
    EXPECT_EQ(defaults.integer(tipCounterKey), 7);
}

// Each row: the counter, what the pass did (files copied, large files, sample checked,
// throttled), and how the tip it picks begins: from what the pass did in the list's order, or
// from the general list when it did nothing.
TEST(TipAt, PicksFromWhatThePassDidInTheListsOrder) {
    const struct {
        const char* name;
        std::int64_t counter;
        int copied;
        bool large, sampled, throttled;
        const char* begins;
    } rows[] = {
        {"the general list's first", 0, 0, false, false, false, "If you accidentally"},
        {"its second", 3, 0, false, false, false, "If a drive disconnects"},
        {"index 4 wraps to 0", 12, 0, false, false, false, "If you accidentally"},
        {"a damaged, negative counter", -3, 0, false, false, false, "Your backups resume"},
        {"index 3 of all", 9, 5, true, true, true, "Large files"},
        {"index 5 of all", 15, 5, true, true, true, "Quillstow slowed down"},
        {"index 1 of a list of one", 3, 0, false, true, false, "A sample"},
        {"index 2 of the three tips of a copy", 6, 1, false, false, false, "A unique fingerprint"},
    };
    for (const auto& row : rows) {
        const auto tip = tipAt(row.counter, row.copied, row.large, row.sampled, row.throttled);
        ASSERT_TRUE(tip) << row.name;
        EXPECT_TRUE(tip->starts_with(row.begins)) << row.name << ": " << *tip;
    }
}

}  // namespace
}  // namespace quillstow
