// Which items a pass sees and which of them it copies.

#include <gtest/gtest.h>

#include <algorithm>

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

std::vector<std::string> listedPaths(const fs::path& source) {
    std::vector<std::string> paths;
    for (const auto& item : listSource(source, ExclusionFilter{}))
        paths.push_back(item.relativePath);
    std::sort(paths.begin(), paths.end());
    return paths;
}

TEST(ListSource, ListsFilesHiddenOnesTooButNeverLinksOrWhatTheyPointAt) {
    TemporaryFolder root;
    writeFile(root / "outside/secret.txt", "not part of the source");
    writeFile(root / "src/a.txt", "a");
    writeFile(root / "src/.hidden", "h");
    writeFile(root / "src/sub/b.txt", "b");
    makeFolder(root / "src/empty/nested");
    makeLink(root / "src/link-to-file", root / "src/a.txt");
    makeLink(root / "src/link-to-folder", root / "outside");
    makeLink(root / "src/dangling", root / "nowhere");
    EXPECT_EQ(listedPaths(root / "src"),
              (std::vector<std::string>{".hidden", "a.txt", "sub/b.txt"}));
}

TEST(ListSource, SkipsTheMirrorsOwnFilesAndKeepsTheSizes) {
    TemporaryFolder root;
    writeFile(root / "src/.quillstow-checkpoint.json", "{}");
    writeFile(root / "src/x/.quillstow-hashes.json", "{}");
    writeFile(root / "src/.quillstow-lastcheck", "");
    writeFile(root / "src/.quillstowtmp-12345678-kept.txt", "listed: only the mirror skips it");
    writeFile(root / "src/data.bin", std::string(1234, 'x'));
    const auto items = listSource(root / "src", ExclusionFilter{});
    std::vector<std::string> paths;
    for (const auto& item : items) {
        paths.push_back(item.relativePath);
        if (item.relativePath == "data.bin") {
            EXPECT_EQ(item.info.fileSize, 1234);
        }
    }
    std::sort(paths.begin(), paths.end());
    EXPECT_EQ(paths, (std::vector<std::string>{".quillstowtmp-12345678-kept.txt", "data.bin"}));
}

TEST(ListSource, HonoursTheFilterAndDoesNotEnterExcludedFolders) {
    TemporaryFolder root;
    writeFile(root / "src/keep.txt", "k");
    writeFile(root / "src/cache/inside.txt", "i");
    writeFile(root / "src/notes.tmp", "t");
    const ExclusionFilter filter = ExclusionFilter::with({"cache"}, {}, {"tmp"});
    std::vector<std::string> paths;
    for (const auto& item : listSource(root / "src", filter))
        paths.push_back(item.relativePath);
    EXPECT_EQ(paths, (std::vector<std::string>{"keep.txt"}));
}

TEST(ListSource, ReachesASourceThroughALinkAndListsNothingForAMissingOne) {
    TemporaryFolder root;
    writeFile(root / "real/a.txt", "a");
    makeLink(root / "alias", root / "real");
    EXPECT_EQ(listedPaths(root / "alias"), (std::vector<std::string>{"a.txt"}));
    EXPECT_TRUE(listedPaths(root / "missing").empty());
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
