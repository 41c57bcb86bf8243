// Reaching folders below an open one: no link followed, never above it, never onto another
// drive; and the one retry policy.

#include <gtest/gtest.h>

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

TEST(WithRetry, TriesAgainWhileThePolicyAllows) {
    const auto cancelled = -1;
    struct Case {
        const char* name;
        std::vector<int> failures;  // errno of each attempt in turn; 0 succeeds
        int allowed;                // attempts the policy allows
        bool retriesAnyFailure;
        enum { never, before, duringThePause } stop;
        int attempts;
        int pauses;
        int error;  // of the failure that ends it, 0 for success
    };
    const Case cases[] = {
        {"success", {0}, 2, false, Case::never, 1, 0, 0},
        {"transient then success", {EIO, 0}, 2, false, Case::never, 2, 1, 0},
        {"transient twice", {EINTR, EBUSY}, 2, false, Case::never, 2, 1, EBUSY},
        {"final", {ENOSPC, 0}, 2, false, Case::never, 1, 0, ENOSPC},
        {"stopped before", {EAGAIN, 0}, 2, false, Case::before, 1, 0, EAGAIN},
        {"stopped during the pause", {EIO, 0}, 2, false, Case::duringThePause, 1, 1, cancelled},
        {"any failure, third time lucky", {ENOSPC, EPERM, 0}, 3, true, Case::never, 3, 2, 0},
        {"any failure, three times", {ENOSPC, EPERM, EROFS}, 3, true, Case::never, 3, 2, EROFS},
        {"a final failure ends three", {EIO, ENOSPC, 0}, 3, false, Case::never, 2, 1, ENOSPC},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::stop_source stop;
        if (c.stop == Case::before) stop.request_stop();
        int attempts = 0;
        int pauses = 0;
        RetryPolicy policy{stop.get_token(), [&] {
                               ++pauses;
                               if (c.stop == Case::duringThePause) stop.request_stop();
                           }};
        policy.attempts = c.allowed;
        if (c.retriesAnyFailure) policy.isWorthRetrying = isAnyFailure;
        int error = 0;
        try {
            withRetry(
                [&](bool isRetry) {
                    EXPECT_EQ(isRetry, attempts > 0);
                    if (const int code = c.failures[std::size_t(attempts++)]) throwPosix(code);
                },
                policy);
        } catch (const Failure& failure) {
            error = errors::isCancellation(failure.error()) ? cancelled : failure.error().code;
        }
        EXPECT_EQ(attempts, c.attempts);
        EXPECT_EQ(pauses, c.pauses);
        EXPECT_EQ(error, c.error);
    }
    // The system's own codes and errno values of the same number are never taken for each other.
    EXPECT_FALSE(isTransient(errors::quillstow(ErrorCode(EIO), "same number, other domain")));
    EXPECT_FALSE(errors::posix(int(ErrorCode::rootFolder)).is(ErrorCode::rootFolder));
}

}  // namespace
}  // namespace quillstow
