// Filing a finished project into its year: the year a name gives, the rebuildable folders the
// slimmer moves into a real Trash (never deleted) and the Trash itself, the manifest taken of the
// original and what its check finds in a copy, the filer, which proves the copy against it and
// only ever reads the original, and the flow that tidies up first. A copy that doesn't match, a
// stop, or something already filed there ends the filing in words, and never costs a file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <future>

#include "PrivateMounts.hpp"
#include "ProjectFolders.hpp"
#include "TestTree.hpp"
#include "archive/ProjectFiler.hpp"
#include "archive/PromoteViewModel.hpp"
#include "archive/StagingFolder.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "copy/StreamedCopy.hpp"
#include "platform/FreedesktopTrash.hpp"
#include "support/Error.hpp"
#include "support/FileInfo.hpp"
#include "support/ManualClocks.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
using Entry = ProjectManifest::Entry;
using Files = std::map<std::string, std::string>;
using Paths = std::vector<std::string>;
namespace fs = std::filesystem;

Date deletedAt() {
    return *dates::parseISO8601("2026-03-01T09:30:05Z");
}

TEST(ProjectNames, SuggestsTheYearOfTheNameOrNone) {
    struct Case {
        const char* name;
        std::optional<int> year;
    };
    const Case cases[] = {
        {"Spring Collection 2023", 2023}, {"SS24 Lookbook", 2024}, {"PRE-FALL19", 2019},
        {"Holiday2021", std::nullopt},  // no boundary before 20, none after "holiday20"
        {"Archive 2099 sp18", 2018},    // first four-digit match out of range: on to seasons
        {"2014 sp22 su23", 2022},       // the short expression's first match
        {"Job 20", std::nullopt},         {"Wedding 2040", 2040},  {"Wedding 2041", std::nullopt},
        {"2041 and 2030", std::nullopt},  // only the first four-digit match counts
        {"fw14", std::nullopt},           // 2014 lies below the range
        {"Résumé Été 2022", 2022},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(projectnames::suggestedYear(c.name), c.year);
    }
}

TEST(ProjectSlimmer, FindsTheOuterRebuildableFoldersOfTheWorkingFolder) {
    TemporaryFolder root;
    const ManualWallClock clock(deletedAt());
    FreedesktopTrash trash(root / "Trash", ::getuid(), clock);
    const ProjectSlimmer slimmer(BackupProfile::film, trash);
    const auto film = makeFilmProject(root.path());
    // Elsewhere in the project, or a plain file of that name: no finding.
    writeFile(film / "3 Media/Render Files/x.mov", "x");
    writeFile(film / "2 Project Files/Proxy Media", "a file");
    // A link inside a finding adds nothing: its target is not the cache's.
    makeLink(film / "2 Project Files/Render Files/footage", film / "3 Media/A001.mov");
    const auto found = slimmer.findings(film);
    using Finding = ProjectSlimmer::Finding;
    EXPECT_THAT(found, ElementsAre(Finding{film / "2 Project Files/Old Cut/Media Cache",
                                           "2 Project Files/Old Cut/Media Cache", "Media Cache", 7},
                                   Finding{film / "2 Project Files/Render Files",
                                           "2 Project Files/Render Files", "Render Files", 8}));
}

TEST(ProjectSlimmer, MovesWhatItFoundIntoTheTrashOrLeavesItWhereItWas) {
    TemporaryFolder root;
    const ManualWallClock clock(deletedAt());
    const auto project = makeFilmProject(root / "work");
    auto kept = filesBelow(project);
    // A trash that can't be made: nothing moves, and each folder says why.
    writeFile(root / "Blocked", "a file");
    FreedesktopTrash blocked(root / "Blocked", ::getuid(), clock);
    const auto found = ProjectSlimmer(BackupProfile::film, blocked).findings(project);
    const auto refused = ProjectSlimmer(BackupProfile::film, blocked).remove(found);
    EXPECT_EQ(refused.removed, 0);
    ASSERT_EQ(refused.failures.size(), 2u);
    EXPECT_TRUE(refused.failures[0].starts_with("2 Project Files/Old Cut/Media Cache: "));
    EXPECT_EQ(filesBelow(project), kept);

    FreedesktopTrash trash(root / "Trash", ::getuid(), clock);
    const ProjectSlimmer slimmer(BackupProfile::film, trash);
    const auto removal = slimmer.remove({found[1]});
    EXPECT_EQ(removal.removed, 1);
    EXPECT_EQ(removal.bytesFreed, 8);
    EXPECT_EQ(filesBelow(root / "Trash/files"), (Files{{"Render Files/a.mov", "abc"},
                                                       {"Render Files/b.mov", "defgh"},
                                                       {"Render Files/Render Files/c.mov", ""}}));
    std::erase_if(kept, [](const auto& item) {
        return item.first.starts_with("2 Project Files/Render Files/");
    });
    EXPECT_EQ(filesBelow(project), kept);
}

std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename());
    return names;
}

TEST(FreedesktopTrash, TakesAnItemWithAnInfoFileUnderANameOfItsOwn) {
    TemporaryFolder root;
    ::setenv("TZ", "EET-2", 1);
    ::tzset();
    const ManualWallClock clock(deletedAt());
    FreedesktopTrash trash(root / "data/Trash", ::getuid(), clock);
    writeFile(root / "Pröject/Render Files/a.mov", "abc");
    trash.moveToTrash(root / "Pröject/Render Files");
    EXPECT_FALSE(files::exists(root / "Pröject/Render Files"));
    EXPECT_EQ(readFile(root / "data/Trash/files/Render Files/a.mov"), "abc");
    // The path percent-encoded, the date in local time.
    EXPECT_EQ(readFile(root / "data/Trash/info/Render Files.trashinfo"),
              "[Trash Info]\nPath=" + root.path().native() + "/Pr%C3%B6ject/Render%20Files" +
                  "\nDeletionDate=2026-03-01T11:30:05\n");
    ::unsetenv("TZ");
    ::tzset();

    for (const char* folder : {"a", "b"}) {
        writeFile(root / folder / "Render Files/x", folder);
        writeFile(root / folder / "clip.mov", folder);
        trash.moveToTrash(root / folder / "Render Files");
        trash.moveToTrash(root / folder / "clip.mov");
    }
    // A stray item of that name without its info file is no free name either.
    writeFile(root / "data/Trash/files/notes", "stray");
    writeFile(root / "d/notes", "mine");
    trash.moveToTrash(root / "d/notes");
    EXPECT_THAT(namesIn(root / "data/Trash/files"),
                UnorderedElementsAre("Render Files", "Render Files 2", "Render Files 3", "clip.mov",
                                     "clip 2.mov", "notes", "notes 2"));
    EXPECT_THAT(namesIn(root / "data/Trash/info"),
                UnorderedElementsAre("Render Files.trashinfo", "Render Files 2.trashinfo",
                                     "Render Files 3.trashinfo", "clip.mov.trashinfo",
                                     "clip 2.mov.trashinfo", "notes 2.trashinfo"))
        << "an earlier item's record is never written over nor taken away";
    EXPECT_EQ(readFile(root / "data/Trash/files/Render Files 3/x"), "b");
    EXPECT_EQ(readFile(root / "data/Trash/files/notes 2"), "mine");
}

TEST(FreedesktopTrash, UsesTheVolumesOwnTrashAndLeavesWhatItCannotRename) {
    QUILLSTOW_REQUIRE_PRIVATE_MOUNTS();
    TemporaryFolder root;
    testing::TmpfsMount drive(root / "drive", 1 << 20);
    writeFile(root / "drive/Film/Render Files/a.mov", "abc");
    writeFile(root / "drive/Film/Media Cache/c.cfa", "c");
    const ManualWallClock clock(deletedAt());
    FreedesktopTrash trash(root / "home/Trash", ::getuid(), clock);
    const std::string uid = std::to_string(::getuid());

    trash.moveToTrash(root / "drive/Film/Render Files");
    EXPECT_EQ(readFile(root / ("drive/.Trash-" + uid + "/files/Render Files/a.mov")), "abc");
    EXPECT_THAT(readFile(root / ("drive/.Trash-" + uid + "/info/Render Files.trashinfo")),
                ::testing::HasSubstr("\nPath=Film/Render%20Files\n"));

    drive.remountReadOnly();
    try {
        trash.moveToTrash(root / "drive/Film/Media Cache");
        ADD_FAILURE() << "a read-only volume can't take a trash";
    } catch (const Failure& failure) {
        EXPECT_TRUE(errors::isPosix(failure.error(), EROFS)) << failure.error().description;
    }
    EXPECT_EQ(readFile(root / "drive/Film/Media Cache/c.cfa"), "c");
    EXPECT_FALSE(files::exists(root / "home")) << "never copied into another volume's trash";
    EXPECT_THROW(trash.moveToTrash(root / "drive/Film/never there"), Failure);
}

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

using Step = PromoteViewModel::Step;

// The filing flow on a virtual main queue, on 15 June 2031.
struct Flow {
    TemporaryFolder root;
    ManualClock clock;
    VirtualMainQueue mainQueue{clock};
    ManualWallClock wallClock{*dates::parseISO8601("2031-06-15T12:00:00Z")};
    FreedesktopTrash trash{root / "home/Trash", ::getuid(), wallClock};
    LocalFileSystem fileSystem;
    std::shared_ptr<ProjectFiler> filer =
        std::make_shared<ProjectFiler>(fileSystem, ProjectManifestWriter(), wallClock, clock);
    TaskRunner tasks;  // after what the tasks use
    std::shared_ptr<PromoteViewModel> model =
        PromoteViewModel::make({mainQueue, tasks, wallClock, trash, filer});

    bool runUntilFinished() {
        return mainQueue.runUntil([&] { return model->step() == Step::finished; });
    }
};

TEST(PromoteViewModel, TidiesUpBeforeItFilesUnderTheYearOfTheNameOrThisYear) {
    Flow f;
    const auto project = makeFilmProject(f.root / "work");
    f.model->choose(project);
    f.model->chooseArchive(f.root / "Archive");
    f.model->setRemoveRebuildable(true);
    f.model->file();
    ASSERT_TRUE(f.runUntilFinished());
    EXPECT_TRUE(f.model->isSuccess()) << f.model->resultSentence();
    const auto filed = f.root / "Archive/2023/Spring Campaign 2023";
    EXPECT_EQ(readFile(filed / "6 Finals/Campaign.mp4"), std::string(1000, 'm'));
    EXPECT_FALSE(files::exists(filed / "2 Project Files/Render Files"))
        << "what was tidied away is not filed";

    f.model->reset();
    // No year in the name: this year.
    writeFile(f.root / "Odds and Ends/6 Finals/a.txt", "a");
    f.model->choose(f.root / "Odds and Ends");
    EXPECT_EQ(f.model->year(), 2031);
}

}  // namespace
}  // namespace quillstow
