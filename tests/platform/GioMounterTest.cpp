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
namespace fs = std::filesystem;

class GioMounterTest : public ::testing::Test {
  protected:
    // A stand-in for gio in the test's folder, running `body` with $here set to that folder.
    std::string script(const std::string& body) {
        const fs::path path = root / "gio";
        writeFile(path, "#!/bin/sh\nhere=\"$(dirname \"$0\")\"\n" + body + "\n");
        ::chmod(path.c_str(), 0755);
        return path.native();
    }

    TemporaryFolder root;
};

TEST_F(GioMounterTest, RunsGioMountWithNothingToPromptOn) {
    const GioMounter mounter(script(R"(printf '%s\n' "$@" > "$here/arguments"
if read -r line; then echo line; else echo end; fi > "$here/input"
set -- $(cat /proc/$$/stat)
if [ "$6" = "$$" ]; then echo own; else echo shared; fi > "$here/session")"));
    EXPECT_TRUE(mounter.mount("smb://nas/photos/"));
    EXPECT_EQ(readFile(root / "arguments"), "mount\nsmb://nas/photos/\n");
    EXPECT_EQ(readFile(root / "input"), "end\n") << "standard input is empty";
    EXPECT_EQ(readFile(root / "session"), "own\n") << "a session without a terminal";
}

TEST_F(GioMounterTest, MountedOnlyWhenGioSaysSoAndNothingLogged) {
    LogCapture log;
    const struct {
        const char* body;
        bool isMounted;
    } cases[] = {{"exit 0", true}, {"exit 2", false}, {"kill -TERM $$", false}};
    for (const auto& c : cases)
        EXPECT_EQ(GioMounter(script(c.body)).mount("sftp://host/"), c.isMounted) << c.body;
    EXPECT_THAT(log.messages("BackupEngine"), IsEmpty());
}

TEST_F(GioMounterTest, GioStillRunningAtTheTimeLimitIsKilled) {
    const GioMounter mounter(script("echo $$ > \"$here/pid\"\nexec sleep 600"), 0.2);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(mounter.mount("dav://box/"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    const pid_t child = std::stoi(readFile(root / "pid"));
    EXPECT_EQ(::kill(child, 0), -1);
    EXPECT_EQ(errno, ESRCH) << "killed and reaped";
}

TEST_F(GioMounterTest, AMissingGioIsSaidInTheLogOnce) {
    LogCapture log;
    const GioMounter mounter((root / "no-gio").native());
    EXPECT_FALSE(mounter.mount("smb://nas/photos/"));
    EXPECT_FALSE(mounter.mount("smb://nas/photos/"));
    EXPECT_THAT(log.messages("BackupEngine"), ElementsAre(HasSubstr("libglib2.0-bin")));
}

}  // namespace
}  // namespace quillstow
