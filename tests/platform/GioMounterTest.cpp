// Asking GVFS to mount, with small scripts standing in for gio: what it is given, that it can't
// prompt, that it is killed at its time limit, and that a missing gio is said in the log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>

#include "LogCapture.hpp"
#include "TestTree.hpp"
#include "platform/GioMounter.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(GioMounter, MountedOnlyWhenGioSaysSoWithNothingToPromptOnAndWithinItsTime) {
    TemporaryFolder root;
    // Each stands in for gio, with $here set to the test's folder.
    const struct {
        const char* body;
        bool isMounted;
    } cases[] = {
        {R"(printf '%s\n' "$@" > "$here/arguments"
if read -r line; then echo line; else echo end; fi > "$here/input"
set -- $(cat /proc/$$/stat)
if [ "$6" = "$$" ]; then echo own; else echo shared; fi > "$here/session")",
         true},
        {"exit 2", false},
        {"kill -TERM $$", false},
        {"echo $$ > \"$here/pid\"\nexec sleep 600", false},  // still running at its time limit
    };
    LogCapture log;
    const auto start = std::chrono::steady_clock::now();
    for (const auto& c : cases) {
        writeFile(root / "gio", "#!/bin/sh\nhere=\"$(dirname \"$0\")\"\n" + std::string(c.body));
        ::chmod((root / "gio").c_str(), 0755);
        EXPECT_EQ(GioMounter((root / "gio").native(), 0.2).mount("smb://nas/photos/"), c.isMounted)
            << c.body;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(readFile(root / "arguments"), "mount\nsmb://nas/photos/\n");
    EXPECT_EQ(readFile(root / "input"), "end\n") << "standard input is empty";
    EXPECT_EQ(readFile(root / "session"), "own\n") << "a session without a terminal";
    EXPECT_EQ(::kill(std::stoi(readFile(root / "pid")), 0), -1);
    EXPECT_EQ(errno, ESRCH) << "killed and reaped";
    EXPECT_THAT(log.messages("BackupEngine"), IsEmpty());

    const GioMounter missing((root / "no-gio").native());
    EXPECT_FALSE(missing.mount("smb://nas/photos/"));
    EXPECT_FALSE(missing.mount("smb://nas/photos/"));
    EXPECT_THAT(log.messages("BackupEngine"), ElementsAre(HasSubstr("libglib2.0-bin")))
        << "said once";
}

}  // namespace
}  // namespace quillstow
