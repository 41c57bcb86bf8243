// Filing a finished project into its year: the manifest taken of the original and what its check
// finds in a copy, and the filer, which proves the copy against it and only ever reads the
// original. A copy that doesn't match, a stop, or something already filed there each end the
// filing in words for the user, and none of them costs a file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>

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
using Entry = ProjectManifest::Entry;
using Files = std::map<std::string, std::string>;
using Paths = std::vector<std::string>;
namespace fs = std::filesystem;

Date archivedAt() {
    return *dates::parseISO8601("2026-03-01T09:30:00Z");
}

TEST(ProjectManifest, ListsEveryFileWithItsSizeButClutterAndItself) {
    TemporaryFolder root;
    writeFile(root / "P/b/deeper/abc.txt", "abc");
    writeFile(root / "P/a/empty", "");
    writeFile(root / "P/line\nbreak.txt", "hello\n");
    writeFile(root / "P/node_modules/pad/index.js", "pad");  // left out of a copy, not of this
    for (const char* name : {".hidden", "f", "e\u0301b", "\u00e9a"})
        writeFile(root / "P" / name, "x");
    for (const char* clutter :
         {".DS_Store", "deep/Thumbs.db", "deep/desktop.ini", ".quillstow-manifest.json"})
        writeFile(root / "P" / clutter, "{}");
    makeFolder(root / "P/an empty folder");
    makeLink(root / "P/link", root / "P/a/empty");

    // Composed and decomposed accents sort alike.
    EXPECT_THAT(ProjectManifestWriter().scan(root / "P", "P", archivedAt()).files,
                ElementsAre(Entry{".hidden", 1}, Entry{"a/empty", 0}, Entry{"b/deeper/abc.txt", 3},
                            Entry{"f", 1}, Entry{"line\nbreak.txt", 6},
                            Entry{"node_modules/pad/index.js", 3}, Entry{"\u00e9a", 1},
                            Entry{"e\u0301b", 1}));
}

TEST(ProjectManifest, WritesUtcSecondsOverTheLastAndReadsBack) {
    TemporaryFolder root;
    writeFile(root / "P/sub/line\nbreak", "abc");
    const ProjectManifestWriter writer;
    const auto manifest =
        writer.scan(root / "P", "Film: \"Cut\"", archivedAt() + std::chrono::milliseconds(700));
    writer.write(manifest, root / "P");
    writer.write(manifest, root / "P");
    EXPECT_EQ(filesBelow(root / "P").size(), 2u) << "written over, never beside";

    const std::string text = readFile(root / "P/.quillstow-manifest.json");
    EXPECT_NE(text.find("\"2026-03-01T09:30:00Z\""), std::string::npos) << text;
    auto expected = manifest;
    expected.archivedAt = archivedAt();  // whole seconds on disk
    EXPECT_EQ(projectManifestFromJson(json::read(text)), expected);
}

TEST(ProjectManifest, ChecksACopyByPresenceAndSizeOnly) {
    struct Case {
        const char* name;
        const char* changed;
        const char* content;  // none removes it
        const char* found;    // "-" missing, "~" of the wrong size, "+" added
        const char* summary;
    };
    const char* const whole = "All 3 files are present and the right size.";
    const Case cases[] = {
        {"a whole copy", "", "", "", whole},
        {"a file gone", "b/two", nullptr, " -b/two", "1 file is missing."},
        {"a folder gone", "b", nullptr, " -b/three -b/two", "2 files are missing."},
        {"a file grown", "one", "one!", " ~one",
         "1 file is a different size than when this was archived."},
        {"same size, other bytes: no file is opened", "b/two", "B/TWO", "", whole},
        {"a file added", "new", "n", " +new", whole},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder root;
        for (const char* name : {"one", "b/two", "b/three"})
            writeFile(root / name, name);
        const ProjectManifestWriter writer;
        const auto manifest = writer.scan(root.path(), "P", archivedAt());
        if (*c.changed)
            c.content ? writeFile(root / c.changed, c.content)
                      : (void)fs::remove_all(root / c.changed);
        const auto result = writer.check(root.path(), manifest);
        std::string found;
        for (const auto& [mark, paths] :
             {std::pair{" -", result.missing}, {" ~", result.wrongSize}, {" +", result.added}})
            for (const auto& path : paths)
                found += mark + path;
        EXPECT_EQ(found, c.found);
        EXPECT_EQ(result.passes(), std::string_view(c.summary) == whole);
        EXPECT_EQ(ProjectManifestWriter::summary(result), c.summary);
    }
}

// Moves a second on every reading, so no report is held back as too soon, and a stopped
// filing's moment of removing runs out at once.
class TickingClock final : public Clock {
  public:
    double now() const override { return seconds_ += 1; }

  private:
    mutable std::atomic<double> seconds_{0};
};

// Everything below a folder, files with their content and folders by name: what "as it was"
// means.
Files snapshotOf(const fs::path& root) {
    Files items;
    for (const auto& entry : fs::recursive_directory_iterator(root))
        items[fs::relative(entry.path(), root)] =
            entry.is_regular_file() ? readFile(entry.path()) : std::string("/");
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

    ProjectFilingPlan planFor(const fs::path& project, int year, const std::string& name) const {
        return {project, root / "Archive" / std::to_string(year) / name, year, name};
    }
};

TEST(ProjectFiler, AStoppedFilingLeavesNothingUnderItsNameAndTheNextSweepsWhatItLeft) {
    struct Case {
        const char* name;
        std::function<bool(double fraction, const std::string& text)> stopsAt;
    };
    const Case cases[] = {
        {"before it begins", nullptr},
        {"in the walk of the original", [](double, const auto&) { return true; }},
        {"half way through the copy", [](double fraction, const auto&) { return fraction >= 0.5; }},
        {"in the proof", [](double fraction, const auto&) { return fraction >= 1; }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Filing f;
        const auto project = makeFilmProject(f.root.path());
        for (int i = 0; i < 40; ++i)
            writeFile(project / "3 Media/more" / std::to_string(i), std::string(100, 'x'));
        makeFolder(f.root / "Archive/2023");
        const auto before = snapshotOf(project);
        std::stop_source stop;
        if (!c.stopsAt) stop.request_stop();
        const auto plan = f.planFor(project, 2023, "Spring Campaign");
        const auto outcome = f.filer.file(
            plan,
            [&](double fraction, const std::string& text) {
                if (!stop.stop_requested() && c.stopsAt(fraction, text)) stop.request_stop();
            },
            stop.get_token());
        ASSERT_TRUE(stop.stop_requested());
        EXPECT_EQ(ProjectFiler::summary(outcome),
                  "Couldn't copy \"Spring Campaign\": The operation was cancelled. The original "
                  "has been left alone.");
        EXPECT_TRUE(holdsOnlyHidden(f.root / "Archive/2023"));
        EXPECT_EQ(snapshotOf(project), before);
        EXPECT_TRUE(f.filer.file(plan, nullptr).isSuccess());
        EXPECT_EQ(entriesIn(f.root / "Archive/2023"), 1u) << "what the stop left is swept";
    }
}

TEST(ProjectFiler, RemovingALeftoverNeverReachesWhatIsNotItsOwn) {
    TemporaryFolder root;
    const auto copy = root / ".quillstowtmp-0123ABCD-Shared";
    // A deduplicating tool linked the copy of a big file to the original: big files are cut
    // down before they go.
    writeFile(root / "Original/A001.mov", std::string(std::size_t(streamThreshold), 'v'));
    makeFolder(copy);
    fs::create_hard_link(root / "Original/A001.mov", copy / "A001.mov");
    // And a leftover that is a link to the original's folder.
    const auto linked = root / ".quillstowtmp-4567CDEF-Linked";
    fs::create_directory_symlink(root / "Original", linked);
    const ManualClock frozen;
    EXPECT_TRUE(removeWithinGrace(copy, {}, frozen, 0.25));
    EXPECT_TRUE(removeWithinGrace(linked, {}, frozen, 0.25));
    EXPECT_FALSE(files::exists(copy) || files::exists(linked));
    EXPECT_EQ(fs::file_size(root / "Original/A001.mov"), std::uintmax_t(streamThreshold))
        << "the original kept every byte";
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
    const auto leftover = f.root / "Archive/2023/.quillstowtmp-0123ABCD-Old";
    writeFile(leftover / "3 Media/A001.mov", "partial");
    EXPECT_TRUE(f.filer.file(plan, nullptr).isSuccess()) << "the second under the same name";
    EXPECT_TRUE(files::exists(leftover)) << "not swept while another filing runs in the year";
    opened.set_value();
    EXPECT_EQ(ProjectFiler::summary(first.get()),
              "There's already something filed as \"Spring Campaign\" in 2023. Nothing was "
              "changed — rename one of them first.");
    EXPECT_EQ(entriesIn(f.root / "Archive/2023"), 2u) << "the filed project and the leftover";

    EXPECT_TRUE(f.filer.file(f.planFor(project, 2023, "Other"), nullptr).isSuccess());
    EXPECT_FALSE(files::exists(leftover)) << "swept by a filing alone in the year";
}

TEST(ProjectFiler, EndsEachWayInItsOwnWordsAndNeverCostsAFile) {
    const std::string filed =
        "Filed \"Cut\" into 2024. All 8 files copied and checked — the "
        "original is safe to clear whenever you like.";
    const std::string taken =
        "There's already something filed as \"Cut\" in 2024. Nothing was "
        "changed — rename one of them first.";
    const std::string leftAlone = " The original has been left alone.";
    const std::string mismatch = "Copied \"Cut\" into 2024, but the copy doesn't match: ";
    struct Case {
        const char* name;
        std::function<void(Filing& f, ProjectFilingPlan& plan)> arrange;
        std::string summary;
        bool leavesCopy = false;  // under its name, for the next attempt to meet
    };
    const Case cases[] = {
        {"nothing waits", [](auto&, auto&) {}, filed},
        {"an empty folder waits", [](auto&, auto& plan) { makeFolder(plan.destination); }, filed},
        {"only hidden entries wait",
         [](auto&, auto& plan) { writeFile(plan.destination / ".DS_Store", "d"); }, filed},
        {"a visible file waits",
         [](auto&, auto& plan) { writeFile(plan.destination / "notes", "n"); }, taken},
        {"a plain file stands there", [](auto&, auto& plan) { writeFile(plan.destination, "n"); },
         taken},
        {"the source went", [](auto&, auto& plan) { fs::remove_all(plan.source); },
         "Couldn't find \"Cut\" to file. It may have been moved or renamed."},
        {"the year is a file",
         [](auto&, auto& plan) { writeFile(plan.destination.parent_path(), "n"); },
         "Couldn't create the folder for 2024: Not a directory"},
        {"the archive is inside the original",
         [](auto&, auto& plan) { plan.destination = plan.source / "Archive/2024/Cut"; },
         "Couldn't copy \"Cut\": Destination is inside the source folder. Choose a different "
         "destination." +
             leftAlone},
        {"a file shrinks before the proof",
         [](Filing& f, auto&) {
             f.filer.setBeforeProof(
                 [](const fs::path& copy) { writeFile(copy / "3 Media/A001.mov", "short"); });
         },
         mismatch + "1 file is a different size than when this was archived." + leftAlone, true},
        // The copy prunes what a backup leaves out, while the manifest lists it.
        {"the copy leaves out what the manifest lists",
         [](Filing& f, auto& plan) { plan.source = makeCodeBase(f.root / "code"); },
         mismatch + "3 files are missing." + leftAlone, true},
        {"a file cannot be copied: its own sentence comes first",
         [](Filing& f, auto&) {
             f.fileSystem.failNext(FaultyFileSystem::Operation::copyItem, EPERM);
         },
         "1 file couldn't be copied." + leftAlone, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Filing f;
        std::vector<double> fractions;
        auto plan = f.planFor(makeFilmProject(f.root.path()), 2024, "Cut");
        c.arrange(f, plan);
        const auto before = snapshotOf(f.root.path());
        const auto outcome = f.filer.file(
            plan, [&](double fraction, const auto&) { fractions.push_back(fraction); });
        EXPECT_EQ(ProjectFiler::summary(outcome), c.summary);
        const auto after = snapshotOf(f.root.path());
        for (const auto& [path, content] : before)
            EXPECT_TRUE(after.contains(path) && after.at(path) == content) << path;
        if (c.leavesCopy) {
            EXPECT_EQ(entriesIn(f.root / "Archive/2024"), 1u) << "nothing hidden beside it";
            EXPECT_EQ(ProjectFiler::summary(f.filer.file(plan, nullptr)), taken);
        } else if (!outcome.isSuccess()) {
            EXPECT_EQ(after, before) << "nothing made";
        } else {
            auto copied = filesBelow(plan.destination);
            EXPECT_EQ(copied.erase(".quillstow-manifest.json"), 1u);
            copied.erase(".DS_Store");
            EXPECT_EQ(copied, filesBelow(plan.source));
            EXPECT_EQ(entriesIn(f.root / "Archive/2024"), 1u) << "no hidden copy left beside it";
            EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()) &&
                        fractions.back() <= 1);
        }
    }
}

}  // namespace
}  // namespace quillstow
