// Verification on a real drive: one pulled out while the hash database is pruned.

#include <gtest/gtest.h>

#include "PrivateMounts.hpp"
#include "TestTree.hpp"
#include "support/FileInfo.hpp"
#include "support/ManualClocks.hpp"
#include "verify/IntegrityVerifier.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

// The folder is tested again after every hundred removals: a drive gone meanwhile can't empty
// the database.
TEST(VerifyFaults, ADrivePulledWhilePruningCostsAtMostAHundredEntries) {
    QUILLSTOW_REQUIRE_PRIVATE_MOUNTS();
    TemporaryFolder root;
    ManualWallClock wallClock{Date{std::chrono::seconds(1'700'000'000)}};
    TmpfsMount drive(root / "drive", 16 << 20);
    const fs::path backup = drive.path() / "Quillstow/Work";
    std::vector<std::string> copied;
    for (int i = 0; i < 250; ++i) {
        copied.push_back("f" + std::to_string(1000 + i));
        writeFile(backup / copied.back(), "data");
    }
    HashDatabase database;
    IntegrityVerifier(wallClock).recordHashes(database, copied, backup, {});

    int tests = 0;
    IntegrityVerifier verifier(wallClock, [&](const fs::path& folder) {
        const bool isThere = files::isFolder(folder);
        // Pulled right after the test at the start of the walk.
        if (++tests == 2) drive.unmount();
        return isThere;
    });
    EXPECT_EQ(verifier.pruneStaleEntries(database, backup), 100);
    EXPECT_EQ(tests, 3);
    EXPECT_EQ(database.size(), 150u);
}

}  // namespace
}  // namespace quillstow
