// The words of statuses, errors, completion messages and tips.

#include <gtest/gtest.h>

#include "model/BackupStatus.hpp"
#include "model/Tips.hpp"

namespace quillstow {
namespace {

TEST(StatusText, NamesEveryCase) {
    EXPECT_EQ(BackupStatus::syncing(0.999, "clip.mov").displayText(), "Backing up 99% — clip.mov");
    EXPECT_EQ(BackupStatus::syncing(0.0, "a").displayText(), "Backing up 0% — a");
    EXPECT_EQ(BackupStatus::syncing(1.0, "a").displayText(), "Backing up 100% — a");
    EXPECT_EQ(BackupStatus::completed(1, 0.4).displayText(), "Backed up 1 file in 0 seconds");
    EXPECT_EQ(BackupStatus::completed(0, 1).displayText(), "Backed up 0 files in 1 second");
    EXPECT_EQ(BackupStatus::completed(12, 59.9).displayText(), "Backed up 12 files in 59 seconds");
    EXPECT_EQ(BackupStatus::error(BackupError::timedOut()).displayText(),
              "This backup took too long and was stopped part-way.");
    EXPECT_EQ(BackupStatus::idle().displayText(), "Up to date");
    EXPECT_EQ(BackupStatus::scanning().displayText(), "Scanning for changes…");
    EXPECT_EQ(BackupStatus::destinationUnreachable().displayText(), "Backup drive not connected");
    EXPECT_EQ(BackupStatus::paused().displayText(), "Paused");
    EXPECT_EQ(BackupStatus::queued().displayText(), "Waiting in queue…");
}

TEST(StatusText, DurationsAreCutNotRounded) {
    EXPECT_EQ(durationText(59.99), "59 seconds");
    EXPECT_EQ(durationText(60), "1 minute");
    EXPECT_EQ(durationText(119), "1 minute");
    EXPECT_EQ(durationText(120), "2 minutes");
    EXPECT_EQ(durationText(3599), "59 minutes");
    EXPECT_EQ(durationText(3600), "1 hour");
    EXPECT_EQ(durationText(7200), "2 hours");
}

TEST(StatusEquality, ComparesTheCaseAndItsValues) {
    EXPECT_EQ(BackupStatus::syncing(0.5, "a"), BackupStatus::syncing(0.5, "a"));
    EXPECT_NE(BackupStatus::syncing(0.5, "a"), BackupStatus::syncing(0.5, "b"));
    EXPECT_NE(BackupStatus::completed(1, 2), BackupStatus::completed(1, 3));
    EXPECT_NE(BackupStatus::idle(), BackupStatus::paused());
    EXPECT_EQ(BackupStatus::error(BackupError::partialFailure(1, 2)),
              BackupStatus::error(BackupError::partialFailure(1, 2)));
    EXPECT_NE(BackupStatus::error(BackupError::sourceNotFound("/a")),
              BackupStatus::error(BackupError::destinationNotFound("/a")));
}

TEST(BackupErrorTexts, SayWhatHappenedAndWhatToDo) {
    const BackupError source = BackupError::sourceNotFound("/home/ana/Film Projects/");
    EXPECT_EQ(source.errorDescription(), "The source folder can't be found.");
    EXPECT_EQ(source.recoverySuggestion(), "Make sure the folder \"Film Projects\" still exists.");

    EXPECT_EQ(BackupError::destinationNotFound("/media/x").recoverySuggestion(),
              "Connect the backup drive and try again.");
    EXPECT_EQ(BackupError::bookmarkStale("/a").errorDescription(),
              "Quillstow needs permission to access this folder again.");
    EXPECT_EQ(BackupError::bookmarkAccessDenied("/a").errorDescription(),
              "Access to this folder was denied.");
    EXPECT_EQ(BackupError::bookmarkAccessDenied("/a").recoverySuggestion(),
              "Open Quillstow and re-select the folder to grant access again.");

    const BackupError watcher = BackupError::watcherFailed("inotify limit");
    EXPECT_EQ(watcher.errorDescription(), "Couldn't watch for file changes.");
    EXPECT_EQ(watcher.recoverySuggestion().find("inotify"), std::string::npos);

    const BackupError space = BackupError::diskSpaceLow(1'300'000, 5'000'000'000);
    EXPECT_EQ(space.errorDescription(), "The backup drive is running low on space.");
    EXPECT_EQ(space.recoverySuggestion(), "Free up space or remove old backups. Only 1.3 MB left.");

    EXPECT_EQ(BackupError::partialFailure(1, 2).errorDescription(),
              "1 of 2 files couldn't be backed up.");
    EXPECT_EQ(BackupError::partialFailure(1, 1).errorDescription(),
              "1 of 1 files couldn't be backed up.");
    EXPECT_EQ(BackupError::timedOut().recoverySuggestion(),
              "The next backup will pick up where this one left off. If it keeps happening, "
              "check the drive connection.");
}

TEST(CompletionMessage, CountsFilesAndAppendsTheTip) {
    EXPECT_EQ(completionMessage(0, std::nullopt), "Everything's up to date.");
    EXPECT_EQ(completionMessage(1, std::nullopt), "1 file backed up.");
    EXPECT_EQ(completionMessage(2, std::string("Tip.")), "2 files backed up. Tip.");
    EXPECT_EQ(completionMessage(0, std::string("Tip.")), "Everything's up to date. Tip.");
}

class NextTipTest : public ::testing::Test {
  protected:
    InMemoryUserDefaults defaults;
};

TEST_F(NextTipTest, SpeaksOnEveryThirdPassBeginningWithTheFirst) {
    std::vector<bool> spoke;
    for (int i = 0; i < 7; ++i)
        spoke.push_back(nextTip(defaults, 0, false, false, false).has_value());
    EXPECT_EQ(spoke, (std::vector<bool>{true, false, false, true, false, false, true}));
    EXPECT_EQ(defaults.integer(tipCounterKey), 7);
}

TEST_F(NextTipTest, WalksTheGeneralListWhenNothingWasDone) {
    EXPECT_EQ(nextTip(defaults, 0, false, false, false),
              "If you accidentally delete a file, Quillstow keeps a copy for 30 days.");
    defaults.setInteger(tipCounterKey, 3);
    EXPECT_EQ(nextTip(defaults, 0, false, false, false),
              "If a drive disconnects mid-backup, your existing backups stay safe. Nothing gets "
              "deleted.");
    defaults.setInteger(tipCounterKey, 12);  // index 4 wraps to 0
    EXPECT_EQ(nextTip(defaults, 0, false, false, false),
              "If you accidentally delete a file, Quillstow keeps a copy for 30 days.");
}

TEST_F(NextTipTest, PicksFromWhatThePassDidInTheListsOrder) {
    defaults.setInteger(tipCounterKey, 9);  // index 3
    EXPECT_EQ(nextTip(defaults, 5, true, true, true),
              "Large files were copied in small chunks so you could cancel anytime without losing "
              "progress.");
    defaults.setInteger(tipCounterKey, 15);  // index 5
    EXPECT_EQ(nextTip(defaults, 5, true, true, true),
              "Quillstow slowed down while you were working so your computer stayed fast.");
    defaults.setInteger(tipCounterKey, 3);  // index 1 of a list of one
    EXPECT_EQ(nextTip(defaults, 0, false, true, false),
              "A sample of your existing backups was re-checked — everything looks healthy.");
    defaults.setInteger(tipCounterKey, 6);  // index 2 of the three tips of a copy
    EXPECT_EQ(nextTip(defaults, 1, false, false, false),
              "A unique fingerprint was saved for each file so Quillstow can detect if it ever "
              "silently corrupts.");
}

}  // namespace
}  // namespace quillstow
