// A pair's run on real drives: too little room before the pass, with and without an estimate,
// and a drive pulled in the middle of the pass or once it has copied.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../control/EngineHarness.hpp"
#include "PrivateMounts.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAreArray;
using ::testing::StartsWith;
namespace fs = std::filesystem;

struct DriveCase {
    const char* name;
    std::uint64_t driveBytes;
    // The source's file, sparse so that it costs no room where it lies.
    std::uint64_t sourceBytes;
    void (*arrange)(EngineHarness&, BackupPair&, TmpfsMount& drive);
    // How the last status other than idle, and each line the user is told, begin.
    std::string outcome;
    std::vector<std::string> events;
    std::vector<std::string> told;
};

const std::string lowSpace = "The backup drive is running low on space.";
const std::string stale = "Quillstow/Work/.quillstowtmp-0BADF00D-film.mov";

void asIs(EngineHarness&, BackupPair&, TmpfsMount&) {}

const DriveCase rows[] = {
    {"less than 500 MiB refuses even an empty pass",
     499ull << 20,
     0,
     asIs,
     lowSpace,
     {lowSpace},
     {"low disk: Work "}},
    {"what a pass would copy needs 500 MiB of headroom",
     570'000'000,
     60'000'000,
     asIs,
     lowSpace,
     {lowSpace},
     {"low disk: Work "}},
    {"a source on the same drive is not estimated, only the floor counts",
     570'000'000,
     60'000'000,
     [](EngineHarness& h, BackupPair& pair, TmpfsMount& drive) {
         pair.sourceURL = drive.path() / "Projects";
         h.store->updatePair(pair);
     },
     "Backed up 1 file",
     {""},
     {"complete: Work 1 "}},
    {"a partial file of a pass cut off is removed before the room is measured",
     540ull << 20,
     0,
     [](EngineHarness&, BackupPair&, TmpfsMount& drive) {
         writeFile(drive.path() / stale, std::string(60 << 20, 'x'));
     },
     "Backed up 1 file",
     {""},
     {"complete: Work 1 "}},
    {"a drive pulled mid-pass",
     600ull << 20,
     0,
     [](EngineHarness& h, BackupPair& pair, TmpfsMount& drive) {
         for (int i = 0; i < 40; ++i)
             writeFile(pair.sourceURL / ("f" + std::to_string(i)), "data");
         h.fileSystem.afterCopy = [&drive, copies = 0](const fs::path&, const fs::path&) mutable {
             if (++copies == 15) drive.unmount();
         };
     },
     "0 of ",
     {"Backup aborted — a volume disconnected mid-backup. Your existing backups are safe."},
     {"error: Work — Backup aborted — a drive disconnected. Your backups are safe; will retry "
      "later."}},
    {"a drive pulled once the pass has copied",
     600ull << 20,
     0,
     [](EngineHarness& h, BackupPair&, TmpfsMount& drive) {
         h.useVerificationStages([&drive] { drive.unmount(); });
     },
     "Backup drive not connected",
     {"", ""},
     {"volume lost: Work"}},
};

TEST(EngineFaults, APassOnARealDriveThatIsFullOrPulled) {
    QUILLSTOW_REQUIRE_PRIVATE_MOUNTS();
    for (const DriveCase& row : rows) {
        SCOPED_TRACE(row.name);
        EngineHarness h;
        h.volumes.judgeByMounts({(h.root / "media").native() + "/"});
        TmpfsMount drive(h.root / "media/Drive", row.driveBytes);
        BackupPair pair = h.makePair("Work", drive.path());
        row.arrange(h, pair, drive);
        writeFile(pair.sourceURL / "big.bin", "");
        fs::resize_file(pair.sourceURL / "big.bin", row.sourceBytes);
        auto engine = h.makeEngine(pair);
        StatusHistory history(*engine);
        engine->start(pair);
        h.settle();

        std::string outcome;
        for (const auto& status : history.statuses) {
            if (status.kind() != BackupStatus::Case::idle) outcome = status.displayText();
        }
        EXPECT_THAT(outcome, StartsWith(row.outcome));
        EXPECT_THAT(h.eventMessages(), ElementsAreArray(row.events));
        ASSERT_EQ(h.notifier->sent.size(), row.told.size());
        for (std::size_t i = 0; i < row.told.size(); ++i)
            EXPECT_THAT(h.notifier->sent[i], StartsWith(row.told[i]));
        EXPECT_EQ(fs::exists(EngineHarness::mirrorOf(pair) / "big.bin"),
                  row.outcome.starts_with("Backed up"));
        EXPECT_FALSE(fs::exists(drive.path() / stale));
        if (!h.volumes.isDestinationReachable(drive.path())) {
            EXPECT_TRUE(fs::is_empty(drive.path())) << "nothing written to the bare mount point";
        }
    }
}

}  // namespace
}  // namespace quillstow
