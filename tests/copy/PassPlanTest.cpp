// What the plan of a pass holds for each kind of pair of source item and mirror item, and that a
// run walks each tree once.

#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "TestTree.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "copy/FileCopier.hpp"
#include "copy/PassPlan.hpp"
#include "support/Paths.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
namespace fs = std::filesystem;

const std::string temporary = ".quillstowtmp-1234ABCD-x";

struct PlanCase {
    const char* name;
    std::function<void(const fs::path& source, const fs::path& mirror)> make;
    std::vector<std::string> items;
    // Path of each copy, and its obstacle ("" for none).
    std::map<std::string, std::string> copies;
    std::int64_t bytesToCopy;
    std::size_t mirrorItems;
    std::vector<std::string> orphans;
    std::vector<std::string> staleTemporaries;
};

std::map<std::string, std::string> copiesOf(const PassPlan& plan) {
    std::map<std::string, std::string> copies;
    for (const auto& copy : plan.copies)
        copies[std::string(plan.listing.items[copy.item].relativePath())] =
            copy.obstacle.value_or("");
    return copies;
}

std::vector<std::string> itemsOf(const PassPlan& plan) {
    std::vector<std::string> items;
    for (const auto& item : plan.listing.items)
        items.emplace_back(item.relativePath());
    return items;
}

TEST(PassPlan, HoldsWhatEachPairOfSourceAndMirrorItemsAsksFor) {
    const Date t = referenceDate();
    const auto file = [](const fs::path& path, std::size_t size, Date date) {
        writeFile(path, std::string(size, 'x'), date);
    };
    const PlanCase cases[] = {
        {"new", [&](auto s, auto) { file(s / "a/x", 5, t); }, {"a/x"}, {{"a/x", ""}}, 5, 0, {}, {}},
        {"same",
         [&](auto s, auto m) { file(s / "a/x", 5, t), file(m / "a/x", 5, t); },
         {"a/x"},
         {},
         0,
         1,
         {},
         {}},
        {"changed by size",
         [&](auto s, auto m) { file(s / "x", 5, t), file(m / "x", 4, t); },
         {"x"},
         {{"x", ""}},
         5,
         1,
         {},
         {}},
        {"dates 2.0 s apart are the same",
         [&](auto s, auto m) { file(s / "x", 5, t), file(m / "x", 5, t + 2s); },
         {"x"},
         {},
         0,
         1,
         {},
         {}},
        {"dates 2.001 s apart differ",
         [&](auto s, auto m) { file(s / "x", 5, t + 2001ms), file(m / "x", 5, t); },
         {"x"},
         {{"x", ""}},
         5,
         1,
         {},
         {}},
        {"a file where the mirror has a folder",
         [&](auto s, auto m) { file(s / "x", 5, t), file(m / "x/in", 1, t); },
         {"x"},
         {{"x", "x"}},
         5,
         1,
         {"x/in"},
         {}},
        {"a folder's file where the mirror has a file",
         [&](auto s, auto m) { file(s / "x/in", 5, t), file(m / "x", 1, t); },
         {"x/in"},
         {{"x/in", "x"}},
         5,
         1,
         {"x"},
         {}},
        {"a file where the mirror has a link",
         [&](auto s, auto m) { file(s / "x", 5, t), makeLink(m / "x", "elsewhere"); },
         {"x"},
         {{"x", "x"}},
         5,
         0,
         {},
         {}},
        {"a link in the source leaves its old copy an orphan",
         [&](auto s, auto m) { makeLink(s / "x", "elsewhere"), file(m / "x", 1, t); },
         {},
         {},
         0,
         1,
         {"x"},
         {}},
        {"gone from the source",
         [&](auto s, auto m) {
             file(s / "kept", 1, t), file(m / "kept", 1, t), file(m / "a/gone", 1, t);
         },
         {"kept"},
         {},
         0,
         2,
         {"a/gone"},
         {}},
        {"a package is one item, and a temporary inside it is stale",
         [&](auto s, auto m) {
             file(s / "P.app/in", 5, t), file(m / ("P.app/" + temporary), 1, t);
             setModificationDate(s / "P.app", t), setModificationDate(m / "P.app", t);
         },
         {"P.app"},
         {},
         0,
         1,
         {},
         {"P.app/" + temporary}},
        {"a temporary below an excluded folder is stale, nothing else there counts",
         [&](auto, auto m) {
             file(m / ("node_modules/k/" + temporary), 1, t), file(m / "node_modules/k/lib", 1, t);
         },
         {},
         {},
         0,
         0,
         {},
         {"node_modules/k/" + temporary}},
        {"a temporary in the mirror is no item and no orphan",
         [&](auto s, auto m) {
             file(s / "x", 5, t), file(m / "x", 5, t), file(m / ("d/" + temporary), 9, t);
         },
         {"x"},
         {},
         0,
         1,
         {},
         {"d/" + temporary}},
        {"a source file with a reserved name is backed up",
         [&](auto s, auto) { file(s / temporary, 3, t); },
         {temporary},
         {{temporary, ""}},
         3,
         0,
         {},
         {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder root;
        makeFolder(root / "source");
        makeFolder(root / "mirror");
        c.make(root / "source", root / "mirror");
        LocalFileSystem fileSystem;
        const PassPlan plan = planPass(fileSystem, root / "source", root / "mirror",
                                       filterForProfile(BackupProfile::standard));
        EXPECT_EQ(itemsOf(plan), c.items);
        EXPECT_EQ(copiesOf(plan), c.copies);
        EXPECT_EQ(plan.bytesToCopy, c.bytesToCopy);
        EXPECT_EQ(plan.mirrorItemCount, c.mirrorItems);
        EXPECT_EQ(plan.orphans, c.orphans);
        EXPECT_EQ(plan.staleTemporaries, c.staleTemporaries);
    }
}

TEST(PassPlan, AMissingMirrorPlansEverythingAndAMissingSourceNothing) {
    TemporaryFolder root;
    writeFile(root / "source/a", "12");
    writeFile(root / "source/b/c", "345");
    writeFile(root / "elsewhere/d", "6");
    LocalFileSystem fileSystem;
    const PassPlan first =
        planPass(fileSystem, root / "source", root / "no-mirror", ExclusionFilter{});
    EXPECT_EQ(first.copies.size(), 2u);
    EXPECT_EQ(first.bytesToCopy, 5);
    const PassPlan none =
        planPass(fileSystem, root / "no-source", root / "elsewhere", ExclusionFilter{});
    // What a source that can't be read holds is unknown, not gone.
    EXPECT_TRUE(none.listing.items.empty());
    EXPECT_EQ(none.mirrorItemCount, 1u);
    EXPECT_TRUE(none.orphans.empty());
}

TEST(PassPlan, TheSweepRemovesTheTemporariesItFoundAndNothingElse) {
    TemporaryFolder root;
    const fs::path mirror = root / "mirror";
    makeFolder(root / "source");
    writeFile(mirror / ".quillstowtmp-1234ABCD-a.txt", "partial");
    writeFile(mirror / "x/y/.quillstowresume-100-big.mov", "partial");
    writeFile(mirror / "x/.quillstowtmp-99999999-Song.band/inner", "partial tree");
    writeFile(mirror / "Old.app/.quillstowtmp-99999999-in", "partial");
    writeFile(mirror / "node_modules/.quillstowtmp-99999999-in", "partial");
    writeFile(mirror / "x/keep.txt", "keep");
    writeFile(mirror / "quillstowtmp-no-dot", "keep");
    writeFile(root / "elsewhere/.quillstowtmp-1234ABCD-b.txt", "not ours to sweep");
    makeLink(mirror / "link", root / "elsewhere");

    LocalFileSystem fileSystem;
    const FileCopier copier(fileSystem);
    const auto filter = filterForProfile(BackupProfile::standard);
    copier.removeStaleTemporaries(copier.planPass(root / "source", mirror, filter));
    EXPECT_EQ(filesBelow(mirror), (std::map<std::string, std::string>{
                                      {"quillstowtmp-no-dot", "keep"}, {"x/keep.txt", "keep"}}));
    EXPECT_TRUE(fs::exists(root / "elsewhere/.quillstowtmp-1234ABCD-b.txt"));

    // Never in a folder the path rules refuse: here the source itself.
    writeFile(root / "source/.quillstowtmp-1234ABCD-c.txt", "a user's file");
    copier.removeStaleTemporaries(copier.planPass(root.path(), root / "source", filter));
    EXPECT_TRUE(fs::exists(root / "source/.quillstowtmp-1234ABCD-c.txt"));
}

// The sweep, the room, the copy and the archive of a run read one plan: the source and the
// mirror are walked once each, whatever the run finds to do.
TEST(PassPlan, ARunWalksEachTreeOnce) {
    TemporaryFolder root;
    const fs::path source = root / "source";
    const fs::path mirror = root / "drive/Quillstow/Work";
    for (int i = 0; i < 30; ++i)
        writeFile(source / ("d" + std::to_string(i % 3)) / ("f" + std::to_string(i)), "new");
    writeFile(mirror / "gone.txt", "gone");
    writeFile(mirror / "d1" / temporary, "partial");

    testing::FaultyFileSystem fileSystem;
    const FileCopier copier(fileSystem);
    const PassPlan plan = copier.planPass(source, mirror, ExclusionFilter{});
    copier.removeStaleTemporaries(plan);
    const BackupResult result = copier.scanAndCopy(plan, root / "drive/.Quillstow-Trash", nullptr);

    EXPECT_EQ(result.copiedFiles, 30);
    EXPECT_EQ(result.archivedFiles, 1);
    EXPECT_FALSE(fs::exists(mirror / "d1" / temporary));
    std::vector<fs::path> walked = fileSystem.walkedRoots();
    std::sort(walked.begin(), walked.end());
    EXPECT_EQ(walked, (std::vector<fs::path>{paths::resolved(mirror), paths::resolved(source)}));
}

}  // namespace
}  // namespace quillstow

namespace quillstow {
namespace {

// The mirror's index finds every entry by its path through many growths of its table, keeps
// each path and address where they were, moved too, and gives back what the change test reads.
TEST(MirrorIndexTest, FindsEveryEntryThroughItsGrowthAndKeepsWhatTheChangeTestReads) {
    MirrorIndex built;
    std::vector<const MirrorEntry*> added;
    FileInfo file;
    file.type = FileInfo::Type::regular;
    file.modificationDate = Date(std::chrono::nanoseconds(1'700'000'000'123'456'789));
    const std::string longName(3 << 20, 'n');  // longer than a block of paths
    for (int i = 0; i < 5000; ++i) {
        file.fileSize = i;
        const std::string path =
            i == 4000 ? longName : "d" + std::to_string(i % 7) + "/" + std::to_string(i);
        added.push_back(&built.add(path, file));
    }
    FileInfo folder;
    folder.type = FileInfo::Type::directory;
    built.add("d0", folder);
    FileInfo old = file;
    old.modificationDate = Date(std::chrono::nanoseconds(-1'234'567'891));
    built.add("before 1970", old);
    const MirrorIndex index = std::move(built);

    ASSERT_EQ(index.size(), 5002u);
    for (int i = 0; i < 5000; ++i) {
        const std::string path =
            i == 4000 ? longName : "d" + std::to_string(i % 7) + "/" + std::to_string(i);
        ASSERT_EQ(index.find(path), added[std::size_t(i)]) << path;
        EXPECT_EQ(added[std::size_t(i)]->relativePath(), path);
        EXPECT_EQ(added[std::size_t(i)]->info().fileSize, i);
    }
    EXPECT_EQ(index.find("d3/10")->info().modificationDate, file.modificationDate);
    const FileInfo read = index.find("d0")->info();
    EXPECT_TRUE(read.isDirectory());
    EXPECT_FALSE(read.fileSize) << "a folder has no size of its own";
    EXPECT_FALSE(read.modificationDate);
    for (const char* missing : {"", "d0/", "d1/0", "d7/7", "5000"})
        EXPECT_EQ(index.find(missing), nullptr) << missing;
    EXPECT_EQ(MirrorIndex().find("anything"), nullptr);
    EXPECT_EQ(index.entries()[index.size() - 2].relativePath(), "d0") << "in the order added";
    EXPECT_EQ(index.find("before 1970")->info().modificationDate, old.modificationDate);
}

}  // namespace
}  // namespace quillstow
