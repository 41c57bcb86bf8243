// Settings and user defaults on disks that fill up or turn read-only: real tmpfs mounts.

#include <gtest/gtest.h>

#include "LogCapture.hpp"
#include "PrivateMounts.hpp"
#include "TestTree.hpp"
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

BackupPair pairNamed(const std::string& name) {
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = name;
    pair.sourceURL = "/home/ana/" + name;
    pair.destinationURL = "/media/ana/Drive";
    return pair;
}

TEST_F(SettingsFaultsTest, AWriteThatFailsKeepsTheOldFilesWholeAndTheNewStateInMemory) {
    const struct {
        const char* name;
        bool isFull;
        std::vector<std::string> messages;
    } cases[] = {
        {"read-only",
         false,
         {"Failed to write config.json: Read-only file system",
          "Failed to write backup-log.json: Read-only file system"}},
        // Less room than config.json takes, even once the old backup is gone; the log fits.
        {"full", true, {"Failed to write config.json: No space left on device"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TmpfsMount settings(root / "settings", 1 << 20);
        const auto file = [&](const char* name) { return readFile(settings.path() / name); };
        ConfigStore store(settings.path(), queue, defaults);
        store.addPair(pairNamed("First"));
        store.flush();
        for (int i = 0; i < 10; ++i)
            store.addPair(pairNamed(std::string(5000, 'n')));
        store.addEvent(BackupEvent{});
        queue.advance(1.0);
        store.flush();
        const std::string backup = file("config.json.backup"), config = file("config.json");
        const std::string eventLog = file("backup-log.json");
        ASSERT_NE(backup, config);

        LogCapture log;
        if (c.isFull) {
            writeFile(settings.path() / "filler",
                      std::string(fs::space(settings.path()).available - config.size() / 2, 'f'));
        } else {
            settings.remountReadOnly();
        }
        store.addPair(pairNamed("Last"));
        store.addEvent(BackupEvent{});
        queue.advance(1.0);
        store.flush();

        EXPECT_EQ(store.pairs().size(), 12u);
        EXPECT_EQ(store.events().size(), 2u);
        EXPECT_TRUE(file("config.json.backup") == backup);
        EXPECT_TRUE(file("config.json") == config);
        EXPECT_EQ(file("backup-log.json") == eventLog, !c.isFull);
        EXPECT_EQ(log.messages("ConfigStore"), c.messages);
        for (const auto& entry : fs::directory_iterator(settings.path()))
            EXPECT_FALSE(entry.path().filename().native().starts_with(".")) << entry.path();
    }
}

TEST_F(SettingsFaultsTest, DefaultsThatCannotBeWrittenStayInMemoryAndTheFileAsItWas) {
    TmpfsMount settings(root / "settings", 1 << 20);
    FileUserDefaults userDefaults(settings.path() / "defaults.json");
    userDefaults.setInteger("Quillstow.tipCounter", 1);
    settings.remountReadOnly();
    LogCapture log;
    userDefaults.setInteger("Quillstow.tipCounter", 2);
    EXPECT_EQ(userDefaults.integer("Quillstow.tipCounter"), 2);
    EXPECT_EQ(FileUserDefaults(settings.path() / "defaults.json").integer("Quillstow.tipCounter"),
              1);
    EXPECT_EQ(log.messages("app").at(0), "Failed to write defaults.json: Read-only file system");
}

}  // namespace
}  // namespace quillstow
