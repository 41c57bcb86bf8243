// Filing a project into its year: the proven copy under its final name; the proof that catches
// a changed size and names the file; a failed copy left under its name for the next attempt to
// meet; a stop that leaves no half-filed project, and what it left swept by the next filing;
// progress from inside a big file and from the walks; two filings at once; and the endings of
// the filer's own rules, each leaving the original as it was.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <set>

#include "PrivateMounts.hpp"
#include "ProjectFolders.hpp"
#include "TestTree.hpp"
#include "archive/ProjectFiler.hpp"
#include "archive/StagingFolder.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "copy/StreamedCopy.hpp"
#include "support/FileInfo.hpp"
#include "support/ManualClocks.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::StartsWith;
namespace fs = std::filesystem;

// Moves a second on every reading, so no report is held back as too soon.
class TickingClock final : public Clock {
  public:
    double now() const override { return seconds_ += 1; }

  private:
    mutable std::atomic<double> seconds_{0};
};

// Everything below a folder, files with their content and folders by name: what "as it was"
// means for an original.
std::map<std::string, std::string> snapshotOf(const fs::path& root) {
    std::map<std::string, std::string> items;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const auto relative = fs::relative(entry.path(), root).native();
        items[relative] = entry.is_regular_file() ? readFile(entry.path()) : std::string("/");
    }
    return items;
}

std::size_t entriesIn(const fs::path& folder) {
    return std::size_t(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

struct Filing {
    TemporaryFolder root;
    FaultyFileSystem fileSystem;
    ManualWallClock wallClock{referenceDate()};
    TickingClock clock;
    ProjectFiler filer{fileSystem, ProjectManifestWriter(), wallClock, clock};

    fs::path archive() const { return root / "Archive"; }
    ProjectFilingPlan planFor(const fs::path& project, int year, const std::string& name) const {
        return {project, archive() / std::to_string(year) / name, year, name};
    }
};

TEST(ProjectFiler, FilesAFilmUnderItsYearAndProvesIt) {
    Filing f;
    const auto project = makeFilmProject(f.root.path());
    const auto before = snapshotOf(project);
    std::vector<double> fractions;
    const auto plan = f.planFor(project, 2023, "Spring Campaign");
    const auto outcome = f.filer.file(
        plan, [&](double fraction, const std::string&) { fractions.push_back(fraction); });

    EXPECT_TRUE(outcome.isSuccess()) << ProjectFiler::summary(outcome);
    EXPECT_EQ(outcome.filesCopied, 8u);
    EXPECT_GT(outcome.bytesCopied, 4000);
    EXPECT_EQ(ProjectFiler::summary(outcome),
              "Filed \"Spring Campaign\" into 2023. All 8 files copied and checked — the original "
              "is safe to clear whenever you like.");
    auto copied = filesBelow(plan.destination);
    EXPECT_EQ(copied.erase(".quillstow-manifest.json"), 1u);
    EXPECT_EQ(copied, filesBelow(project));
    EXPECT_EQ(snapshotOf(project), before);
    EXPECT_EQ(entriesIn(f.archive() / "2023"), 1u) << "no hidden copy left beside it";
    ASSERT_FALSE(fractions.empty());
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_GE(fractions.front(), 0.0);
    EXPECT_LE(fractions.back(), 1.0);
}

TEST(ProjectFiler, HoldsBackReportsThatComeWithinATenthOfASecond) {
    TemporaryFolder root;
    const auto project = makeFilmProject(root.path());
    LocalFileSystem fileSystem;
    const ManualWallClock wallClock(referenceDate());
    ManualClock frozen;
    const ProjectFiler filer(fileSystem, ProjectManifestWriter(), wallClock, frozen);
    std::vector<std::string> texts;
    const auto outcome =
        filer.file({project, root / "A/2023/P", 2023, "P"},
                   [&](double, const std::string& text) { texts.push_back(text); });
    EXPECT_TRUE(outcome.isSuccess());
    EXPECT_EQ(texts.size(), 1u) << "time stood still after the first";
}

TEST(ProjectFiler, CatchesAChangedSizeNamesTheFileAndLeavesTheCopyForTheNextAttempt) {
    Filing f;
    const auto project = makeFilmProject(f.root.path());
    const auto before = snapshotOf(project);
    f.filer.setBeforeProof([](const fs::path& copy) {
        auto bytes = readFile(copy / "3 Media/A001.mov");
        bytes.erase(1500, 1);
        writeFile(copy / "3 Media/A001.mov", bytes);
    });
    const auto plan = f.planFor(project, 2023, "Spring Campaign");
    const auto outcome = f.filer.file(plan, nullptr);

    EXPECT_FALSE(outcome.isSuccess());
    ASSERT_TRUE(outcome.check);
    EXPECT_THAT(outcome.check->wrongSize, ElementsAre("3 Media/A001.mov"));
    EXPECT_THAT(outcome.check->missing, IsEmpty());
    EXPECT_EQ(ProjectFiler::summary(outcome),
              "Copied \"Spring Campaign\" into 2023, but the copy doesn't match: 1 file is a "
              "different size than when this was archived. The original has been left alone.");
    EXPECT_EQ(snapshotOf(project), before);
    // What was copied stands under its name, and nothing hidden beside it.
    EXPECT_TRUE(files::exists(plan.destination / "3 Media/A001.mov"));
    EXPECT_EQ(entriesIn(f.archive() / "2023"), 1u);

    f.filer.setBeforeProof(nullptr);
    const auto again = f.filer.file(plan, nullptr);
    EXPECT_EQ(ProjectFiler::summary(again),
              "There's already something filed as \"Spring Campaign\" in 2023. Nothing was "
              "changed — rename one of them first.");
}

struct StopCase {
    const char* label;
    std::function<bool(double fraction, const std::string& text)> stopsAt;
};

TEST(ProjectFiler, LeavesNoHalfFiledProjectWhenStoppedAndSweepsWhatItLeftNextTime) {
    const StopCase cases[] = {
        {"before it begins", nullptr},
        {"in the walk of the original", [](double, const std::string&) { return true; }},
        {"half way through the copy", [](double fraction, const auto&) { return fraction >= 0.5; }},
        {"in the proof", [](double fraction, const auto&) { return fraction >= 1; }},
    };
    for (const auto& each : cases) {
        Filing f;
        const auto project = makeFilmProject(f.root.path());
        for (int i = 0; i < 40; ++i)
            writeFile(project / "3 Media/more" / std::to_string(i), std::string(100, 'x'));
        makeFolder(f.archive() / "2023");
        const auto before = snapshotOf(project);
        std::stop_source stop;
        if (!each.stopsAt) stop.request_stop();
        int reportsAfterStop = 0;
        const auto plan = f.planFor(project, 2023, "Spring Campaign");
        std::optional<std::string> told;
        const auto outcome = f.filer.file(
            plan,
            [&](double fraction, const std::string& text) {
                if (stop.stop_requested()) ++reportsAfterStop;
                if (each.stopsAt(fraction, text)) stop.request_stop();
            },
            stop.get_token(),
            [&](const ProjectFilingOutcome& ended) { told = ProjectFiler::summary(ended); });

        ASSERT_TRUE(stop.stop_requested()) << each.label;
        EXPECT_EQ(ProjectFiler::summary(outcome),
                  "Couldn't copy \"Spring Campaign\": The operation was cancelled. The original "
                  "has been left alone.")
            << each.label;
        EXPECT_FALSE(outcome.check) << each.label;
        EXPECT_EQ(told, ProjectFiler::summary(outcome)) << each.label;
        EXPECT_LE(reportsAfterStop, 1) << each.label;
        EXPECT_FALSE(files::exists(plan.destination)) << each.label;
        EXPECT_TRUE(holdsOnlyHidden(f.archive() / "2023")) << each.label;
        EXPECT_EQ(snapshotOf(project), before) << each.label;

        // The clock ticks a second a reading, so the moment of removing after the stop ran out
        // at once: the next filing into the year sweeps what stayed.
        EXPECT_TRUE(f.filer.file(plan, nullptr).isSuccess()) << each.label;
        EXPECT_EQ(entriesIn(f.archive() / "2023"), 1u) << each.label;
    }
}

// A file as large as the copy streams, in chunks of a mebibyte.
void writeBigFile(const fs::path& path) {
    writeFile(path, std::string(std::size_t(streamThreshold), 'v'));
}

TEST(ProjectFiler, ReportsFromInsideABigFileAndStopsThere) {
    Filing f;
    const auto project = f.root / "Big Finish";
    writeBigFile(project / "6 Finals/master.mov");
    writeFile(project / "1 Documents/notes.txt", "notes");
    const auto before = snapshotOf(project);
    // The file's own progress, chunk by chunk, up to a stop in its middle; that each chunk is
    // reported to the end is the streamed copy's own test.
    std::stop_source stop;
    int chunksBeforeStop = 0;
    int reportsAfterStop = 0;
    const auto plan = f.planFor(project, 2024, "Big Finish");
    const auto stopped = f.filer.file(
        plan,
        [&](double, const std::string& text) {
            if (stop.stop_requested()) ++reportsAfterStop;
            if (text.starts_with("master.mov (") && ++chunksBeforeStop == 3) stop.request_stop();
        },
        stop.get_token());
    EXPECT_EQ(chunksBeforeStop, 3);
    EXPECT_LE(reportsAfterStop, 1) << "no more than a chunk after the stop";
    EXPECT_FALSE(stopped.isSuccess());
    EXPECT_FALSE(files::exists(plan.destination));
    EXPECT_TRUE(holdsOnlyHidden(f.archive() / "2024"));
    EXPECT_EQ(snapshotOf(project), before);
}

TEST(ProjectFiler, CutsBigFilesDownStepByStepAndOnceStoppedRemovesOnlySmallOnes) {
    for (const bool stopped : {false, true}) {
        TemporaryFolder root;
        const auto copy = root / ".quillstowtmp-0123ABCD-Cut";
        writeBigFile(copy / "3 Media/A001.mov");
        writeFile(copy / "1 Documents/notes.txt", "notes");
        writeFile(copy / "3 Media/B001.mov", std::string(1 << 20, 'b'));
        std::stop_source stop;
        if (stopped) stop.request_stop();
        const ManualClock frozen;
        std::multiset<std::string> removed;
        const bool gone = removeWithinGrace(copy, stop.get_token(), frozen, 0.25,
                                            [&](const auto& name) { removed.insert(name); });
        EXPECT_EQ(gone, !stopped);
        EXPECT_EQ(files::exists(copy / "3 Media/A001.mov"), stopped);
        EXPECT_FALSE(files::exists(copy / "3 Media/B001.mov"));
        EXPECT_FALSE(files::exists(copy / "1 Documents"));
        // The big one is cut down a step before it goes.
        EXPECT_EQ(removed.count("A001.mov"), stopped ? 0u : 2u);
        EXPECT_EQ(removed.count("notes.txt"), 1u);
    }
}

TEST(ProjectFiler, RemovingALeftoverNeverReachesWhatIsNotItsOwn) {
    TemporaryFolder root;
    const auto copy = root / ".quillstowtmp-0123ABCD-Shared";
    // A deduplicating tool linked the copy of a big file to the original.
    writeBigFile(root / "Original/A001.mov");
    makeFolder(copy);
    fs::create_hard_link(root / "Original/A001.mov", copy / "A001.mov");
    // And a leftover that is a link to the original's folder.
    const auto linked = root / ".quillstowtmp-4567CDEF-Linked";
    fs::create_directory_symlink(root / "Original", linked);
    const ManualClock frozen;
    EXPECT_TRUE(removeWithinGrace(copy, {}, frozen, 0.25));
    EXPECT_TRUE(removeWithinGrace(linked, {}, frozen, 0.25));
    EXPECT_FALSE(files::exists(copy));
    EXPECT_FALSE(fs::is_symlink(linked));
    EXPECT_EQ(fs::file_size(root / "Original/A001.mov"), std::uintmax_t(streamThreshold))
        << "the original kept every byte";
}

TEST(ProjectFiler, NamesEachFileAsItWalksTheOriginalAndTheProof) {
    Filing f;
    const auto project = f.root / "Stills";
    std::set<std::string> names;
    for (int i = 0; i < 30; ++i) {
        names.insert("IMG_" + std::to_string(i) + ".jpg");
        writeFile(project / "3 Media" / ("IMG_" + std::to_string(i) + ".jpg"), "jpeg");
    }
    bool proving = false;
    f.filer.setBeforeProof([&](const fs::path&) { proving = true; });
    std::vector<std::pair<double, std::string>> walked, proved;
    const auto outcome = f.filer.file(f.planFor(project, 2023, "Stills"),
                                      [&](double fraction, const std::string& text) {
                                          (proving ? proved : walked).emplace_back(fraction, text);
                                      });
    ASSERT_TRUE(outcome.isSuccess());
    ASSERT_GE(walked.size(), 30u);
    std::set<std::string> first;
    for (std::size_t i = 0; i < 30; ++i) {
        EXPECT_EQ(walked[i].first, 0.0) << walked[i].second;
        first.insert(walked[i].second);
    }
    EXPECT_EQ(first, names) << "the walk of the original comes before the copy";
    std::set<std::string> checked;
    for (const auto& [fraction, text] : proved) {
        EXPECT_EQ(fraction, 1.0) << text;
        checked.insert(text);
    }
    EXPECT_EQ(checked, names);
}

TEST(ProjectFiler, TwoFilingsAtOnceNeverSweepOrReplaceEachOther) {
    Filing f;
    const auto project = makeFilmProject(f.root.path());
    const auto plan = f.planFor(project, 2023, "Spring Campaign");

    // The first holds between its copy and its proof while two more run.
    std::promise<void> reached, opened;
    ProjectFiler held{f.fileSystem, ProjectManifestWriter(), f.wallClock, f.clock};
    held.setBeforeProof([&](const fs::path&) {
        reached.set_value();
        opened.get_future().wait();
    });
    auto first = std::async(std::launch::async, [&] { return held.file(plan, nullptr); });
    reached.get_future().wait();
    // What a filing stopped long ago left behind, as far as anyone can tell.
    writeFile(f.archive() / "2023/.quillstowtmp-0123ABCD-Old/3 Media/A001.mov", "partial");
    EXPECT_TRUE(f.filer.file(plan, nullptr).isSuccess()) << "the second under the same name";
    EXPECT_TRUE(files::exists(f.archive() / "2023/.quillstowtmp-0123ABCD-Old"))
        << "not swept while another filing runs in the year";
    opened.set_value();
    EXPECT_EQ(ProjectFiler::summary(first.get()),
              "There's already something filed as \"Spring Campaign\" in 2023. Nothing was "
              "changed — rename one of them first.");
    EXPECT_EQ(entriesIn(f.archive() / "2023"), 2u) << "the filed project and the old leftover";

    EXPECT_TRUE(f.filer.file(f.planFor(project, 2023, "Other"), nullptr).isSuccess());
    EXPECT_FALSE(files::exists(f.archive() / "2023/.quillstowtmp-0123ABCD-Old"))
        << "swept by a filing alone in the year";
    EXPECT_EQ(entriesIn(f.archive() / "2023"), 2u);
}

struct EndingCase {
    const char* label;
    std::function<void(const fs::path& project, const fs::path& destination)> arrange;
    const char* summary;
    bool filled;
};

TEST(ProjectFiler, EndsEachWayInItsOwnWords) {
    const EndingCase cases[] = {
        {"the source went", [](const auto& project, const auto&) { fs::remove_all(project); },
         "Couldn't find \"Cut\" to file. It may have been moved or renamed.", false},
        {"an empty folder waits",
         [](const auto&, const auto& destination) { makeFolder(destination); },
         "Filed \"Cut\" into 2024. All 1 file copied and checked — the original is safe to clear "
         "whenever you like.",
         true},
        {"only hidden entries wait",
         [](const auto&, const auto& destination) { writeFile(destination / ".DS_Store", "d"); },
         "Filed \"Cut\" into 2024. All 1 file copied and checked — the original is safe to clear "
         "whenever you like.",
         true},
        {"a visible file waits",
         [](const auto&, const auto& destination) { writeFile(destination / "notes", "n"); },
         "There's already something filed as \"Cut\" in 2024. Nothing was changed — rename one of "
         "them first.",
         false},
        {"a plain file stands there",
         [](const auto&, const auto& destination) { writeFile(destination, "n"); },
         "There's already something filed as \"Cut\" in 2024. Nothing was changed — rename one of "
         "them first.",
         false},
        {"the year is a file",
         [](const auto&, const auto& destination) { writeFile(destination.parent_path(), "n"); },
         "Couldn't create the folder for 2024: Not a directory", false},
    };
    for (const auto& each : cases) {
        Filing f;
        writeFile(f.root / "Cut/6 Finals/cut.mp4", "final");
        const auto plan = f.planFor(f.root / "Cut", 2024, "Cut");
        each.arrange(plan.source, plan.destination);
        const auto waiting = files::exists(plan.destination) && fs::is_directory(plan.destination)
                                 ? snapshotOf(plan.destination)
                                 : std::map<std::string, std::string>();
        const auto outcome = f.filer.file(plan, nullptr);
        EXPECT_EQ(ProjectFiler::summary(outcome), each.summary) << each.label;
        EXPECT_EQ(outcome.isSuccess(), each.filled) << each.label;
        if (each.filled) {
            EXPECT_EQ(readFile(plan.destination / "6 Finals/cut.mp4"), "final") << each.label;
            for (const auto& [path, content] : waiting)
                EXPECT_EQ(readFile(plan.destination / path), content) << each.label;
        } else if (fs::is_directory(plan.destination)) {
            EXPECT_EQ(snapshotOf(plan.destination), waiting) << each.label << ": left untouched";
        }
    }
}

TEST(ProjectFiler, FilesOntoADriveOnlyWhileItIsThere) {
    QUILLSTOW_REQUIRE_PRIVATE_MOUNTS();
    if (!fs::is_directory("/mnt")) GTEST_SKIP() << "no /mnt, where drives are mounted";
    Filing f;
    writeFile(f.root / "Cut/6 Finals/cut.mp4", "final");
    const TemporaryFolder mountPoint("/mnt");
    const ProjectFilingPlan plan{f.root / "Cut", mountPoint / "Archive/2024/Cut", 2024, "Cut"};

    const auto absent = f.filer.file(plan, nullptr);
    EXPECT_EQ(ProjectFiler::summary(absent), "Couldn't create the folder for 2024: No such device");
    EXPECT_TRUE(fs::is_empty(mountPoint.path())) << "nothing written onto the system's disk";

    const testing::TmpfsMount drive(mountPoint.path(), 1 << 20);
    EXPECT_TRUE(f.filer.file(plan, nullptr).isSuccess());
    EXPECT_EQ(readFile(plan.destination / "6 Finals/cut.mp4"), "final");
}

TEST(ProjectFiler, NeverMakesAFolderInsideTheOriginal) {
    Filing f;
    const auto project = makeCodeBase(f.root.path());
    const auto before = snapshotOf(project);
    const ProjectFilingPlan plan{project, project / "Archive/2024/toolkit", 2024, "toolkit"};
    const auto outcome = f.filer.file(plan, nullptr);
    EXPECT_FALSE(outcome.isSuccess());
    EXPECT_THAT(ProjectFiler::summary(outcome), StartsWith("Couldn't copy \"toolkit\": "));
    EXPECT_THAT(ProjectFiler::summary(outcome), EndsWith(" The original has been left alone."));
    EXPECT_EQ(snapshotOf(project), before);
}

TEST(ProjectFiler, ReportsWhatTheCopyLeftOutAheadOfTheMismatch) {
    // The copy prunes node_modules while the manifest lists its files.
    Filing f;
    const auto project = makeCodeBase(f.root.path());
    const auto pruned = f.filer.file(f.planFor(project, 2024, "toolkit"), nullptr);
    ASSERT_TRUE(pruned.check);
    EXPECT_THAT(
        pruned.check->missing,
        ElementsAre("2 Project Files/.git/HEAD", "2 Project Files/node_modules/left-pad/index.js",
                    "2 Project Files/node_modules/left-pad/package.json"));
    EXPECT_EQ(ProjectFiler::summary(pruned),
              "Copied \"toolkit\" into 2024, but the copy doesn't match: 3 files are missing. The "
              "original has been left alone.");
    EXPECT_TRUE(files::exists(f.archive() / "2024/toolkit/1 Documents/README"))
        << "copied, as it says";

    // A file that can't be copied: its own sentence comes first, whatever the proof says.
    Filing g;
    const auto film = makeFilmProject(g.root.path());
    g.fileSystem.failNext(FaultyFileSystem::Operation::copyItem, EPERM);
    const auto failed = g.filer.file(g.planFor(film, 2023, "Film"), nullptr);
    ASSERT_TRUE(failed.check);
    EXPECT_FALSE(failed.check->passes());
    EXPECT_EQ(ProjectFiler::summary(failed),
              "1 file couldn't be copied. The original has been left alone.");
    EXPECT_TRUE(fs::is_directory(g.archive() / "2023/Film")) << "what was made stays";
}

}  // namespace
}  // namespace quillstow
