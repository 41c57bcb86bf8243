// Cloud-synced folders by their paths below a home folder, the providers found there, and the
// warnings.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestTree.hpp"
#include "environment/CloudSyncDetector.hpp"

namespace quillstow {
namespace {

using namespace testing;
using namespace CloudSyncDetector;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

class CloudSyncDetectorTest : public ::testing::Test {
  protected:
    TemporaryFolder root;
    fs::path home = root / "home/ana";

    void SetUp() override { makeFolder(home); }

    std::optional<Provider> of(const std::string& relative) {
        return provider(home / relative, home);
    }
};

TEST_F(CloudSyncDetectorTest, KnowsProvidersByTheirFolders) {
    EXPECT_EQ(of("Library/Mobile Documents/com~apple~CloudDocs/Backups"), Provider::iCloud);
    EXPECT_EQ(of("Library/Mobile Documents/iCloud~com~example/Documents"), Provider::iCloud);
    EXPECT_EQ(of("Library/CloudStorage/OneDrive-Personal/x"), Provider::oneDrive);
    EXPECT_EQ(of("Library/CloudStorage/GoogleDrive-someone/My Drive"), Provider::googleDrive);
    EXPECT_EQ(of("Library/CloudStorage/Box-Box/x"), Provider::box);
    EXPECT_EQ(of("Library/CloudStorage/ownCloud/x"), Provider::nextcloud);
    EXPECT_EQ(of("Library/CloudStorage/SomethingElse/x"), Provider::dropbox) << "last resort";
    EXPECT_EQ(of("Library/CloudStorage"), Provider::dropbox);
    EXPECT_EQ(of("Dropbox/x"), Provider::dropbox);
    EXPECT_FALSE(of("Dropbox2"));
    EXPECT_EQ(of("Box Sync/a"), Provider::box);
    EXPECT_EQ(of("Sync/a"), Provider::sync);
    EXPECT_EQ(of("Nextcloud"), Provider::nextcloud);
    EXPECT_FALSE(of("Documents/Dropbox"));
    EXPECT_FALSE(provider("/media/ana/Drive/Dropbox", home));
}

TEST_F(CloudSyncDetectorTest, AFolderLinkedIntoACloudFolderIsJudgedByItsTarget) {
    makeFolder(home / "Dropbox/Work");
    makeLink(root / "shortcut", home / "Dropbox/Work");
    EXPECT_EQ(provider(root / "shortcut/Backups", home), Provider::dropbox);
    // A home reached through a link is resolved too.
    makeLink(root / "home-link", home);
    EXPECT_EQ(provider(home / "OneDrive/x", root / "home-link"), Provider::oneDrive);
}

TEST_F(CloudSyncDetectorTest, ListsTheProvidersFoundInTheOrderFoundEachOnce) {
    makeFolder(home / "Library/Mobile Documents/com~apple~CloudDocs");
    makeFolder(home / "Library/CloudStorage/OneDrive-Personal");
    makeFolder(home / "Library/CloudStorage/Dropbox");
    makeFolder(home / "Library/CloudStorage/SomethingElse");
    makeFolder(home / "Library/CloudStorage/.hidden-dropbox");
    // The legacy folder links to the CloudStorage one: listed once, under the latter.
    makeLink(home / "Dropbox", home / "Library/CloudStorage/Dropbox");
    makeFolder(home / "Nextcloud");
    makeFolder(home / "MEGA");
    writeFile(home / "Tresorit", "a file, not a folder");

    const auto found = availableProviders(home);
    std::vector<Provider> providers;
    for (const auto& entry : found)
        providers.push_back(entry.provider);
    EXPECT_EQ(providers.front(), Provider::iCloud);
    EXPECT_EQ(std::count(providers.begin(), providers.end(), Provider::dropbox), 1);
    EXPECT_THAT(providers, ::testing::UnorderedElementsAre(Provider::iCloud, Provider::oneDrive,
                                                           Provider::dropbox, Provider::mega,
                                                           Provider::nextcloud));
    // Home folders come last, in the table's order.
    EXPECT_EQ(providers[providers.size() - 2], Provider::mega);
    EXPECT_EQ(providers.back(), Provider::nextcloud);
    for (const auto& entry : found) {
        if (entry.provider == Provider::dropbox) {
            EXPECT_EQ(entry.url, home / "Library/CloudStorage/Dropbox");
        }
    }
    EXPECT_TRUE(availableProviders(root / "nobody").empty());
}

TEST(CloudWarnings, NameTheProviderAndOnlyICloudsOptimizedPlaceholders) {
    EXPECT_THAT(warning(Provider::iCloud),
                ::testing::StartsWith("This folder is synced with iCloud Drive. Backing up here "
                                      "means every backup will upload to iCloud,"));
    EXPECT_THAT(warning(Provider::iCloud), HasSubstr("stored as \"Optimized\" placeholders"));
    EXPECT_THAT(warning(Provider::sync), HasSubstr("upload to Sync.com,"));
    EXPECT_THAT(warning(Provider::sync), HasSubstr("stored as placeholders instead"));
}

}  // namespace
}  // namespace quillstow
