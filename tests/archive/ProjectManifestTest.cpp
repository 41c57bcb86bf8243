// The manifest of a project: what a scan lists (nested folders, an empty file, a name with a
// line break; never clutter, never itself), its file, and what a check finds in a copy.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestTree.hpp"
#include "archive/ProjectManifest.hpp"
#include "support/AtomicFile.hpp"
#include "support/Dates.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Entry = ProjectManifest::Entry;

Date archivedAt() {
    return *dates::parseISO8601("2026-03-01T09:30:00Z");
}

TEST(ProjectManifest, ListsEveryFileOfANestedTreeWithItsSize) {
    TemporaryFolder root;
    writeFile(root / "P/b/deeper/still/abc.txt", "abc");
    writeFile(root / "P/a/empty", "");
    writeFile(root / "P/line\nbreak.txt", "hello\n");
    writeFile(root / "P/.hidden", "abc");
    makeFolder(root / "P/an empty folder");
    makeLink(root / "P/link", root / "P/a/empty");

    const auto manifest = ProjectManifestWriter().scan(root / "P", "P", archivedAt());
    EXPECT_EQ(manifest.name, "P");
    EXPECT_EQ(manifest.archivedAt, archivedAt());
    EXPECT_THAT(manifest.files,
                ElementsAre(Entry{".hidden", 3}, Entry{"a/empty", 0},
                            Entry{"b/deeper/still/abc.txt", 3}, Entry{"line\nbreak.txt", 6}));
}

TEST(ProjectManifest, SortsComposedAndDecomposedAccentsAlike) {
    TemporaryFolder root;
    for (const char* name : {"f", "e\u0301b", "\u00e9a", "e"})
        writeFile(root / "P" / name, "x");
    std::vector<std::string> paths;
    for (const auto& entry : ProjectManifestWriter().scan(root / "P", "P", archivedAt()).files)
        paths.push_back(entry.path);
    EXPECT_THAT(paths, ElementsAre("e", "f", "\u00e9a", "e\u0301b"));
}

TEST(ProjectManifest, LeavesOutClutterAnywhereAndItselfButNotWhatLiesInExcludedFolders) {
    TemporaryFolder root;
    writeFile(root / "P/.DS_Store", "x");
    writeFile(root / "P/deep/Thumbs.db", "x");
    writeFile(root / "P/deep/desktop.ini", "x");
    writeFile(root / "P/.quillstow-manifest.json", "{}");
    writeFile(root / "P/node_modules/pad/index.js", "pad");
    const auto manifest = ProjectManifestWriter().scan(root / "P", "P", archivedAt());
    ASSERT_EQ(manifest.files.size(), 1u);
    EXPECT_EQ(manifest.files[0].path, "node_modules/pad/index.js");
}

TEST(ProjectManifest, WritesSortedKeysAndUtcSecondsThatReadBackTheSame) {
    TemporaryFolder root;
    writeFile(root / "P/sub/line\nbreak", "abc");
    writeFile(root / "P/a", "");
    const ProjectManifestWriter writer;
    const auto manifest =
        writer.scan(root / "P", "Film: \"Cut\"", archivedAt() + std::chrono::milliseconds(700));
    writer.write(manifest, root / "P");

    const std::string text = readFile(root / "P/.quillstow-manifest.json");
    EXPECT_LT(text.find("\"archivedAt\""), text.find("\"files\""));
    EXPECT_LT(text.find("\"files\""), text.find("\"name\""));
    EXPECT_LT(text.find("\"bytes\""), text.find("\"path\""));
    EXPECT_EQ(text.find("sha256"), std::string::npos) << "sizes only: no file is read";
    EXPECT_NE(text.find("\"2026-03-01T09:30:00Z\""), std::string::npos) << text;
    EXPECT_NE(text.find("line\\nbreak"), std::string::npos) << text;

    auto expected = manifest;
    expected.archivedAt = archivedAt();  // whole seconds on disk
    EXPECT_EQ(projectManifestFromJson(json::read(text)), expected);
    // Written over, never beside: one manifest, and no temporary file left.
    writer.write(manifest, root / "P");
    EXPECT_EQ(filesBelow(root / "P").size(), 3u);
}

TEST(ProjectManifest, RefusesADocumentWithoutEveryKey) {
    for (const char* text :
         {R"({"name":"P","files":[]})",
          R"({"name":"P","archivedAt":"2026-03-01T09:30:00Z","files":[{"path":"a"}]})",
          R"({"archivedAt":"2026-03-01T09:30:00Z","files":[]})"}) {
        EXPECT_THROW(projectManifestFromJson(json::read(text)), Failure) << text;
    }
}

struct CheckCase {
    const char* label;
    std::function<void(const std::filesystem::path& copy)> change;
    std::vector<std::string> missing;
    std::vector<std::string> wrongSize;
    std::vector<std::string> added;
    const char* summary;
};

TEST(ProjectManifest, ChecksACopyByPresenceAndSizeOnly) {
    const CheckCase cases[] = {
        {"a whole copy",
         [](const auto&) {},
         {},
         {},
         {},
         "All 3 files are present and the right size."},
        {"a file gone",
         [](const auto& copy) { std::filesystem::remove(copy / "b/two"); },
         {"b/two"},
         {},
         {},
         "1 file is missing."},
        {"a file grown",
         [](const auto& copy) { writeFile(copy / "one", "one!"); },
         {},
         {"one"},
         {},
         "1 file is a different size than when this was archived."},
        {"same size, other bytes: no file is opened",
         [](const auto& copy) { writeFile(copy / "b/two", "twO"); },
         {},
         {},
         {},
         "All 3 files are present and the right size."},
        {"a file added",
         [](const auto& copy) { writeFile(copy / "new", "n"); },
         {},
         {},
         {"new"},
         "All 3 files are present and the right size."},
        {"everything at once",
         [](const auto& copy) {
             std::filesystem::remove_all(copy / "b");
             writeFile(copy / "one", "");
         },
         {"b/three", "b/two"},
         {"one"},
         {},
         "2 files are missing, 1 file is a different size than when this was archived."},
    };
    for (const auto& each : cases) {
        TemporaryFolder root;
        writeFile(root / "P/one", "one");
        writeFile(root / "P/b/two", "two");
        writeFile(root / "P/b/three", "three");
        const ProjectManifestWriter writer;
        const auto manifest = writer.scan(root / "P", "P", archivedAt());
        each.change(root / "P");
        const auto result = writer.check(root / "P", manifest);
        EXPECT_EQ(result.missing, each.missing) << each.label;
        EXPECT_EQ(result.wrongSize, each.wrongSize) << each.label;
        EXPECT_EQ(result.added, each.added) << each.label;
        EXPECT_EQ(result.expectedCount, 3u) << each.label;
        EXPECT_EQ(result.passes(), each.missing.empty() && each.wrongSize.empty()) << each.label;
        EXPECT_EQ(ProjectManifestWriter::summary(result), each.summary) << each.label;
    }
}

TEST(ProjectManifest, SaysAllZeroAndAllOneAsTheyStand) {
    TemporaryFolder root;
    makeFolder(root / "P");
    const ProjectManifestWriter writer;
    const auto empty = writer.scan(root / "P", "P", archivedAt());
    EXPECT_THAT(empty.files, IsEmpty());
    EXPECT_EQ(ProjectManifestWriter::summary(writer.check(root / "P", empty)),
              "All 0 files are present and the right size.");
    writeFile(root / "P/only", "x");
    const auto one = writer.scan(root / "P", "P", archivedAt());
    EXPECT_EQ(ProjectManifestWriter::summary(writer.check(root / "P", one)),
              "All 1 file is present and the right size.");
}

}  // namespace
}  // namespace quillstow
