#pragma once

// The folders that cloud storage clients keep in sync. A cloud folder makes a bad primary
// destination (every backup uploads, files may become placeholders) and a good offsite one.
// Pure path rules and a look at what exists under the home folder; no state. Any thread.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillstow::CloudSyncDetector {

enum class Provider {
    iCloud,
    dropbox,
    oneDrive,
    googleDrive,
    box,
    proton,
    sync,
    pCloud,
    mega,
    nextcloud,
    tresorit
};

// The name shown to the user, which is also the stored value: "iCloud Drive", "Dropbox", ...
std::string_view nameOf(Provider provider);

struct AvailableProvider {
    Provider provider;
    std::filesystem::path url;  // as found, not resolved

    bool operator==(const AvailableProvider&) const = default;
};

// The provider that syncs `url`, judged on its path with links resolved; the folder need not
// exist. `home` is the user's home folder.
std::optional<Provider> provider(const std::filesystem::path& url,
                                 const std::filesystem::path& home);
std::optional<Provider> provider(const std::filesystem::path& url);

// The providers whose folders exist here, in the order they are found.
std::vector<AvailableProvider> availableProviders(const std::filesystem::path& home);
std::vector<AvailableProvider> availableProviders();

// What the user reads before choosing a cloud folder as the destination.
std::string warning(Provider provider);

}  // namespace quillstow::CloudSyncDetector
