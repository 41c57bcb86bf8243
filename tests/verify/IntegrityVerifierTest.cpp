// The hash database of a backup and its daily sample: when a check is due, what a re-read finds
// and stamps, the damage of the database itself, and the pruning.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Processes.hpp"
#include "TestTree.hpp"
#include "support/ManualClocks.hpp"
#include "verify/IntegrityVerifier.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
using ::testing::ElementsAre;
namespace fs = std::filesystem;

HashEntry entry(std::string path) {
    return {path, std::string(64, 'a'), 1, referenceDate(), std::nullopt};
}

HashDatabase databaseOf(const std::vector<HashEntry>& entries) {
    HashDatabase database;
    for (const auto& each : entries)
        database[each.relativePath] = each;
    return database;
}

std::vector<std::string> pathsOf(const std::vector<HashEntry>& entries) {
    std::vector<std::string> paths;
    for (const auto& each : entries)
        paths.push_back(each.relativePath);
    return paths;
}

class IntegrityVerifierTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path backup = root / "Drive/Quillstow/Work";
    // Whole seconds, as the database keeps them.
    ManualWallClock clock{Date{seconds(1'700'000'000)}};
    IntegrityVerifier verifier{clock};

    void SetUp() override { makeFolder(backup); }
    std::optional<SampleCheck> afterPass(const std::vector<std::string>& copied) {
        return verifier.afterPass({copied, nullptr}, backup, {});
    }
};

TEST(CheckSchedule, IsDueOnceADayAndNeverForAClockSetBack) {
    const Date last = referenceDate();
    EXPECT_TRUE(isCheckDue(std::nullopt, last));
    EXPECT_FALSE(isCheckDue(last, last + seconds(86400)));
    EXPECT_TRUE(isCheckDue(last, last + seconds(86401)));
    EXPECT_FALSE(isCheckDue(last + hours(5), last));
}

// One call after each pass: recorded, pruned, and checked when due, the database written once
// and only when it holds something.
TEST_F(IntegrityVerifierTest, DigestsAreTheOnesSha256sumGives) {
    std::string large(9 << 20, '\0');  // more than two buffers
    for (std::size_t i = 0; i < large.size(); ++i)
        large[i] = char(i * 7919 % 251);
    writeFile(root / "large", large);
    writeFile(root / "empty", "");
    for (const char* name : {"empty", "large"}) {
        const auto expected = runProcess({"/usr/bin/sha256sum", (root / name).native()});
        EXPECT_EQ(sha256OfFile(root / name), expected.output.substr(0, 64)) << name;
    }
    EXPECT_FALSE(sha256OfFile(root / "missing"));
    EXPECT_FALSE(sha256OfFile(root.path())) << "a folder can't be read to its end";
}

TEST_F(IntegrityVerifierTest, AfterEveryPassTheDatabaseIsKeptAndTheSampleReadWhenDue) {
    EXPECT_TRUE(afterPass({"not-there"})) << "never checked: due";
    EXPECT_FALSE(fs::exists(backup / hashDatabaseName)) << "no digest, no write";
    EXPECT_EQ(readFile(backup / lastCheckName), "2023-11-14T22:13:20Z");

    writeFile(backup / "a.txt", "alpha");
    writeFile(backup / "b.txt", "beta");
    clock.set(clock.now() + seconds(86401));
    auto check = afterPass({"a.txt", "b.txt"});
    ASSERT_TRUE(check);
    EXPECT_EQ(check->result.verified, 2);
    EXPECT_EQ(check->coverage, "Every file checked today.");
    EXPECT_EQ(verifier.loadDatabase(backup).at("a.txt").lastVerifiedAt, clock.now());

    fs::remove(backup / "b.txt");
    clock.set(clock.now() + seconds(3600));
    EXPECT_FALSE(afterPass({}));
    EXPECT_EQ(verifier.loadDatabase(backup).size(), 1u) << "the pruning is saved all the same";
}

// The re-read finds a file whose bytes changed, and one that is gone; it stamps what it read. A
// file copied again goes back to the front of the rotation; one that can't be read keeps its
// older entry.
TEST_F(IntegrityVerifierTest, ACheckFindsAChangedFileAndStampsWhatItRead) {
    writeFile(backup / "good.txt", "fine");
    writeFile(backup / "bad.txt", "right");
    writeFile(backup / "gone.txt", "here");
    HashDatabase database;
    verifier.recordHashes(database, {"good.txt", "bad.txt", "gone.txt"}, backup, {});
    const HashEntry bad = database.at("bad.txt");
    writeFile(backup / "bad.txt", "wrong");  // the same size, other bytes
    fs::remove(backup / "gone.txt");

    clock.set(clock.now() + hours(2));
    const IntegrityResult result = verifier.verifySample(database, backup, {});
    EXPECT_EQ(result.verified, 1);
    EXPECT_THAT(result.corrupted, ElementsAre("bad.txt"));
    EXPECT_THAT(result.missing, ElementsAre("gone.txt"));
    EXPECT_EQ(result.neverVerified, 1) << "the missing file isn't stamped";
    EXPECT_EQ(database.at("bad.txt").lastVerifiedAt, clock.now());
    EXPECT_EQ(database.at("bad.txt").sha256, bad.sha256) << "a damaged file keeps its digest";

    EXPECT_TRUE(verifier.recordHashes(database, {"good.txt"}, backup, {}));
    EXPECT_FALSE(database.at("good.txt").lastVerifiedAt);
    const HashDatabase before = database;
    EXPECT_FALSE(verifier.recordHashes(database, {"gone.txt"}, backup, {}));
    EXPECT_EQ(database, before);
}

TEST_F(IntegrityVerifierTest, ADamagedDatabaseReadsEmptyAndTheNextRecordReplacesIt) {
    for (const std::string damage :
         {"{\"a.txt\": {\"fileSize\": 5,", "[]", "not json",
          "{\"a.txt\": {\"fileSize\": 5, \"recordedAt\": \"2026-01-01T00:00:00Z\", "
          "\"relativePath\": \"a.txt\"}}"}) {
        writeFile(backup / hashDatabaseName, damage);
        EXPECT_TRUE(verifier.loadDatabase(backup).empty()) << damage;
    }
    writeFile(backup / "b.txt", "beta");
    afterPass({"b.txt"});
    EXPECT_THAT(pathsOf(selectSample(verifier.loadDatabase(backup))), ElementsAre("b.txt"));

    // A value without its last check reads as never checked.
    writeFile(backup / hashDatabaseName,
              "{\"a.txt\": {\"fileSize\": 5, \"recordedAt\": \"2026-01-01T00:00:00Z\", "
              "\"relativePath\": \"a.txt\", \"sha256\": \"ab\"}}");
    EXPECT_EQ(verifier.loadDatabase(backup).at("a.txt"),
              (HashEntry{"a.txt", "ab", 5, sys_days{2026y / January / 1}, std::nullopt}));
}

// Pruning forgets the files that left the backup, and nothing while the folder is gone.
TEST_F(IntegrityVerifierTest, PruningForgetsWhatLeftButNothingOfAFolderGone) {
    writeFile(backup / "stays", "s");
    HashDatabase database = databaseOf({entry("stays"), entry("left")});
    EXPECT_EQ(verifier.pruneStaleEntries(database, root / "away"), 0);
    EXPECT_EQ(verifier.pruneStaleEntries(database, backup), 1);
    EXPECT_THAT(pathsOf(selectSample(database)), ElementsAre("stays"));
}

}  // namespace
}  // namespace quillstow
