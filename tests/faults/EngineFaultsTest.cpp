// A pair's run on real drives: too little room before the pass, for the floor or for what it
// would copy, and a drive pulled in the middle of the pass or once it has copied.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../control/EngineHarness.hpp"
#include "PrivateMounts.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::StartsWith;
namespace fs = std::filesystem;

struct DriveCase {
    const char* name;
    std::uint64_t driveBytes;
    // The source's file, sparse so that it costs no room where it lies.
    std::uint64_t sourceBytes;
    void (*arrange)(EngineHarness&, BackupPair&, TmpfsMount& drive);
    // How the last status other than idle begins; the log; how what the user is told begins.
    std::string outcome;
    std::string events;
    std::string told;
};

const std::string lowSpace = "The backup drive is running low on space.";

void asIs(EngineHarness&, BackupPair&, TmpfsMount&) {}

const DriveCase rows[] = {
    {"a page less than 500 MiB refuses even an empty pass", (500ull << 20) - 4096, 0, asIs,
     lowSpace, lowSpace, "low disk: Work "},
    {"what a pass would copy needs 500 MiB of headroom", 570'000'000, 60'000'000, asIs, lowSpace,
     lowSpace, "low disk: Work "},
    {"room for the floor and what the pass would copy", 600ull << 20, 60'000'000, asIs,
     "Backed up 1 file", "", "complete: Work 1 "},
    {"a drive pulled mid-pass", 600ull << 20, 0,
     [](EngineHarness& h, BackupPair& pair, TmpfsMount& drive) {
         for (int i = 0; i < 40; ++i)
             writeFile(pair.sourceURL / ("f" + std::to_string(i)), "data");
         h.fileSystem.afterCopy = [&drive, copies = 0](const fs::path&, const fs::path&) mutable {
             if (++copies == 15) drive.unmount();
         };
     },
     "0 of ", "Backup aborted — a volume disconnected mid-backup. Your existing backups are safe.",
     "error: Work — Backup aborted — a drive disconnected. Your backups are safe; will retry "
     "later."},
    {"a drive pulled once the pass has copied", 600ull << 20, 0,
     [](EngineHarness& h, BackupPair&, TmpfsMount& drive) {
         h.useVerificationStages([&drive] { drive.unmount(); });
     },
     "Backup drive not connected", " | ", "volume lost: Work"},
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
        std::vector<BackupStatus> seen;
        const Subscription recording = recordStatuses(*engine, seen);
        engine->start(pair);
        h.settle();

        std::string outcome, events;
        for (const auto& status : seen) {
            if (status.kind() != BackupStatus::Case::idle) outcome = status.displayText();
        }
        const auto messages = h.eventMessages();
        for (std::size_t i = 0; i < messages.size(); ++i)
            events += (i ? " | " : "") + messages[i];
        EXPECT_THAT(outcome, StartsWith(row.outcome));
        EXPECT_EQ(events, row.events);
        ASSERT_EQ(h.notifier->sent.size(), 1u);
        EXPECT_THAT(h.notifier->sent[0], StartsWith(row.told));
        EXPECT_EQ(fs::exists(EngineHarness::mirrorOf(pair) / "big.bin"),
                  row.outcome.starts_with("Backed up"));
        if (!h.volumes.isDestinationReachable(drive.path())) {
            EXPECT_TRUE(fs::is_empty(drive.path())) << "nothing written to the bare mount point";
        }
    }
}

}  // namespace
}  // namespace quillstow
