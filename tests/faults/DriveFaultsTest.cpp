// Passes and settings on real drives that fill up, turn read-only or are pulled in the middle:
// small tmpfs mounts in the test's own mount namespace.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <sstream>
#include <utility>

#include "LogCapture.hpp"
#include "Pairs.hpp"
#include "PrivateMounts.hpp"
#include "TestTree.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "copy/FileCopier.hpp"
#include "copy/FileTransfer.hpp"
#include "environment/VolumeSpace.hpp"
#include "model/ConfigStore.hpp"
#include "model/FileUserDefaults.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

class DriveFaultsTest : public ::testing::Test {
  protected:
    void SetUp() override { QUILLSTOW_REQUIRE_PRIVATE_MOUNTS(); }

    TemporaryFolder root;
    fs::path source = root / "source";
};

BackupResult pass(const FileCopier& copier, const fs::path& from, const fs::path& mirror,
                  const FileCopier::ProgressCallback& onProgress = nullptr) {
    return copier.scanAndCopy(from, mirror, mirror.parent_path() / ".Quillstow-Trash",
                              filterForProfile(BackupProfile::standard), onProgress);
}

TEST_F(DriveFaultsTest, AFullDriveFailsOnlyTheFileThatDoesntFitAndKeepsItsOldCopyWhole) {
    struct Case {
        const char* name;
        std::uint64_t driveBytes;
        std::int64_t firstBytes;  // of "a", copied first
        int moreFiles;            // "b0", "b1"... after it
        std::int64_t moreBytes;
        std::int64_t oldCopyBytes;  // of each file, in the mirror before the pass; 0 for none
        std::int64_t leftFree;      // once the old copies are in; 0 for what the drive has
        bool firstFails;
    };
    const Case cases[] = {
        {"a file larger than the drive", 256 << 10, 1 << 20, 1, 4, 40 << 10, 0, true},
        {"updates that fit only one at a time", 8 << 20, 600 << 10, 9, 600 << 10, 500 << 10,
         2'200'000, false},
        // Its head takes the room that the files after it need once it is gone.
        {"a streamed file larger than the drive", 48 << 20, 66 << 20, 20, 1 << 20, 0, 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder root;
        FaultyFileSystem fileSystem;
        const FileCopier copier{fileSystem};
        TmpfsMount drive(root / "drive", c.driveBytes);
        const TmpfsMount sourceDrive(root / "source", 128 << 20);  // spares the disk the writes
        const fs::path source = sourceDrive.path(), mirror = drive.path() / "Quillstow/Work";
        makeFolder(mirror);
        std::vector<std::pair<std::string, std::int64_t>> files{{"a", c.firstBytes}};
        for (int i = 0; i < c.moreFiles; ++i)
            files.emplace_back("b" + std::to_string(i), c.moreBytes);
        for (const auto& [name, size] : files) {
            if (c.oldCopyBytes > 0) {
                writeFile(mirror / name, std::string(std::size_t(c.oldCopyBytes), 'o'),
                          referenceDate());
            }
            writeFile(source / name, std::string(std::size_t(size), 'n'));
        }
        if (c.leftFree > 0) {
            const std::int64_t filler = *volumes::availableCapacity(drive.path()) - c.leftFree;
            writeFile(drive.path() / "filler", std::string(std::size_t(filler), 'f'));
        }

        const BackupResult result = pass(copier, source, mirror);

        ASSERT_EQ(result.errors.size(), c.firstFails ? 1u : 0u);
        if (c.firstFails) {
            EXPECT_EQ(result.errors[0].url, source / "a");
            EXPECT_TRUE(errors::isPosix(result.errors[0].underlying, ENOSPC))
                << result.errors[0].underlying.description;
        }
        EXPECT_EQ(result.copiedFiles, std::int64_t(files.size()) - (c.firstFails ? 1 : 0));
        // At most one more attempt for a file that failed.
        EXPECT_LE(fileSystem.calls(FaultyFileSystem::Operation::copyItem), int(files.size()) + 1);
        for (const auto& [name, size] : files) {
            const bool fails = c.firstFails && name == "a";
            struct stat status {};
            const bool isThere = ::stat((mirror / name).c_str(), &status) == 0;
            EXPECT_EQ(isThere ? status.st_size : 0, fails ? c.oldCopyBytes : size) << name;
        }
        for (const auto& entry : fs::recursive_directory_iterator(mirror))
            EXPECT_FALSE(transfer::isReservedName(entry.path().filename().native()))
                << entry.path();
    }
}

TEST_F(DriveFaultsTest, AReadOnlyDriveHasNothingWrittenOnItWhenItTurnsSoOrBeforeThePass) {
    LocalFileSystem fileSystem;
    const FileCopier copier{fileSystem};
    TmpfsMount drive(root / "drive", 1 << 20);
    const fs::path mirror = drive.path() / "Quillstow/Work";
    writeFile(mirror / "f0", "old", referenceDate());
    for (int i = 0; i < 6; ++i)
        writeFile(source / ("f" + std::to_string(i)), "data");

    // Turned read-only halfway: the copies made before wait for their swap, which the drive now
    // refuses too. Each item fails on its own and the pass goes on.
    const BackupResult result =
        pass(copier, source, mirror, [&](double fraction, const std::string&) {
            if (fraction >= 0.5 && fraction < 0.6) drive.remountReadOnly();
        });
    ASSERT_EQ(result.errors.size(), 6u);
    for (const auto& error : result.errors)
        EXPECT_TRUE(errors::isPosix(error.underlying, EROFS)) << error.underlying.description;
    EXPECT_EQ(readFile(mirror / "f0"), "old");
    for (int i = 1; i < 6; ++i)
        EXPECT_FALSE(fs::exists(mirror / ("f" + std::to_string(i))));

    // Read-only from the start: refused before anything is tried.
    try {
        pass(copier, source, mirror);
        ADD_FAILURE() << "the pass went on";
    } catch (const FileOperationFailure& failure) {
        EXPECT_EQ(failure.error().operation, "validateDestination");
        EXPECT_EQ(failure.error().underlying.code, int(ErrorCode::destinationNotWritable));
    }
}

// However the drive goes, the pass ends at once, nothing is read as deleted, and nothing is
// written to the disk below the drive's mount point.
TEST_F(DriveFaultsTest, APulledDriveEndsThePassAndNeverCostsTheMirrorAFile) {
    struct Case {
        const char* name;
        bool isSource;             // the drive holds the source, else the mirror
        bool isUpToDate;           // a pass before left nothing to copy
        int pullAtReport;          // or at a copy, with the number negated
        int code;                  // of the error that ends the list
        bool movesFolder = false;  // the folder leaves its volume, and no mount changes
    };
    // 200 files in 7 folders: one report for each file.
    const Case cases[] = {
        {"the destination, while copying", false, false, 26, 1007},
        {"the destination, with nothing to copy", false, true, 26, 1007},
        {"the destination, after the last copy and before its swap", false, false, -200, 1007},
        {"the source, with the last item after the last check", true, false, 200, 1006},
        {"the source folder, moved away while copying", true, false, 26, 1006, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder root;
        FaultyFileSystem fileSystem;
        const FileCopier copier{fileSystem};
        auto drive = std::make_unique<TmpfsMount>(root / "drive", 8 << 20);
        const TmpfsMount other(root / "other", 8 << 20);  // spares the disk the flushes
        const fs::path source = c.isSource ? drive->path() / "Projects" : other.path() / "source";
        const fs::path mirror =
            c.isSource ? other.path() / "mirror" : drive->path() / "Quillstow/Work";
        for (int i = 0; i < 200; ++i)
            writeFile(source / ("d" + std::to_string(i % 7)) / std::to_string(i), "data");
        if (c.isUpToDate) {
            ASSERT_EQ(pass(copier, source, mirror).copiedFiles, 200);
        }
        writeFile(mirror / "orphan", "old");

        int reports = 0, copies = 0, pulledAt = -1;
        fileSystem.afterCopy = [&](const fs::path&, const fs::path&) {
            if (++copies == -c.pullAtReport) drive->unmount();
        };
        const BackupResult result = pass(copier, source, mirror, [&](double, const std::string&) {
            if (++reports != c.pullAtReport) return;
            if (c.movesFolder) {
                fs::rename(source, drive->path() / "Moved");
            } else {
                drive->unmount();
            }
            pulledAt = reports;
        });

        EXPECT_TRUE(result.abortedDueToVolumeLoss);
        if (pulledAt > 0) {
            EXPECT_LE(reports - pulledAt, 10);
        }
        ASSERT_FALSE(result.errors.empty());
        EXPECT_EQ(result.errors.back().underlying.code, c.code);
        EXPECT_EQ(result.archivedFiles, 0);
        EXPECT_EQ(fs::exists(mirror / "orphan"), c.isSource);
        if (!c.movesFolder) {
            EXPECT_TRUE(fs::is_empty(root / "drive")) << "the disk below holds nothing new";
        }
    }
}

// Items that can no longer be looked up once the drive is pulled are never taken for items gone
// from the mirror: the archive stops there and says that the drive left.
TEST_F(DriveFaultsTest, OrphansThatVanishWithAPulledDriveStopTheArchive) {
    struct PullAtFirstMove final : ForwardingFileSystem {
        PullAtFirstMove() : ForwardingFileSystem(real) {}
        void moveItem(const ItemRef& from, const ItemRef& to) override {
            ForwardingFileSystem::moveItem(from, to);
            if (pull) std::exchange(pull, nullptr)();
        }
        LocalFileSystem real;
        std::function<void()> pull;
    } fileSystem;
    const FileCopier copier{fileSystem};
    TmpfsMount drive(root / "drive", 8 << 20);
    const fs::path mirror = drive.path() / "Quillstow/Work";
    for (int i = 0; i < 20; ++i)
        writeFile(source / std::to_string(i), "data");
    ASSERT_EQ(pass(copier, source, mirror).copiedFiles, 20);
    for (const char* name : {"0", "1", "2"})
        fs::remove(source / name);
    // A detached mount still answers through the pass's open folders: the items go instead.
    fileSystem.pull = [&] {
        for (const char* name : {"0", "1", "2"})
            fs::remove(mirror / name);
        drive.unmount();
    };

    const BackupResult result = pass(copier, source, mirror);

    EXPECT_TRUE(result.abortedDueToVolumeLoss);
    ASSERT_FALSE(result.errors.empty());
    EXPECT_EQ(result.errors.back().underlying.code, 1007);
    EXPECT_EQ(result.archivedFiles, 1);
}

TEST_F(DriveFaultsTest, AMirrorIsNeverMadeAtTheMountPointOfADriveThatIsNotThere) {
    // A path where removable drives appear, held by the root file system: no drive is there.
    const fs::path mountPoint = "/media/quillstow-test-" + std::to_string(::getpid());
    makeFolder(mountPoint);
    writeFile(source / "a.txt", "a");
    LocalFileSystem fileSystem;
    const FileCopier copier{fileSystem};
    try {
        pass(copier, source, mountPoint / "Quillstow/Work");
        ADD_FAILURE() << "the pass went on";
    } catch (const FileOperationFailure& failure) {
        EXPECT_EQ(failure.error().underlying.code, 1007);
    }
    EXPECT_TRUE(fs::is_empty(mountPoint));
    fs::remove(mountPoint);
}

BackupPair pairNamed(const std::string& name) {
    return pairOf(name, "/home/ana/" + name, "/media/ana/Drive");
}

TEST_F(DriveFaultsTest, ASettingsWriteThatFailsKeepsTheOldFilesWholeAndTheNewStateInMemory) {
    const struct {
        const char* name;
        bool isFull;
        std::int64_t defaultOnDisk;
        const char *failing, *reason;  // the files whose writes fail, and why
    } cases[] = {
        {"read-only", false, 1, "config.json backup-log.json defaults.json",
         "Read-only file system"},
        // Less room than config.json takes, even once the old backup is gone; the rest fits.
        {"full", true, 2, "config.json", "No space left on device"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ManualClock clock;
        VirtualMainQueue queue{clock};
        InMemoryUserDefaults inMemory;
        TmpfsMount settings(root / "settings", 1 << 20);
        const auto file = [&](const char* name) { return readFile(settings.path() / name); };
        ConfigStore store(settings.path(), queue, inMemory);
        FileUserDefaults defaults(settings.path() / "defaults.json");
        defaults.setInteger("Quillstow.tipCounter", 1);
        store.addPair(pairNamed("First"));
        store.flush();
        for (int i = 0; i < 10; ++i)
            store.addPair(pairNamed(std::string(5000, 'n')));
        store.addEvent(BackupEvent{});
        queue.advance(1.0);
        store.flush();
        const std::string backup = file("config.json.backup"), config = file("config.json");
        const std::string eventLog = file("backup-log.json");

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
        defaults.setInteger("Quillstow.tipCounter", 2);

        EXPECT_EQ(store.pairs().size(), 12u);
        EXPECT_EQ(store.events().size(), 2u);
        EXPECT_EQ(defaults.integer("Quillstow.tipCounter"), 2);
        EXPECT_TRUE(file("config.json.backup") == backup);
        EXPECT_TRUE(file("config.json") == config);
        EXPECT_EQ(file("backup-log.json") == eventLog, !c.isFull);
        EXPECT_EQ(
            FileUserDefaults(settings.path() / "defaults.json").integer("Quillstow.tipCounter"),
            c.defaultOnDisk);
        std::istringstream failing(c.failing);
        std::vector<std::string> said, expected;
        for (std::string name; failing >> name;)
            expected.push_back("Failed to write " + name + ": " + c.reason);
        for (const auto& record : log.records())
            said.push_back(record.message);
        EXPECT_EQ(said, expected);
        for (const auto& entry : fs::directory_iterator(settings.path()))
            EXPECT_FALSE(entry.path().filename().native().starts_with(".")) << entry.path();
    }
}

}  // namespace
}  // namespace quillstow
