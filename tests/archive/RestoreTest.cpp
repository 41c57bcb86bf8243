// Putting files back: what a backup and the dated archive list, and the restore, which replaces a
// user's file only by a whole copy renamed over it, never writes outside the chosen folder, and
// leaves no temporary behind.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include "TestTree.hpp"
#include "archive/DeletedFiles.hpp"
#include "archive/FileRestorer.hpp"
#include "copy/DeletionArchive.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "model/Results.hpp"
#include "support/Uuid.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;
using Paths = std::vector<std::string>;

TEST(RestoreListing, SafeRelativePathIsStrictlyBelowTheRoot) {
    struct Case {
        const char* name;
        const char* filePath;
        const char* rootPath;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {"file below", "/b/Work/a/x.txt", "/b/Work", "a/x.txt"},
        {"two dots inside a deeper name", "/b/Work/a/..data", "/b/Work", "a/..data"},
        {"the root itself", "/b/Work/", "/b/Work", std::nullopt},
        {"a sibling sharing the prefix", "/b/Workshop/x.txt", "/b/Work", std::nullopt},
        {"double slash", "/b/Work//x.txt", "/b/Work", std::nullopt},
        {"climbs in the middle", "/b/Work/a/../../x.txt", "/b/Work", std::nullopt},
        {"a name starting with two dots", "/b/Work/..data", "/b/Work", std::nullopt},
        {"ends climbing", "/b/Work/a/..", "/b/Work", std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(safeRelativePath(c.filePath, c.rootPath), c.expected);
    }
}

TEST(RestoreListing, ListsRegularFilesOnlyInFinderOrderOrNothing) {
    TemporaryFolder root;
    const fs::path backup = root / "drive/Quillstow/Work";
    writeFile(backup / "track10.wav", "10");
    writeFile(backup / "track2.wav", "2");
    writeFile(backup / "Notes.txt", "n");
    writeFile(backup / "a/notes.txt", "nn");
    for (const char* hidden : {".data", "..data", ".quillstow-hashes.json", ".hidden/inside.txt"})
        writeFile(backup / hidden, "hidden");
    writeFile(root / "outside.txt", "outside");
    makeLink(backup / "link.txt", root / "outside.txt");
    makeLink(backup / "linkedFolder", root / "drive");
    ASSERT_EQ(::mkfifo((backup / "pipe").c_str(), 0600), 0);
    // The backup reached through a link of its own is the same backup.
    makeLink(root / "alias", backup);

    const auto items = scanBackup(root / "alias");
    Paths listed;
    for (const auto& item : items)
        listed.push_back(item.relativePath + " " + std::to_string(item.fileSize));
    EXPECT_EQ(listed, (Paths{"a/notes.txt 2", "Notes.txt 1", "track2.wav 1", "track10.wav 2"}));
    EXPECT_TRUE(scanBackup(root / "not-there").empty());
}

// A restore from a backup into the user's folder, on /dev/shm where it can: a restore flushes
// its volume, which on a busy disk is slow.
struct Restore {
    TemporaryFolder root{fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::path()};
    fs::path backup = root / "drive/Quillstow/Work";
    fs::path target = root / "home/Work";
    FaultyFileSystem fileSystem;
    std::stop_source stop;
    RestoreProgressCallback onProgress;

    std::vector<RestoreJob> jobsFor(const Paths& relativePaths) const {
        std::vector<RestoreJob> jobs;
        for (const auto& relative : relativePaths)
            jobs.push_back(
                {backup / relative, relative, std::int64_t(fs::file_size(backup / relative))});
        return jobs;
    }
    RestoreOutcome run(const std::vector<RestoreJob>& jobs) {
        return restoreFiles(fileSystem, jobs, target, onProgress, stop.get_token());
    }
};

// Each flush of a whole volume this program asks for.
std::atomic<int> volumeFlushes{0};

TEST(FileRestorer, PutsBackMoreFilesThanOneFlushHoldsWithTheirFoldersAndMetadata) {
    Restore r;
    Paths paths{"a/b/deep.txt", "top.txt"};
    Files expected{{"a/b/deep.txt", "deep"}, {"top.txt", "new top"}};
    writeFile(r.backup / "a/b/deep.txt", "deep", referenceDate());
    writeFile(r.backup / "top.txt", "new top");
    ASSERT_EQ(::chmod((r.backup / "top.txt").c_str(), 0640), 0);
    writeFile(r.target / "top.txt", "old top");
    for (int i = 0; i < 600; ++i) {
        const std::string name = "folder" + std::to_string(i % 7) + "/f" + std::to_string(i);
        writeFile(r.backup / name, name);
        paths.push_back(name);
        expected[name] = name;
    }
    const int flushesBefore = volumeFlushes;
    EXPECT_EQ(r.run(r.jobsFor(paths)).message(), "602 files restored successfully.");
    EXPECT_EQ(volumeFlushes - flushesBefore, 3) << "one flush before each batch of renames";
    EXPECT_EQ(filesBelow(r.target), expected) << "every file, and no temporary";
    EXPECT_EQ(modificationDate(r.target / "a/b/deep.txt"), referenceDate());
    EXPECT_EQ(fs::status(r.target / "top.txt").permissions(),
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
}

TEST(FileRestorer, AFileThatCannotBePlacedSafelyFailsAloneAndTouchesNothing) {
    Restore r;
    const fs::path outside = r.root / "outside";
    writeFile(outside / "a.txt", "outside a");
    writeFile(outside / "secret.txt", "outside secret");
    const Paths paths{"docs/a.txt", "secret.txt", "blocked/two.txt", "fine.txt"};
    for (const auto& path : paths)
        writeFile(r.backup / path, "backup");
    makeLink(r.target / "docs", outside);                       // a link for a folder
    makeLink(r.target / "secret.txt", outside / "secret.txt");  // a link for the file
    writeFile(r.target / "blocked", "the user's");              // a file for a folder
    auto jobs = r.jobsFor(paths);
    for (const char* climbing : {"../escaped.txt", "/etc/x", ""})
        jobs.push_back({r.backup / "fine.txt", climbing, 6});

    EXPECT_EQ(r.run(jobs).message(), "Error: Restored 1 files. 6 files failed.");
    EXPECT_EQ(filesBelow(outside),
              (Files{{"a.txt", "outside a"}, {"secret.txt", "outside secret"}}));
    EXPECT_EQ(filesBelow(r.root / "home"),
              (Files{{"Work/blocked", "the user's"}, {"Work/fine.txt", "backup"}}));
    EXPECT_TRUE(fs::is_symlink(r.target / "secret.txt"));
}

TEST(FileRestorer, AnUnfinishedCopyLeavesTheUsersFileWholeAndNoTemporary) {
    const std::string big(3 << 20, 'n');  // two chunks and more
    struct Case {
        const char* name;
        std::function<void(Restore&)> arrange;
        const char* message;
        Files after;
    };
    const Case cases[] = {
        {"the source shrinks between chunks",
         [](Restore& r) {
             r.fileSystem.afterChunk = [&r](std::int64_t) {
                 fs::resize_file(r.backup / "big.bin", 1 << 20);
                 r.fileSystem.afterChunk = nullptr;
             };
         },
         "Error: Restored 1 files. 1 file failed.",
         {{"big.bin", "old"}, {"next.txt", "next"}}},
        {"a chunk fails",
         [](Restore& r) { r.fileSystem.failNext(FaultyFileSystem::Operation::copyChunk, EIO); },
         "Error: Restored 1 files. 1 file failed.",
         {{"big.bin", "old"}, {"next.txt", "next"}}},
        {"its temporary taken away before the swap",
         [](Restore& r) {
             r.onProgress = [&r](const RestoreProgress& p) {
                 if (p.filesDone != 1) return;
                 for (const auto& entry : fs::directory_iterator(r.target)) {
                     if (entry.path().filename().native().starts_with(".big.bin.restore-"))
                         fs::remove(entry.path());
                 }
             };
         },
         "Error: Restored 1 files. 1 file failed.",
         {{"big.bin", "old"}, {"next.txt", "next"}}},
        {"a cancel inside the file",
         [](Restore& r) {
             r.fileSystem.afterChunk = [&r](std::int64_t) { r.stop.request_stop(); };
         },
         "Restore cancelled. 0 files restored successfully.",
         {{"big.bin", "old"}}},
        {"a cancel between files",
         [](Restore& r) {
             r.onProgress = [&r](const RestoreProgress& p) {
                 if (p.filesDone == 1) r.stop.request_stop();
             };
         },
         "Restore cancelled. 1 file restored successfully.",
         {{"big.bin", big}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Restore r;
        writeFile(r.backup / "big.bin", big);
        writeFile(r.backup / "next.txt", "next");
        writeFile(r.target / "big.bin", "old");
        c.arrange(r);
        EXPECT_EQ(r.run(r.jobsFor({"big.bin", "next.txt"})).message(), c.message);
        EXPECT_TRUE(filesBelow(r.target) == c.after) << "the target holds something else";
    }
}

TEST(FileRestorer, MakesAMissingDestinationUnlessItsDriveIsNotThere) {
    Restore r;
    writeFile(r.backup / "docs/a.txt", "a");
    // The original folder was lost: the restore puts it back with the folders above it.
    r.target = r.root / "gone/Documents";
    EXPECT_EQ(r.run(r.jobsFor({"docs/a.txt"})).message(), "1 file restored successfully.");
    EXPECT_EQ(readFile(r.target / "docs/a.txt"), "a");

    // Below a removable-media root with no drive mounted, making it would fill the system disk.
    struct stat mnt {
    }, top{};
    if (::stat("/mnt", &mnt) == 0 && ::stat("/", &top) == 0 && mnt.st_dev != top.st_dev)
        GTEST_SKIP() << "a drive is mounted at /mnt";
    r.target = "/mnt/quillstow-unplugged-" + Uuid::random().text() + "/Photos";
    EXPECT_EQ(r.run(r.jobsFor({"docs/a.txt"})).message(),
              "Error: Restored 0 files. 1 file failed.");
    EXPECT_FALSE(fs::exists(r.target.parent_path()));
}

TEST(DeletedFiles, RecoversTheNewerOfTwoCopiesOfADayAndLeavesTheArchiveAsItWas) {
    TemporaryFolder root;
    const fs::path mirror = root / "drive/Quillstow/Work", trash = root / "drive/.Quillstow-Trash";
    FaultyFileSystem fileSystem;
    // The pass's own archive step: the file, as the mirror holds it now, leaves today.
    const auto deleteFile = [&](const std::string& relativePath, const std::string& content) {
        writeFile(mirror / relativePath, content);
        ArchiveMover mover(fileSystem, transfer::MirrorRoot::at(mirror), trash, referenceDate());
        BackupResult result;
        ASSERT_EQ(mover.move(relativePath, result), ArchiveMover::Outcome::moved);
    };
    deleteFile("report.txt", "morning");
    deleteFile("report.txt", "afternoon");
    // A user's own name of the same shape, with nothing beside it, is no variant.
    deleteFile("notes-0A1B2C3D.txt", "notes");
    // Only what lies in day folders counts, and neither hidden entries nor links.
    const std::string day = datedFolderName(referenceDate());
    writeFile(trash / "not-a-day/b.txt", "b");
    writeFile(trash / day / ".hidden", "h");
    makeLink(trash / day / "link.txt", root / "elsewhere");
    const auto archiveBefore = filesBelow(trash);

    auto items = scanArchive(trash);
    Paths listed;
    for (const auto& item : items)
        listed.push_back(item.day + " " + item.file.relativePath + (item.wasRenamed ? " (2)" : ""));
    EXPECT_EQ(listed,
              (Paths{day + " notes-0A1B2C3D.txt", day + " report.txt (2)", day + " report.txt"}))
        << "the later copy first, under the taken-name variant";
    ASSERT_TRUE(items.size() == 3 && items[1].deletedAt && items[2].deletedAt);
    EXPECT_GE(*items[1].deletedAt, *items[2].deletedAt);
    EXPECT_TRUE(scanArchive(root / "no-archive").empty());

    // Both selected: one name can hold one of them, the newer.
    items[1].file.isSelected = items[2].file.isSelected = true;
    makeFolder(root / "chosen");
    EXPECT_EQ(restoreFiles(fileSystem, recoveryJobs(items, trash), root / "chosen").restored, 1);
    EXPECT_EQ(filesBelow(root / "chosen"), (Files{{"report.txt", "afternoon"}}));
    EXPECT_EQ(filesBelow(trash), archiveBefore);
}

}  // namespace
}  // namespace quillstow

// Stands in for the C library's syncfs in this test program, and passes every call on.
extern "C" int syncfs(int fd) noexcept {
    ++quillstow::volumeFlushes;
    return int(::syscall(SYS_syncfs, fd));
}
