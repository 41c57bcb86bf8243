// Reaching folders below an open one: no link followed, never above it, at any depth; and the
// one retry policy.

#include <gtest/gtest.h>

#include "../copy/DeepTree.hpp"
#include "TestTree.hpp"
#include "support/FileHandle.hpp"
#include "support/Retry.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;

int errorOf(const std::function<void()>& call) {
    try {
        call();
        return 0;
    } catch (const Failure& failure) {
        return failure.error().code;
    }
}

TEST(OpenFolderBelow, FollowsNoLinkAndNeverLeavesItsBase) {
    TemporaryFolder root;
    makeFolder(root / "base/a/b");
    writeFile(root / "base/file", "f");
    makeFolder(root / "outside");
    makeLink(root / "base/link", root / "outside");
    makeLink(root / "base/a/inner", "b");
    const FileHandle base = handles::openFolder(root / "base");
    struct Case {
        const char* path;
        int error;
    };
    const Case cases[] = {
        {"", 0},
        {"a/b", 0},
        {"link", ELOOP},
        {"link/x", ELOOP},
        {"a/inner", ELOOP},
        {"file", ENOTDIR},
        {"file/x", ENOTDIR},
        {"missing/b", ENOENT},
        {"..", EXDEV},
        {"a/../..", EXDEV},
    };
    for (const auto& c : cases) {
        int error = errorOf([&] { handles::openFolderBelow(base.get(), c.path); });
        // Without openat2 a link is refused by O_NOFOLLOW (ENOTDIR) and ".." by name (EINVAL).
        if (c.error == ELOOP && error == ENOTDIR) error = ELOOP;
        if (c.error == EXDEV && error == EINVAL) error = EXDEV;
        EXPECT_EQ(error, c.error) << c.path;
    }
    // Made where missing, but never through a link.
    struct stat status {};
    ASSERT_EQ(::stat(root.path().c_str(), &status), 0);
    const dev_t device = status.st_dev;
    EXPECT_EQ(errorOf([&] { handles::makeFoldersBelow(base.get(), "new/er", device); }), 0);
    EXPECT_TRUE(fs::is_directory(root / "base/new/er"));
    EXPECT_NE(errorOf([&] { handles::makeFoldersBelow(base.get(), "link/made", device); }), 0);
    EXPECT_TRUE(fs::is_empty(root / "outside"));
    EXPECT_EQ(errorOf([&] { handles::makeFoldersBelow(base.get(), "other", device + 1); }), EXDEV);
}

TEST(OpenFolderBelow, ReachesFoldersDeeperThanAPathCanName) {
    TemporaryFolder root;
    const std::string name(250, 'd');
    const std::string file = makeDeepFile(root / "base", name, 40, "deep.txt", "x");
    ASSERT_GT(file.size(), std::size_t(PATH_MAX));
    const FileHandle base = handles::openFolder(root / "base");
    const FileHandle deepest =
        handles::openFolderBelow(base.get(), file.substr(0, file.rfind('/')));
    struct stat status {};
    EXPECT_EQ(::fstatat(deepest.get(), "deep.txt", &status, 0), 0);
    removeTree(AT_FDCWD, root / "base");
    EXPECT_FALSE(fs::exists(root / "base"));
}

TEST(WithRetry, TriesOnceMoreAfterATransientErrorOnly) {
    struct Case {
        const char* name;
        std::vector<int> failures;  // errno of each attempt in turn; 0 succeeds
        bool stopped;
        int attempts;
        int error;  // of the failure that ends it, 0 for success
    };
    const Case cases[] = {
        {"success", {0}, false, 1, 0},
        {"transient then success", {EIO, 0}, false, 2, 0},
        {"transient twice", {EINTR, EBUSY}, false, 2, EBUSY},
        {"final", {ENOSPC, 0}, false, 1, ENOSPC},
        {"stopped", {EAGAIN, 0}, true, 1, EAGAIN},
    };
    for (const auto& c : cases) {
        std::stop_source stop;
        if (c.stopped) stop.request_stop();
        int attempts = 0;
        std::vector<bool> retries;
        const int error = errorOf([&] {
            withRetry(
                [&](bool isRetry) {
                    retries.push_back(isRetry);
                    if (const int code = c.failures[std::size_t(attempts++)]) throwPosix(code);
                },
                {stop.get_token(), nullptr});
        });
        EXPECT_EQ(attempts, c.attempts) << c.name;
        EXPECT_EQ(error, c.error) << c.name;
        EXPECT_EQ(retries.front(), false) << c.name;
        EXPECT_EQ(retries.back(), attempts == 2) << c.name;
    }
    // Other domains are never transient, whatever their number.
    EXPECT_FALSE(isTransient(errors::quillstow(EIO, "same number, other domain")));
}

}  // namespace
}  // namespace quillstow
