// Settings and bookmarks on folders that turn read-only: real tmpfs mounts.

#include <gtest/gtest.h>

#include "LogCapture.hpp"
#include "PrivateMounts.hpp"
#include "TestTree.hpp"
#include "model/BookmarkManager.hpp"
#include "model/ConfigStore.hpp"
#include "model/FileUserDefaults.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

class SettingsFaultsTest : public ::testing::Test {
  protected:
    void SetUp() override { QUILLSTOW_REQUIRE_PRIVATE_MOUNTS(); }
    TemporaryFolder root;
    ManualClock clock;
    VirtualMainQueue queue{clock};
    InMemoryUserDefaults defaults;
};

TEST_F(SettingsFaultsTest, AFailedWriteKeepsTheStateInMemoryAndTheOldFilesWhole) {
    TmpfsMount settings(root / "settings", 1 << 20);
    ConfigStore store(settings.path(), queue, defaults);
    BackupPair first;
    first.id = Uuid::random();
    first.name = "First";
    first.sourceURL = "/home/ana/First";
    first.destinationURL = "/media/ana/Drive";
    store.addPair(first);
    store.save();
    store.flush();
    const std::string config = readFile(settings.path() / "config.json");
    const std::string eventLog = readFile(settings.path() / "backup-log.json");

    settings.remountReadOnly();
    LogCapture log;
    BackupPair second = first;
    second.id = Uuid::random();
    store.addPair(second);
    store.addEvent(BackupEvent{});
    queue.advance(1.0);
    store.flush();

    EXPECT_EQ(store.pairs().size(), 2u);
    EXPECT_EQ(store.events().size(), 1u);
    EXPECT_EQ(readFile(settings.path() / "config.json"), config);
    EXPECT_EQ(readFile(settings.path() / "backup-log.json"), eventLog);
    const auto messages = log.messages("ConfigStore");
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], "Failed to write config.json: Read-only file system");
    EXPECT_EQ(messages[1], "Failed to write backup-log.json: Read-only file system");
    for (const auto& entry : fs::directory_iterator(settings.path())) {
        EXPECT_FALSE(entry.path().filename().native().starts_with(".")) << entry.path();
    }
}

TEST_F(SettingsFaultsTest, TheBackupIsWholeEvenWhenTheDiskFillsUpWhileItIsWritten) {
    TmpfsMount settings(root / "settings", 1 << 20);
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = std::string(100, 'n');
    pair.sourceURL = "/home/ana/" + std::string(100, 's');
    pair.destinationURL = "/media/ana/Drive";
    const std::string oldBackup = json::write(toJson(ConfigFile{{pair}, AppConfig{}}));
    writeFile(settings.path() / "config.json.backup", oldBackup);
    const std::string config =
        json::write(toJson(ConfigFile{std::vector<BackupPair>(400, pair), AppConfig{}}));
    writeFile(settings.path() / "config.json", config);
    // Less room than a copy of config.json takes, even with the old backup gone.
    writeFile(settings.path() / "filler",
              std::string(fs::space(settings.path()).available - config.size() / 2, 'f'));
    ConfigStore store(settings.path(), queue, defaults);

    store.addPair(pair);
    store.flush();

    EXPECT_TRUE(readFile(settings.path() / "config.json.backup") == oldBackup);
    EXPECT_TRUE(readFile(settings.path() / "config.json") == config);
    EXPECT_EQ(store.pairs().size(), 401u);
}

TEST_F(SettingsFaultsTest, AFolderThatCannotBeMadeIsLoggedAndTheProgramGoesOn) {
    TmpfsMount parent(root / "ro", 1 << 20);
    parent.remountReadOnly();
    LogCapture log;
    ConfigStore store(parent.path() / "Quillstow", queue, defaults);
    EXPECT_TRUE(store.pairs().empty());
    const auto messages = log.messages("ConfigStore");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Failed to create Application Support directory: Read-only file system");
}

TEST_F(SettingsFaultsTest, DefaultsThatCannotBeWrittenStayInMemory) {
    TmpfsMount settings(root / "settings", 1 << 20);
    FileUserDefaults defaults(settings.path() / "defaults.json");
    defaults.setInteger("Quillstow.tipCounter", 1);
    settings.remountReadOnly();
    LogCapture log;
    defaults.setInteger("Quillstow.tipCounter", 2);
    EXPECT_EQ(defaults.integer("Quillstow.tipCounter"), 2);
    EXPECT_EQ(FileUserDefaults(settings.path() / "defaults.json").integer("Quillstow.tipCounter"),
              1);
    EXPECT_EQ(log.messages("app").at(0), "Failed to write defaults.json: Read-only file system");
}

TEST_F(SettingsFaultsTest, AReadOnlyDestinationIsDeniedAndAReadOnlySourceIsFine) {
    TmpfsMount drive(root / "drive", 1 << 20);
    makeFolder(drive.path() / "Backups");
    const auto destination = BookmarkManager::bookmarkData(drive.path() / "Backups", false);
    const auto source = BookmarkManager::bookmarkData(drive.path() / "Backups", true);
    drive.remountReadOnly();
    try {
        BookmarkManager::resolveBookmark(destination, drive.path() / "Backups", false);
        ADD_FAILURE() << "resolved a read-write bookmark on a read-only drive";
    } catch (const BackupFailure& failure) {
        EXPECT_EQ(failure.error().kind(), BackupError::Case::bookmarkAccessDenied);
    }
    EXPECT_FALSE(BookmarkManager::resolveBookmark(source, drive.path() / "Backups", true).newBytes);
}

TEST_F(SettingsFaultsTest, ADriveFormattedAnewAtTheSameMountPointIsRefreshed) {
    auto drive = std::make_unique<TmpfsMount>(root / "drive", 1 << 20);
    makeFolder(drive->path() / "Backups");
    const auto data = BookmarkManager::bookmarkData(drive->path() / "Backups", false);
    drive.reset();
    TmpfsMount other(root / "drive", 1 << 20);
    makeFolder(other.path() / "filler");
    makeFolder(other.path() / "Backups");
    const auto resolved = BookmarkManager::resolveBookmark(data, other.path() / "Backups", false);
    EXPECT_TRUE(resolved.newBytes);
}

}  // namespace
}  // namespace quillstow
