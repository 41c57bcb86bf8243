// The support layer: the forms values take in files and in the journal, reaching folders below an
// open one, the flush of an atomic save, background tasks, and the one retry policy. Identifiers
// and base64 are read back by the settings and bookmark tests, JSON members by the hash database's;
// the repeating timer is shown by the status manager's schedule, the run loop by the headless
// program.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "TestTree.hpp"
#include "support/AtomicFile.hpp"
#include "support/Dates.hpp"
#include "support/FileHandle.hpp"
#include "support/FileUrl.hpp"
#include "support/Json.hpp"
#include "support/Logger.hpp"
#include "support/Retry.hpp"
#include "support/Sleeper.hpp"
#include "support/Tasks.hpp"

namespace quillstow {
namespace {

using namespace testing;
namespace fs = std::filesystem;
using namespace std::chrono;

TEST(Dates, WriteUtcToTheSecondAndReadWhatTheyWroteAndOffsetsAndNothingElse) {
    const Date date = sys_days{2024y / February / 29} + 23h + 59min + 58s;
    EXPECT_EQ(dates::formatISO8601(date + 999ms), "2024-02-29T23:59:58Z") << "fractions are cut";
    EXPECT_EQ(dates::formatISO8601(Date{} - 1ns), "1969-12-31T23:59:59Z");
    EXPECT_EQ(dates::parseISO8601("2024-02-29T23:59:58Z"), date);
    EXPECT_EQ(dates::parseISO8601("2024-03-01T01:59:58+02:00"), date);
    EXPECT_EQ(dates::parseISO8601("2024-02-29T20:29:58-03:30"), date);
    // The edges of what a date can hold.
    EXPECT_TRUE(dates::parseISO8601("1678-01-01T00:00:00Z"));
    EXPECT_EQ(dates::formatISO8601(*dates::parseISO8601("2262-01-01T00:00:00Z")),
              "2262-01-01T00:00:00Z");
    for (const char* text :
         {"", "2024-02-30T00:00:00Z", "2023-02-29T00:00:00Z", "2024-13-01T00:00:00Z",
          "2024-01-01T24:00:00Z", "2024-01-01T00:60:00Z", "2024-01-01T00:00:00",
          "2024-01-01T00:00:00.5Z", "2024-01-01 00:00:00Z", "2024-01-01T00:00:00Zjunk",
          "20240101T000000Z", "2024-01-01T00:00:00+2:00", "x024-01-01T00:00:00Z",
          "0025-01-01T00:00:00Z", "2475-03-01T00:00:00Z", "9999-12-31T23:59:59Z"}) {
        EXPECT_FALSE(dates::parseISO8601(text)) << text;
    }
}

TEST(FileUrls, EncodeWhatAPathMayHoldDecodeItBackAndRefuseRelativeRemoteAndBrokenOnes) {
    EXPECT_EQ(fileurls::fromPath("/My Drive/100%/a#b?c"), "file:///My%20Drive/100%25/a%23b%3Fc");
    EXPECT_EQ(fileurls::fromPath("/Fotos/Zürich"), "file:///Fotos/Z%C3%BCrich");
    EXPECT_EQ(fileurls::fromPath("/a-b_c.d~e!$&'()*+,;=:@/"), "file:///a-b_c.d~e!$&'()*+,;=:@/");
    for (const char* path :
         {"/", "/My Drive/100%/a#b?c", "/Fotos/Zürich/", "/tab\there", "/\xff\xfe not utf-8"}) {
        EXPECT_EQ(fileurls::toPath(fileurls::fromPath(path)), std::filesystem::path(path)) << path;
    }
    EXPECT_EQ(fileurls::toPath("file://localhost/tmp/x"), std::filesystem::path("/tmp/x"));
    EXPECT_EQ(fileurls::toPath("file:///tmp/%7e"), std::filesystem::path("/tmp/~"));
    using namespace std::string_literals;
    for (const std::string& url : std::vector<std::string>{
             ""s, "/tmp/x"s, "tmp/x", "file:tmp/x", "file://server/share", "http://example.com/x",
             "FILE:///tmp", "file:///tmp/%", "file:///tmp/%4", "file:///tmp/%zz",
             "file:///tmp/%00null", "file:///tmp/x?query", "file:///tmp/x#fragment",
             "file:///with space", "file:///Z\xc3\xbcrich", "file:///nul\0inside"s}) {
        EXPECT_FALSE(fileurls::toPath(url)) << url;
    }
}

// The member-by-member writer gives exactly what the whole-document one does, so that files
// written either way read the same. Bytes that are not UTF-8 never fail a write.
TEST(Json, WritesSortedEscapedAndIndentedWholeOrMemberByMember) {
    const json::Value document{{"b", "file:///a/b"},
                               {"a", 1},
                               {"c", {{"k", json::Value::array()}}},
                               {"name", std::string("caf\xe9")}};
    const std::string expected =
        "{\n  \"a\": 1,\n  \"b\": \"file:\\/\\/\\/a\\/b\",\n  \"c\": {\n    \"k\": []\n  },\n  "
        "\"name\": \"caf\xef\xbf\xbd\"\n}";
    EXPECT_EQ(json::write(document), expected);
    json::ObjectWriter writer;
    for (const auto& [key, value] : document.items())
        writer.add(key, value);
    EXPECT_EQ(std::move(writer).finish(), expected);
}

TEST(LogFormat, ShowsPublicArgumentsMasksPrivateOnesAndSurvivesMalformedFormats) {
    const struct {
        const char* format;
        std::vector<std::string> arguments;
        const char* shown;
    } rows[] = {
        {"for %{private}s: %{public}s",
         {"/home/ana/Secret", "No such file"},
         "for <private>: No such file"},
        {"plain %s and %d files, 100%%", {"/home/ana", "3"}, "plain <private> and 3 files, 100%"},
        {"mounted %{public}ld times, %lu left", {"2", "7"}, "mounted 2 times, 7 left"},
        {"%{public", {"x"}, "%{public"},
        {"%{public}s %{public}s trailing %", {"one"}, "one <missing> trailing %"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(formatLogMessage(row.format, row.arguments), row.shown) << row.format;
    const std::string hashed = formatLogMessage("%{private,mask.hash}s", {"/home/ana/Film"});
    EXPECT_EQ(hashed, formatLogMessage("%{private,mask.hash}s", {"/home/ana/Film"})) << "stable";
    EXPECT_NE(hashed, formatLogMessage("%{private,mask.hash}s", {"/home/ana/Fil"}));
    EXPECT_TRUE(hashed.starts_with("<mask.hash: '") && hashed.find("ana") == std::string::npos)
        << hashed;
}

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

// While set, each fsync of this process notes the path its file had at that moment.
std::vector<fs::path>* syncedFiles = nullptr;

// A save is flushed under its temporary name beside the file, and only then renamed over it: a
// power cut leaves the old file or the whole new one, never a torn one under the final name.
TEST(AtomicFile, FlushesTheTemporaryBesideTheFileBeforeItTakesTheName) {
    TemporaryFolder root;
    const fs::path folder = fs::canonical(root.path());
    writeFile(folder / "config.json", "old");
    fs::create_hard_link(folder / "config.json", folder / "earlier");  // sees a write in place
    std::vector<fs::path> synced;
    syncedFiles = &synced;
    atomicfile::write(folder / "config.json", "new");
    syncedFiles = nullptr;
    EXPECT_EQ(readFile(folder / "config.json"), "new");
    EXPECT_EQ(readFile(folder / "earlier"), "old");
    ASSERT_EQ(synced.size(), 1u);
    EXPECT_EQ(synced[0].parent_path(), folder);
    EXPECT_TRUE(atomicfile::isTemporaryName(synced[0].filename().native())) << synced[0];
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 2) << "a temporary left behind";
}

TEST(TaskRunnerTest, RunsTasksAtUtilityPriorityCancelsThemAndWaitsForThemAtItsEnd) {
    auto runner = std::make_unique<TaskRunner>();
    const auto untilStopped = [](std::stop_token stop) {
        std::mutex mutex;
        std::condition_variable_any wakeUp;
        std::unique_lock lock(mutex);
        wakeUp.wait(lock, stop, [] { return false; });
    };
    std::promise<int> niceness;
    const TaskHandle first = runner->start([&](std::stop_token stop) {
        niceness.set_value(::getpriority(PRIO_PROCESS, id_t(::syscall(SYS_gettid))));
        untilStopped(stop);
    });
    EXPECT_EQ(niceness.get_future().get(), 10);
    EXPECT_EQ(::getpriority(PRIO_PROCESS, 0), 0) << "the caller's own priority is untouched";
    EXPECT_FALSE(runner->waitUntilIdle(0.01));
    first.cancel();
    first.wait();
    EXPECT_TRUE(first.isEnded());

    const TaskHandle second = runner->start(untilStopped);
    runner->start(untilStopped);
    runner->cancelAll();
    EXPECT_TRUE(runner->waitUntilIdle(10.0) && second.isEnded());

    // A task that takes a while, and ignores its stop: the runner's end waits for it.
    std::atomic<bool> ended = false;
    runner->start([&](std::stop_token) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        ended = true;
    });
    runner.reset();
    EXPECT_TRUE(ended);
}

// A throttled copy or a paused pass sleeps on this; a stop that did not wake it would hold a quit
// for the length of the pause (here an hour, which the test's time limit catches).
TEST(Sleeper, AStopEndsAPauseBeforeAndWhileItSleeps) {
    std::stop_source stopped;
    stopped.request_stop();
    Sleeper().sleep(3600, stopped.get_token());
    std::jthread sleeping([](std::stop_token stop) { Sleeper().sleep(3600, stop); });
    std::this_thread::yield();
}  // the thread's end asks it to stop and waits for it

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

// Stands in for the C library's fsync in this test program, and passes every call on.
extern "C" int fsync(int fd) {
    if (quillstow::syncedFiles) {
        std::error_code error;
        quillstow::syncedFiles->push_back(
            std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), error));
    }
    return int(::syscall(SYS_fsync, fd));
}
