// Which items a pass sees and which of them it copies.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "TestTree.hpp"
#include "copy/SourceListing.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace std::chrono;
namespace fs = std::filesystem;

FileInfo fileOf(std::int64_t size, Date date) {
    FileInfo info;
    info.type = FileInfo::Type::regular;
    info.fileSize = size;
    info.modificationDate = date;
    return info;
}

FileInfo folderAt(Date date) {
    FileInfo info;
    info.type = FileInfo::Type::directory;
    info.modificationDate = date;
    return info;
}

TEST(NeedsCopy, DecidesBySizeAndDateWithinTwoSeconds) {
    const Date t = referenceDate();
    struct Case {
        const char* name;
        std::optional<FileInfo> source;
        std::optional<FileInfo> destination;
        bool copy;
    };
    const Case cases[] = {
        {"nothing at the destination", fileOf(1, t), std::nullopt, true},
        {"source unreadable", std::nullopt, fileOf(1, t), true},
        {"same size and date", fileOf(5, t), fileOf(5, t), false},
        {"other size", fileOf(5, t), fileOf(6, t), true},
        {"source 2.0 s newer", fileOf(5, t + 2s), fileOf(5, t), false},
        {"destination 2.0 s newer", fileOf(5, t), fileOf(5, t + 2s), false},
        {"source 2.000000001 s newer", fileOf(5, t + 2s + 1ns), fileOf(5, t), true},
        {"destination 2.001 s newer", fileOf(5, t), fileOf(5, t + 2001ms), true},
        {"folders of one date", folderAt(t), folderAt(t + 1s), false},
        {"folders of other dates", folderAt(t), folderAt(t + 3s), true},
        {"empty file over a folder", fileOf(0, t), folderAt(t), true},
        {"folder over an empty file", folderAt(t), fileOf(0, t), true},
        {"file over a folder", fileOf(1, t), folderAt(t), true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(needsCopy(c.source, c.destination), c.copy) << c.name;

    FileInfo undated = fileOf(5, t);
    undated.modificationDate.reset();
    EXPECT_TRUE(needsCopy(undated, fileOf(5, t)));
    EXPECT_TRUE(needsCopy(fileOf(5, t), undated));
}

TEST(NeedsCopy, MeasuresRealFilesToTheNanosecond) {
    TemporaryFolder root;
    const Date t = referenceDate();
    writeFile(root / "src/exact", "same", t + 2s);
    writeFile(root / "dst/exact", "same", t);
    writeFile(root / "src/over", "same", t);
    writeFile(root / "dst/over", "same", t + 2001ms);
    writeFile(root / "src/hair", "same", t + 2s + 1ns);
    writeFile(root / "dst/hair", "same", t);
    EXPECT_FALSE(needsCopy(root / "src/exact", root / "dst/exact"));
    EXPECT_TRUE(needsCopy(root / "src/over", root / "dst/over"));
    EXPECT_TRUE(needsCopy(root / "src/hair", root / "dst/hair"));
    EXPECT_TRUE(needsCopy(root / "src/exact", root / "dst/missing"));
}

// Each item as "path size", sorted: the listing's order is the file system's.
std::vector<std::string> listed(const fs::path& source, const ExclusionFilter& filter) {
    std::vector<std::string> items;
    for (const auto& item : listSource(source, filter)) {
        items.push_back(std::string(item.relativePath()) + " " + std::to_string(item.byteCount()));
    }
    std::sort(items.begin(), items.end());
    return items;
}

struct ListingCase {
    const char* name;
    std::function<void(const fs::path& root)> make;
    // Listed from root / this.
    const char* source = "src";
    ExclusionFilter filter;
    std::vector<std::string> items;
};

TEST(ListSource, ListsTheItemsOfASourceAndWhatItReadOfThem) {
    const ListingCase cases[] = {
        {"hidden files are listed, links neither listed nor followed",
         [](const fs::path& root) {
             writeFile(root / "outside/secret.txt", "not part of the source");
             writeFile(root / "src/a.txt", "a");
             writeFile(root / "src/.hidden", "hh");
             writeFile(root / "src/sub/b.txt", "bbb");
             makeFolder(root / "src/empty/nested");
             makeLink(root / "src/link-to-file", root / "src/a.txt");
             makeLink(root / "src/link-to-folder", root / "outside");
             makeLink(root / "src/dangling", root / "nowhere");
         },
         "src",
         {},
         {".hidden 2", "a.txt 1", "sub/b.txt 3"}},
        {"the mirror's own files are skipped, a temporary's name only by the mirror",
         [](const fs::path& root) {
             writeFile(root / "src/.quillstow-checkpoint.json", "{}");
             writeFile(root / "src/x/.quillstow-hashes.json", "{}");
             writeFile(root / "src/.quillstow-lastcheck", "");
             writeFile(root / "src/.quillstowtmp-12345678-kept.txt", "kept");
             writeFile(root / "src/data.bin", std::string(1234, 'x'));
         },
         "src",
         {},
         {".quillstowtmp-12345678-kept.txt 4", "data.bin 1234"}},
        {"the filter holds and excluded folders are not entered",
         [](const fs::path& root) {
             writeFile(root / "src/keep.txt", "k");
             writeFile(root / "src/cache/inside.txt", "i");
             writeFile(root / "src/notes.tmp", "t");
         },
         "src",
         ExclusionFilter::with({"cache"}, {}, {"tmp"}),
         {"keep.txt 1"}},
        {"a source reached through a link",
         [](const fs::path& root) {
             writeFile(root / "real/a.txt", "a");
             makeLink(root / "alias", root / "real");
         },
         "alias",
         {},
         {"a.txt 1"}},
        {"a missing source lists nothing", [](const fs::path&) {}, "missing", {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder root;
        c.make(root.path());
        EXPECT_EQ(listed(root / c.source, c.filter), c.items);
    }
}

TEST(RelativePath, ResolvesBothSidesAndPutsStrangersAtTheTop) {
    TemporaryFolder root;
    writeFile(root / "real/sub/a.txt", "a");
    makeLink(root / "alias", root / "real");
    EXPECT_EQ(relativePath(root / "alias", root / "real/sub/a.txt"), "sub/a.txt");
    EXPECT_EQ(relativePath(root / "real/", root / "alias/sub/./a.txt"), "sub/a.txt");
    EXPECT_EQ(relativePath(root / "real", root / "elsewhere/b.txt"), "b.txt");
    // A sibling whose name merely begins like the root is not inside it.
    EXPECT_EQ(relativePath(root / "real", root / "realm/c.txt"), "c.txt");
}

}  // namespace
}  // namespace quillstow
