// The hash database of a backup and its daily sample: digests that sha256sum agrees with, the
// database's file and its damage, the choice of the sample, what a check finds and stamps, the
// pruning, and the coverage sentences.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "LogCapture.hpp"
#include "Processes.hpp"
#include "TestTree.hpp"
#include "support/AtomicFile.hpp"
#include "support/FileInfo.hpp"
#include "support/Json.hpp"
#include "support/ManualClocks.hpp"
#include "verify/IntegrityVerifier.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
namespace fs = std::filesystem;

constexpr std::int64_t gibibyte = std::int64_t(1) << 30;

HashEntry entry(std::string path, std::int64_t size = 1, std::optional<Date> verified = {}) {
    return {path, std::string(64, 'a'), size, referenceDate(), verified};
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

    std::optional<SampleCheck> afterPass(const std::vector<std::string>& copied,
                                         IntegrityVerifier::PathTest isKeptUnchanged = nullptr) {
        return verifier.afterPass({copied, std::move(isKeptUnchanged)}, backup, {});
    }

    std::string sha256sum(const fs::path& file) {
        const ProcessResult run = runProcess({"/usr/bin/sha256sum", file.native()});
        return run.output.substr(0, 64);
    }
};

TEST_F(IntegrityVerifierTest, DigestsAreTheStandardOnesAndMemoryDoesNotGrowWithTheFile) {
    writeFile(root / "empty", "");
    writeFile(root / "text", "Scene 1: the harbour at dawn.\n");
    std::string large(9 << 20, '\0');
    for (std::size_t i = 0; i < large.size(); ++i)
        large[i] = char(i * 7919 % 251);
    writeFile(root / "large", large);  // more than two buffers
    for (const char* name : {"empty", "text", "large"}) {
        EXPECT_EQ(sha256OfFile(root / name), sha256sum(root / name)) << name;
    }
    EXPECT_FALSE(sha256OfFile(root / "missing"));
    EXPECT_FALSE(sha256OfFile(root.path())) << "a folder can't be read to its end";
}

TEST_F(IntegrityVerifierTest, RecordsEveryCopiedFileInTheDatabasesShape) {
    writeFile(backup / "a.txt", "alpha");
    writeFile(backup / "sub/b.txt", "beta!");
    HashDatabase recorded;
    EXPECT_TRUE(verifier.recordHashes(recorded, {"a.txt", "sub/b.txt"}, backup, {}));
    verifier.saveDatabase(recorded, backup);

    const HashDatabase database = verifier.loadDatabase(backup);
    ASSERT_EQ(database.size(), 2u);
    EXPECT_EQ(database.at("sub/b.txt"),
              (HashEntry{"sub/b.txt", sha256sum(backup / "sub/b.txt"), 5, clock.now(), {}}));
    const std::string text = readFile(backup / ".quillstow-hashes.json");
    EXPECT_THAT(text, HasSubstr("\"sub\\/b.txt\": {\n    \"fileSize\": 5,\n    \"recordedAt\": "
                                "\"2023-11-14T22:13:20Z\",\n    \"relativePath\": "
                                "\"sub\\/b.txt\",\n    \"sha256\": \""));
    EXPECT_THAT(text, Not(HasSubstr("lastVerifiedAt")));
}

TEST_F(IntegrityVerifierTest, APassThatRecordedNothingWritesNoDatabase) {
    EXPECT_TRUE(afterPass({})) << "never checked: due";
    EXPECT_FALSE(fs::exists(backup / ".quillstow-hashes.json"));
    EXPECT_FALSE(afterPass({"not-there"})) << "checked just now";
    EXPECT_FALSE(fs::exists(backup / ".quillstow-hashes.json")) << "no digest, no write";
}

// One call after each pass: recorded, pruned, and checked once a day, the database written once.
TEST_F(IntegrityVerifierTest, AfterEveryPassTheDatabaseIsKeptAndTheSampleReadOnceADay) {
    writeFile(backup / "a.txt", "alpha");
    writeFile(backup / "b.txt", "beta");
    auto check = afterPass({"a.txt", "b.txt"});
    ASSERT_TRUE(check);
    EXPECT_EQ(check->result.verified, 2);
    EXPECT_EQ(check->coverage, "Every file checked today.");
    EXPECT_EQ(verifier.loadDatabase(backup).at("a.txt").lastVerifiedAt, clock.now());
    EXPECT_EQ(verifier.lastCheckDate(backup), clock.now());

    fs::remove(backup / "b.txt");
    clock.set(clock.now() + seconds(86400));
    EXPECT_FALSE(afterPass({})) << "86400 seconds: not yet due";
    EXPECT_EQ(verifier.loadDatabase(backup).size(), 1u) << "the pruning is saved all the same";

    clock.set(clock.now() + seconds(1));
    check = afterPass({});
    ASSERT_TRUE(check) << "86401 seconds: due";
    EXPECT_EQ(check->result.totalTracked, 1);
}

// Never checked, a day and a day and a second are the test above; a clock set back is not due.
TEST(CheckSchedule, AClockSetBackIsNotDue) {
    EXPECT_FALSE(isCheckDue(referenceDate() + hours(5), referenceDate()));
}

TEST_F(IntegrityVerifierTest, ADamagedDatabaseReadsEmptyAndTheNextRecordReplacesIt) {
    LogCapture log;
    for (const std::string damage :
         {"{\"a.txt\": {\"fileSize\": 5,", "[]", "not json",
          "{\"a.txt\": {\"fileSize\": 5, \"recordedAt\": \"2026-01-01T00:00:00Z\", "
          "\"relativePath\": \"a.txt\"}}"}) {
        writeFile(backup / ".quillstow-hashes.json", damage);
        EXPECT_TRUE(verifier.loadDatabase(backup).empty()) << damage;
    }
    EXPECT_TRUE(log.records().empty()) << "silently";

    writeFile(backup / "b.txt", "beta");
    afterPass({"b.txt"});
    const HashDatabase database = verifier.loadDatabase(backup);
    ASSERT_EQ(database.size(), 1u);
    EXPECT_TRUE(database.contains("b.txt"));

    // A value without its last check reads as never checked.
    writeFile(backup / ".quillstow-hashes.json",
              "{\"a.txt\": {\"fileSize\": 5, \"recordedAt\": \"2026-01-01T00:00:00Z\", "
              "\"relativePath\": \"a.txt\", \"sha256\": \"ab\"}}");
    EXPECT_FALSE(verifier.loadDatabase(backup).at("a.txt").lastVerifiedAt);
}

TEST_F(IntegrityVerifierTest, AWriteThatFailsIsLoggedInItsWords) {
    LogCapture log;
    verifier.saveDatabase(databaseOf({entry("a")}), root / "gone");
    verifier.writeLastCheck(root / "gone");
    EXPECT_THAT(log.messages("IntegrityVerifier"),
                ElementsAre("Failed to write hash database to <private>: No such file or directory",
                            "Failed to write last-check timestamp: No such file or directory"));
    EXPECT_EQ(log.records()[0].level, LogLevel::error);
}

// Each row: the database, and the sample taken from it, in order: the files never checked first,
// then the oldest checks, ties by path; at most fifty, and no more once the bytes have passed
// eight gibibytes, the file that crossed included.
TEST(SampleSelection, TakesTheOldestChecksFirstUpToFiftyFilesOrEightGibibytes) {
    const Date day = referenceDate();
    std::vector<HashEntry> sixty;
    for (int i = 59; i >= 0; --i)
        sixty.push_back(entry((i < 10 ? "f0" : "f") + std::to_string(i)));
    std::vector<std::string> firstFifty;
    for (int i = 0; i < 50; ++i)
        firstFifty.push_back((i < 10 ? "f0" : "f") + std::to_string(i));
    const struct {
        const char* name;
        std::vector<HashEntry> entries;
        std::vector<std::string> sample;
    } rows[] = {
        {"fifty never checked, in path order", sixty, firstFifty},
        {"oldest first, ties by path",
         {entry("c", 1, day + hours(1)), entry("b", 1, day), entry("a", 1, day + hours(1)),
          entry("z", 1)},
         {"z", "b", "a", "c"}},
        {"the file that crosses is the last",
         {entry("a", 5 * gibibyte), entry("b", 5 * gibibyte), entry("c", 5 * gibibyte)},
         {"a", "b"}},
        {"one large file alone", {entry("a", 20 * gibibyte), entry("b", 1)}, {"a"}},
        {"a byte below goes on",
         {entry("a", 8 * gibibyte - 1), entry("b", 1), entry("c", 1)},
         {"a", "b"}},
        {"eight gibibytes stop", {entry("a", 8 * gibibyte), entry("b", 1)}, {"a"}},
        {"nothing tracked", {}, {}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(pathsOf(selectSample(databaseOf(row.entries))), row.sample) << row.name;
}

TEST_F(IntegrityVerifierTest, ACheckStampsWhatItReadAndReportsDamage) {
    writeFile(backup / "good.txt", "fine");
    writeFile(backup / "bad.txt", "right");
    writeFile(backup / "gone.txt", "here");
    HashDatabase database;
    verifier.recordHashes(database, {"good.txt", "bad.txt", "gone.txt"}, backup, {});
    const std::string badDigest = database.at("bad.txt").sha256;
    writeFile(backup / "bad.txt", "wrong");  // the same size, other bytes
    fs::remove(backup / "gone.txt");

    clock.set(clock.now() + hours(2));
    const IntegrityResult result = verifier.verifySample(database, backup, {});
    EXPECT_EQ(result.verified, 1);
    EXPECT_THAT(result.corrupted, ElementsAre("bad.txt"));
    EXPECT_THAT(result.missing, ElementsAre("gone.txt"));
    EXPECT_EQ(result.totalTracked, 3);
    EXPECT_EQ(result.neverVerified, 1) << "the missing file isn't stamped";
    EXPECT_FALSE(result.oldestVerifiedAt);
    EXPECT_EQ(result.timestamp, clock.now());

    EXPECT_EQ(database.at("bad.txt").lastVerifiedAt, clock.now());
    EXPECT_EQ(database.at("bad.txt").sha256, badDigest) << "a damaged file keeps its digest";
    EXPECT_EQ(database.at("good.txt").lastVerifiedAt, clock.now());
    EXPECT_FALSE(database.at("gone.txt").lastVerifiedAt);
}

// A file that is a pipe: once a digest has opened it, the stop is asked for, and then it gives
// a byte and its end. A digest that reads it to the end has missed the stop inside the file.
class StopInsideAFile {
  public:
    explicit StopInsideAFile(fs::path path) : path_(std::move(path)) {
        ::mkfifo(path_.c_str(), 0600);
        writer_ = std::thread([this] {
            // A reader that stopped closes its end first: the write fails, quietly.
            sigset_t pipeSignal;
            sigemptyset(&pipeSignal);
            sigaddset(&pipeSignal, SIGPIPE);
            pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
            const int fd = ::open(path_.c_str(), O_WRONLY);
            if (!isClosing_) stop_.request_stop();
            (void)::write(fd, "x", 1);
            ::close(fd);
        });
    }
    ~StopInsideAFile() {
        // Lets the writer go when no digest ever opened the pipe.
        isClosing_ = true;
        const int fd = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK);
        writer_.join();
        ::close(fd);
    }
    std::stop_token token() const { return stop_.get_token(); }

  private:
    fs::path path_;
    std::stop_source stop_;
    std::atomic<bool> isClosing_{false};
    std::thread writer_;
};

TEST_F(IntegrityVerifierTest, AStopInsideAFileEndsRecordingOrACheckKeepingWhatWasDone) {
    writeFile(backup / "a.txt", "a");
    writeFile(backup / "c.txt", "c");
    HashDatabase database;
    {
        StopInsideAFile pipe(backup / "b-pipe");
        verifier.recordHashes(database, {"a.txt", "b-pipe", "c.txt"}, backup, pipe.token());
        EXPECT_THAT(pathsOf(selectSample(database)), ElementsAre("a.txt"));
    }
    fs::remove(backup / "b-pipe");
    verifier.recordHashes(database, {"c.txt"}, backup, {});
    database["b-pipe"] = entry("b-pipe");
    StopInsideAFile pipe(backup / "b-pipe");
    const IntegrityResult result = verifier.verifySample(database, backup, pipe.token());
    EXPECT_EQ(result.verified, 1);
    EXPECT_TRUE(result.corrupted.empty()) << "a file cut short by a stop is not damaged";
    EXPECT_EQ(result.neverVerified, 2) << "only a.txt was stamped";
}

// A file copied again goes back to the front of the rotation; one that can no longer be read
// keeps its older entry.
TEST_F(IntegrityVerifierTest, RecordingAgainClearsTheCheckOrKeepsTheEntryOfAFileGone) {
    writeFile(backup / "a.txt", "a");
    HashDatabase database;
    verifier.recordHashes(database, {"a.txt"}, backup, {});
    IntegrityResult result = verifier.verifySample(database, backup, {});
    EXPECT_EQ(coverageDescription(result, clock.now()), "Every file checked today.");
    EXPECT_TRUE(verifier.recordHashes(database, {"a.txt"}, backup, {}));
    EXPECT_FALSE(database.at("a.txt").lastVerifiedAt);

    const HashDatabase before = database;
    fs::remove(backup / "a.txt");
    clock.set(clock.now() + hours(1));
    EXPECT_FALSE(verifier.recordHashes(database, {"a.txt"}, backup, {}));
    EXPECT_EQ(database, before);
}

TEST_F(IntegrityVerifierTest, PruningForgetsFilesThatLeftTheBackup) {
    writeFile(backup / "stays.txt", "s");
    writeFile(backup / "leaves.txt", "l");
    HashDatabase database;
    verifier.recordHashes(database, {"stays.txt", "leaves.txt"}, backup, {});
    fs::remove(backup / "leaves.txt");
    EXPECT_EQ(verifier.pruneStaleEntries(database, root / "gone"), 0) << "no folder, no pruning";
    EXPECT_EQ(verifier.pruneStaleEntries(database, backup), 1);
    EXPECT_EQ(database.size(), 1u);
    EXPECT_EQ(verifier.pruneStaleEntries(database, backup), 0);
}

TEST_F(IntegrityVerifierTest, PruningTestsTheFolderAgainAfterEveryHundredRemovals) {
    HashDatabase database;
    for (int i = 0; i < 250; ++i)
        database["f" + std::to_string(1000 + i)] = entry("f" + std::to_string(1000 + i));
    int tests = 0;
    IntegrityVerifier counting(clock, [&](const fs::path& folder) {
        ++tests;
        return files::isFolder(folder);
    });
    EXPECT_EQ(counting.pruneStaleEntries(database, backup), 250);
    // Before the walk, and at 0, 100 and 200 removed.
    EXPECT_EQ(tests, 4);
}

// A pass that changed nothing reads no file of the backup again: what it kept, and what it just
// copied and read for its digest, is known to be there.
TEST_F(IntegrityVerifierTest, PruningLooksUpOnlyTheFilesThePassDoesNotKnow) {
    for (const char* name : {"kept-1", "kept-2", "copied", "unknown", "gone"})
        writeFile(backup / name, name);
    verifier.saveDatabase(databaseOf({entry("kept-1"), entry("kept-2"), entry("copied"),
                                      entry("unknown"), entry("gone")}),
                          backup);
    verifier.writeLastCheck(backup);
    fs::remove(backup / "gone");
    std::vector<std::string> lookedUp;
    int folderTests = 0;
    IntegrityVerifier counting(
        clock,
        [&](const fs::path& folder) {
            ++folderTests;
            return files::isFolder(folder);
        },
        [&](const fs::path& file) {
            lookedUp.push_back(file.filename());
            return files::exists(file);
        });
    const auto isKept = [](std::string_view path) { return path.starts_with("kept"); };
    EXPECT_FALSE(counting.afterPass({{"copied"}, isKept}, backup, {}));
    EXPECT_THAT(lookedUp, ElementsAre("gone", "unknown"));
    EXPECT_EQ(folderTests, 2) << "before the walk and before the first removal";
    EXPECT_THAT(pathsOf(selectSample(verifier.loadDatabase(backup))),
                ElementsAre("copied", "kept-1", "kept-2", "unknown"));

    lookedUp.clear();
    folderTests = 0;
    EXPECT_FALSE(counting.afterPass({{}, [](std::string_view) { return true; }}, backup, {}));
    EXPECT_THAT(lookedUp, ::testing::IsEmpty()) << "a pass that changed nothing";
    EXPECT_EQ(folderTests, 2);
}

TEST_F(IntegrityVerifierTest, TheLastCheckIsATimeWithoutALineEnd) {
    EXPECT_FALSE(verifier.lastCheckDate(backup));
    verifier.writeLastCheck(backup);
    EXPECT_EQ(readFile(backup / ".quillstow-lastcheck"), "2023-11-14T22:13:20Z");
    EXPECT_EQ(verifier.lastCheckDate(backup), clock.now());
    writeFile(backup / ".quillstow-lastcheck", "  2026-03-04T09:12:55Z\n");
    EXPECT_EQ(verifier.lastCheckDate(backup), Date{sys_days{2026y / March / 4} + 9h + 12min + 55s});
    writeFile(backup / ".quillstow-lastcheck", "yesterday");
    EXPECT_FALSE(verifier.lastCheckDate(backup));
}

TEST(CoverageDescription, SaysHowMuchIsCheckedAndHowRecently) {
    const Date now = referenceDate();
    IntegrityResult result;
    EXPECT_EQ(coverageDescription(result, now), "No files are being checked yet.");
    result.totalTracked = 3;
    result.neverVerified = 1;
    EXPECT_EQ(coverageDescription(result, now), "1 file still waiting for a first check.");
    result.neverVerified = 2;
    EXPECT_EQ(coverageDescription(result, now), "2 files still waiting for a first check.");
    result.neverVerified = 0;
    EXPECT_EQ(coverageDescription(result, now), "Every file has been checked.");
    result.oldestVerifiedAt = now - hours(23);
    EXPECT_EQ(coverageDescription(result, now), "Every file checked today.");
    result.oldestVerifiedAt = now + hours(3);
    EXPECT_EQ(coverageDescription(result, now), "Every file checked today.") << "a clock set back";
    result.oldestVerifiedAt = now - hours(24);
    EXPECT_EQ(coverageDescription(result, now), "Every file checked within the last day.");
    result.oldestVerifiedAt = now - hours(24 * 5 + 1);
    EXPECT_EQ(coverageDescription(result, now), "Every file checked within the last 5 days.");
}

TEST(OldestVerifiedDate, IsNothingWhileAnyFileWaits) {
    const Date day = referenceDate();
    EXPECT_FALSE(oldestVerifiedDate({}));
    EXPECT_EQ(oldestVerifiedDate(databaseOf({entry("a", 1, day + hours(2)), entry("b", 1, day)})),
              day);
    EXPECT_FALSE(oldestVerifiedDate(databaseOf({entry("a", 1, day), entry("b", 1)})));
}

}  // namespace
}  // namespace quillstow
