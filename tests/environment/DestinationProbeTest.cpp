// What the machine's probe does to bring a destination back, on real folders and the real
// mount table: which GVFS locations it asks to mount and by what URI, and that it opens the
// destination itself, as an automount point needs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <mutex>

#include "TestTree.hpp"
#include "environment/DestinationProbe.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAreArray;
namespace fs = std::filesystem;

// Mounts nothing, and remembers what it was asked to mount.
class RecordingMounter final : public GvfsMounter {
  public:
    bool mount(const std::string& uri) const override {
        std::lock_guard lock(mutex_);
        asked_.push_back(uri);
        return true;
    }
    std::vector<std::string> asked() const {
        std::lock_guard lock(mutex_);
        return asked_;
    }

  private:
    mutable std::mutex mutex_;
    mutable std::vector<std::string> asked_;
};

TEST(GvfsMountUri, NamesTheShareOfEachKindThatGvfsMounts) {
    const std::string gvfs = "/run/user/1000/gvfs/";
    const struct {
        const char* name;
        std::string path;
        std::optional<std::string> uri;
    } cases[] = {
        {"SMB share, below it", gvfs + "smb-share:server=nas,share=photos/Backups/2024",
         "smb://nas/photos/"},
        {"SMB with domain, port and an escaped share",
         gvfs + "smb-share:domain=WORK,port=4450,server=nas,share=My%20Photos,user=ana",
         "smb://WORK;ana@nas:4450/My%20Photos/"},
        {"SMB share named in raw UTF-8", gvfs + "smb-share:server=nas,share=Fotos-ä",
         "smb://nas/Fotos-%C3%A4/"},
        {"SFTP with user and port", gvfs + "sftp:host=example.org,port=2222,user=bob/home/bob",
         "sftp://bob@example.org:2222/"},
        {"SFTP user holding an at sign", gvfs + "sftp:host=h,user=ana%40corp",
         "sftp://ana%40corp@h/"},
        {"SFTP to an IPv6 address", gvfs + "sftp:host=fe80%3A%3A1", "sftp://[fe80::1]/"},
        {"FTP", gvfs + "ftp:host=ftp.example.org", "ftp://ftp.example.org/"},
        {"FTPS", gvfs + "ftps:host=files.example.org,user=ana", "ftps://ana@files.example.org/"},
        {"WebDAV over TLS with a prefix",
         gvfs + "dav:host=cloud,ssl=true,user=me,prefix=%2Fremote.php%2Fwebdav/Photos",
         "davs://me@cloud/remote.php/webdav/"},
        {"WebDAV in the clear", gvfs + "dav:host=box,port=8080,ssl=false", "dav://box:8080/"},
        {"AFP volume", gvfs + "afp-volume:host=LCARS.local,user=jie%20mei,volume=video/Shows",
         "afp://jie%20mei@LCARS.local/video/"},
        {"NFS export", gvfs + "nfs:host=nas,prefix=%2Fexport", "nfs://nas/export/"},
        {"a path not yet standardized", "/run/user/1000/gvfs/x/../sftp:host=h/./a", "sftp://h/"},
        {"a phone is no share", gvfs + "mtp:host=Phone/DCIM", std::nullopt},
        {"browsing a server is no share", gvfs + "smb-server:server=nas", std::nullopt},
        {"SMB without its share", gvfs + "smb-share:server=nas", std::nullopt},
        {"WebDAV without its host", gvfs + "dav:ssl=true", std::nullopt},
        {"a broken escape", gvfs + "sftp:host=h%2", std::nullopt},
        {"an item without a value", gvfs + "sftp:host", std::nullopt},
        {"the GVFS folder itself", "/run/user/1000/gvfs", std::nullopt},
        {"a user that is no number", "/run/user/ana/gvfs/sftp:host=h", std::nullopt},
        {"elsewhere", "/media/ana/gvfs/smb-share:server=a,share=b", std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(gvfsMountUri(c.path), c.uri) << c.name;
}

class SystemDestinationProbeTest : public ::testing::Test {
  protected:
    void SetUp() override {
        makeFolder(root / "Back");
        makeFolder(root / "media/Share/Backups");
    }

    TemporaryFolder root;
    std::shared_ptr<RecordingMounter> mounter = std::make_shared<RecordingMounter>();
    // A folder below media/ stands where a drive is not: the mount that holds it is above.
    SystemDestinationProbe probe{{(root / "media").native() + "/"}, mounter};
};

TEST_F(SystemDestinationProbeTest, AsksGvfsOnlyForItsOwnLocations) {
    const struct {
        const char* name;
        fs::path destination;
        bool isBack;
        std::vector<std::string> asked;
    } cases[] = {
        {"a folder the table holds", root / "Back", true, {}},
        {"a drive that is not there", root / "media/Share/Backups", false, {}},
        {"a GVFS share that went away",
         "/run/user/4242/gvfs/smb-share:server=nas,share=photos/Backups",
         false,
         {"smb://nas/photos/"}},
    };
    for (const auto& c : cases) {
        const auto before = mounter->asked().size();
        EXPECT_EQ(probe.isBack(c.destination), c.isBack) << c.name;
        const auto asked = mounter->asked();
        EXPECT_THAT(std::vector(asked.begin() + long(before), asked.end()),
                    ElementsAreArray(c.asked))
            << c.name;
    }
}

TEST_F(SystemDestinationProbeTest, OpensTheDestinationItselfAsAnAutomountPointNeeds) {
    const fs::path destination = root / "media/Share/Backups";
    const int events = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(events, 0);
    const int watch = ::inotify_add_watch(events, destination.c_str(), IN_OPEN);
    ASSERT_GE(watch, 0);

    EXPECT_FALSE(probe.isBack(destination));

    // An event of the folder's own watch without a name is the folder itself being opened; a
    // stat, or opening only its parent, would make none.
    alignas(inotify_event) char buffer[4096];
    const ssize_t length = ::read(events, buffer, sizeof buffer);
    ::close(events);
    ASSERT_GT(length, 0) << "the destination was not opened";
    const auto* event = reinterpret_cast<const inotify_event*>(buffer);
    EXPECT_EQ(event->wd, watch);
    EXPECT_EQ(event->len, 0u);
    EXPECT_TRUE(event->mask & IN_OPEN);
}

}  // namespace
}  // namespace quillstow
