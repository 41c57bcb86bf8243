// What a pass sees of the two trees and what it plans: the change test, the listing, the plan of
// each pair of source and mirror items, the sweep of temporaries, and the mirror's index.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>

#include "TestTree.hpp"
#include "copy/FileCopier.hpp"
#include "copy/PassPlan.hpp"
#include "copy/SourceListing.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
namespace fs = std::filesystem;

FileInfo infoOf(FileInfo::Type type, std::int64_t size, std::optional<Date> date) {
    FileInfo info;
    info.type = type;
    if (type == FileInfo::Type::regular) info.fileSize = size;
    info.modificationDate = date;
    return info;
}

TEST(NeedsCopy, DecidesBySizeKindAndDateWithinTwoSeconds) {
    const Date t = referenceDate();
    const auto file = [](std::int64_t size, std::optional<Date> date) {
        return infoOf(FileInfo::Type::regular, size, date);
    };
    const auto folder = [](Date date) { return infoOf(FileInfo::Type::directory, 0, date); };
    struct Case {
        const char* name;
        std::optional<FileInfo> source;
        std::optional<FileInfo> destination;
        bool copy;
    };
    const Case cases[] = {
        {"nothing at the destination", file(1, t), std::nullopt, true},
        {"source unreadable", std::nullopt, file(1, t), true},
        {"same size and date", file(5, t), file(5, t), false},
        {"other size", file(5, t), file(6, t), true},
        {"source 2.0 s newer", file(5, t + 2s), file(5, t), false},
        {"destination 2.0 s newer", file(5, t), file(5, t + 2s), false},
        {"source 2.000000001 s newer", file(5, t + 2s + 1ns), file(5, t), true},
        {"destination 2.001 s newer", file(5, t), file(5, t + 2001ms), true},
        {"source undated", file(5, std::nullopt), file(5, t), true},
        {"destination undated", file(5, t), file(5, std::nullopt), true},
        {"folders of one date", folder(t), folder(t + 1s), false},
        {"folders of other dates", folder(t), folder(t + 3s), true},
        {"empty file over a folder", file(0, t), folder(t), true},
        {"folder over an empty file", folder(t), file(0, t), true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(needsCopy(c.source, c.destination), c.copy) << c.name;
}

// The plan in one line, "items x | copy x over y | bytes 5 | mirror 1 | orphans y | stale t":
// each part left out when empty or zero, and sorted, since the listing's order is the file
// system's. The items are what the listing read of the source.
std::string summaryOf(const PassPlan& plan) {
    std::string summary;
    const auto part = [&](const char* label, std::vector<std::string> values) {
        if (values.empty() || values == std::vector<std::string>{"0"}) return;
        std::sort(values.begin(), values.end());
        summary += (summary.empty() ? "" : " | ") + std::string(label);
        for (const auto& value : values)
            summary += " " + value;
    };
    std::vector<std::string> items;
    for (const auto& item : plan.listing.items)
        items.emplace_back(item.relativePath());
    std::vector<std::string> copies;
    for (const auto& copy : plan.copies)
        copies.push_back(items[copy.item] + (copy.obstacle ? " over " + *copy.obstacle : ""));
    part("items", items);
    part("copy", copies);
    part("bytes", {std::to_string(plan.bytesToCopy)});
    part("mirror", {std::to_string(plan.mirrorItemCount)});
    part("orphans", plan.orphans);
    part("stale", plan.staleTemporaries);
    return summary;
}

TEST(PassPlan, HoldsWhatEachPairOfSourceAndMirrorItemsAsksFor) {
    const Date t = referenceDate();
    const std::string tmp = ".quillstowtmp-1234ABCD-x";
    const auto file = [](const fs::path& path, std::size_t size, Date date) {
        writeFile(path, std::string(size, 'x'), date);
    };
    struct Case {
        const char* name;
        std::function<void(const fs::path& source, const fs::path& mirror)> make;
        std::string plan;
    };
    const Case cases[] = {
        {"hidden files are listed, links neither listed nor followed",
         [&](auto s, auto m) {
             file(s / ".hidden", 2, t), file(s / "sub/b", 3, t), makeFolder(s / "empty/nested");
             makeLink(s / "to-file", s / ".hidden"), makeLink(s / "to-folder", m / "..");
             makeLink(s / "dangling", s / "nowhere");
         },
         "items .hidden sub/b | copy .hidden sub/b | bytes 5"},
        {"a source reached through a link",
         [&](auto s, auto) {
             file(s / "a", 1, t), fs::rename(s, s.parent_path() / "real");
             makeLink(s, s.parent_path() / "real");
         },
         "items a | copy a | bytes 1"},
        {"the mirror's own files in the source are skipped, and excluded names",
         [&](auto s, auto) {
             file(s / ".quillstow-checkpoint.json", 2, t), file(s / "x/.quillstow-lastcheck", 0, t);
             file(s / ".DS_Store", 1, t), file(s / "node_modules/k/lib", 1, t);
         },
         ""},
        {"dates read to the nanosecond",
         [&](auto s, auto m) { file(s / "x", 5, t + 2s + 1ns), file(m / "x", 5, t); },
         "items x | copy x | bytes 5 | mirror 1"},
        {"a file where the mirror has a folder",
         [&](auto s, auto m) { file(s / "x", 5, t), file(m / "x/in", 1, t); },
         "items x | copy x over x | bytes 5 | mirror 1 | orphans x/in"},
        {"a folder's file where the mirror has a file",
         [&](auto s, auto m) { file(s / "x/in", 5, t), file(m / "x", 1, t); },
         "items x/in | copy x/in over x | bytes 5 | mirror 1 | orphans x"},
        {"a file where the mirror has a link",
         [&](auto s, auto m) { file(s / "x", 5, t), makeLink(m / "x", "elsewhere"); },
         "items x | copy x over x | bytes 5"},
        {"a link in the source leaves its old copy an orphan",
         [&](auto s, auto m) { makeLink(s / "x", "elsewhere"), file(m / "x", 1, t); },
         "mirror 1 | orphans x"},
        {"gone from the source",
         [&](auto s, auto m) {
             file(s / "kept", 1, t), file(m / "kept", 1, t), file(m / "a/gone", 1, t);
         },
         "items kept | mirror 2 | orphans a/gone"},
        {"a missing mirror plans everything",
         [&](auto s, auto m) { file(s / "a/b/c", 5, t), fs::remove(m); },
         "items a/b/c | copy a/b/c | bytes 5"},
        {"a missing source is unknown, not gone",
         [&](auto s, auto m) { file(m / "d", 1, t), fs::remove(s); }, "mirror 1"},
        {"a package is one item, and a temporary inside it is stale",
         [&](auto s, auto m) {
             file(s / "P.app/in", 5, t), file(m / ("P.app/" + tmp), 1, t);
             setModificationDate(s / "P.app", t), setModificationDate(m / "P.app", t);
         },
         "items P.app | mirror 1 | stale P.app/" + tmp},
        {"a temporary below an excluded folder is stale, nothing else there counts",
         [&](auto, auto m) {
             file(m / ("node_modules/k/" + tmp), 1, t), file(m / "node_modules/k/lib", 1, t);
         },
         "stale node_modules/k/" + tmp},
        {"a temporary in the mirror is no item and no orphan",
         [&](auto s, auto m) { file(s / "x", 5, t), file(m / "x", 5, t), file(m / tmp, 9, t); },
         "items x | mirror 1 | stale " + tmp},
        {"a source file with a reserved name is backed up",
         [&](auto s, auto) { file(s / tmp, 3, t); },
         "items " + tmp + " | copy " + tmp + " | bytes 3"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder root;
        makeFolder(root / "source");
        makeFolder(root / "mirror");
        c.make(root / "source", root / "mirror");
        LocalFileSystem fileSystem;
        EXPECT_EQ(summaryOf(planPass(fileSystem, root / "source", root / "mirror",
                                     filterForProfile(BackupProfile::standard))),
                  c.plan);
    }
}

// Names of the exact shapes this program gives its temporaries go; a user's file that only looks
// like one stays.
TEST(PassPlan, TheSweepRemovesTheTemporariesItFoundAndNothingElse) {
    TemporaryFolder root;
    const fs::path mirror = root / "mirror";
    makeFolder(root / "source");
    writeFile(mirror / ".quillstowtmp-1234ABCD-a.txt", "partial");
    writeFile(mirror / "x/y/.quillstowresume-100-big.mov", "partial");
    writeFile(mirror / "x/.quillstowtmp-99999999-Song.band/inner", "partial tree");
    std::map<std::string, std::string> kept;
    for (const char* name :
         {"x/keep.txt", "quillstowtmp-no-dot", ".quillstowtmp-notes.txt",
          ".quillstowtmp-abcdef12-lower.txt", ".quillstowresume-x-y", ".quillstowresume-12-",
          ".quillstowresume--x", ".quillstowtmp-ABCDEF12-"}) {
        writeFile(mirror / name, "keep");
        kept[name] = "keep";
    }
    writeFile(root / "elsewhere/.quillstowtmp-1234ABCD-b.txt", "not ours to sweep");
    makeLink(mirror / "link", root / "elsewhere");

    LocalFileSystem fileSystem;
    const FileCopier copier(fileSystem);
    const auto filter = filterForProfile(BackupProfile::standard);
    copier.removeStaleTemporaries(copier.planPass(root / "source", mirror, filter));
    EXPECT_EQ(filesBelow(mirror), kept);
    EXPECT_TRUE(fs::exists(root / "elsewhere/.quillstowtmp-1234ABCD-b.txt"));

    // Never in a folder the path rules refuse: here the source itself.
    writeFile(root / "source/.quillstowtmp-1234ABCD-c.txt", "a user's file");
    copier.removeStaleTemporaries(copier.planPass(root.path(), root / "source", filter));
    EXPECT_TRUE(fs::exists(root / "source/.quillstowtmp-1234ABCD-c.txt"));
}

// Every entry is found by its path, with what the change test reads of it, through many growths
// of the table; a path longer than a block of paths too.
TEST(MirrorIndex, FindsEveryEntryThroughItsGrowth) {
    const auto pathOf = [](int i) {
        return i == 4000 ? std::string(3 << 20, 'n')
                         : "d" + std::to_string(i % 7) + "/" + std::to_string(i);
    };
    const auto dateOf = [](int i) {
        return Date{nanoseconds(i * 1'000'000'007LL - 1'234'567'891)};
    };
    MirrorIndex built;
    for (int i = 0; i < 5000; ++i)
        built.add(pathOf(i), infoOf(FileInfo::Type::regular, i, dateOf(i)));
    const MirrorIndex index = std::move(built);

    ASSERT_EQ(index.size(), 5000u);
    for (int i = 0; i < 5000; ++i) {
        const MirrorEntry* found = index.find(pathOf(i));
        ASSERT_TRUE(found && found->relativePath() == pathOf(i)) << i;
        EXPECT_EQ(found->info().fileSize, i);
        EXPECT_EQ(found->info().modificationDate, dateOf(i));
    }
    for (const char* missing : {"", "d0", "d1/0", "d7/7", "5000"})
        EXPECT_EQ(index.find(missing), nullptr) << missing;
}

}  // namespace
}  // namespace quillstow
