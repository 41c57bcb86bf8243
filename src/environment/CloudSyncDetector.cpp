#include "environment/CloudSyncDetector.hpp"

#include <array>
#include <set>

#include "support/Paths.hpp"
#include "support/TreeWalk.hpp"

namespace quillstow::CloudSyncDetector {

namespace fs = std::filesystem;

namespace {

struct Prefix {
    std::string_view prefix;
    Provider provider;
};

// Folder names under Library/CloudStorage, lower-cased, tested in this order.
constexpr std::array<Prefix, 11> cloudStoragePrefixes{{
    {"dropbox", Provider::dropbox},
    {"onedrive", Provider::oneDrive},
    {"googledrive", Provider::googleDrive},
    {"box", Provider::box},
    {"proton", Provider::proton},
    {"sync", Provider::sync},
    {"pcloud", Provider::pCloud},
    {"mega", Provider::mega},
    {"nextcloud", Provider::nextcloud},
    {"owncloud", Provider::nextcloud},
    {"tresorit", Provider::tresorit},
}};

// Folders of the clients in the home folder, in this order; the first match wins.
constexpr std::array<Prefix, 12> homeFolders{{
    {"/Dropbox", Provider::dropbox},
    {"/OneDrive", Provider::oneDrive},
    {"/Google Drive", Provider::googleDrive},
    {"/Box", Provider::box},
    {"/Box Sync", Provider::box},
    {"/pCloud Drive", Provider::pCloud},
    {"/ProtonDrive", Provider::proton},
    {"/Sync", Provider::sync},
    {"/MEGA", Provider::mega},
    {"/Nextcloud", Provider::nextcloud},
    {"/ownCloud", Provider::nextcloud},
    {"/Tresorit", Provider::tresorit},
}};

constexpr const char* mobileDocuments = "Library/Mobile Documents";
constexpr const char* cloudStorage = "Library/CloudStorage";

std::string lowercased(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    }
    return lower;
}

std::optional<Provider> providerOfStorageFolder(std::string_view name) {
    const std::string lower = lowercased(name);
    for (const auto& [prefix, provider] : cloudStoragePrefixes) {
        if (lower.starts_with(prefix)) return provider;
    }
    return std::nullopt;
}

bool isFolder(const fs::path& path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

}  // namespace

std::string_view nameOf(Provider provider) {
    switch (provider) {
        case Provider::iCloud:
            return "iCloud Drive";
        case Provider::dropbox:
            return "Dropbox";
        case Provider::oneDrive:
            return "OneDrive";
        case Provider::googleDrive:
            return "Google Drive";
        case Provider::box:
            return "Box";
        case Provider::proton:
            return "Proton Drive";
        case Provider::sync:
            return "Sync.com";
        case Provider::pCloud:
            return "pCloud";
        case Provider::mega:
            return "MEGA";
        case Provider::nextcloud:
            return "Nextcloud";
        case Provider::tresorit:
            return "Tresorit";
    }
    return {};
}

std::optional<Provider> provider(const fs::path& url, const fs::path& home) {
    const fs::path path = paths::resolved(url);
    const fs::path root = paths::resolved(home);
    if (paths::isWithin(path, paths::appending(root, mobileDocuments))) return Provider::iCloud;

    const std::string storage = paths::appending(root, cloudStorage).native();
    if (paths::isWithin(path, storage)) {
        std::string_view rest = std::string_view(path.native()).substr(storage.size());
        if (rest.starts_with('/')) rest.remove_prefix(1);
        // Any other folder there is synced too: the warning must show, under a name.
        return providerOfStorageFolder(rest.substr(0, rest.find('/'))).value_or(Provider::dropbox);
    }

    for (const auto& [folder, provider] : homeFolders) {
        if (paths::isWithin(path, paths::appending(root, std::string(folder.substr(1))))) {
            return provider;
        }
    }
    return std::nullopt;
}

std::optional<Provider> provider(const fs::path& url) {
    return provider(url, paths::homeFolder());
}

std::vector<AvailableProvider> availableProviders(const fs::path& home) {
    std::vector<AvailableProvider> found;
    std::set<fs::path> seen;
    const fs::path root = paths::resolved(home);
    const auto add = [&](Provider provider, const fs::path& url) {
        const fs::path resolved = paths::resolved(url);
        if (seen.contains(resolved) || !isFolder(url)) return;
        found.push_back({provider, url});
        seen.insert(resolved);
    };

    add(Provider::iCloud,
        paths::appending(root, std::string(mobileDocuments) + "/com~apple~CloudDocs"));

    const fs::path storage = paths::appending(root, cloudStorage);
    walkTree(storage, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        if (entry.name.starts_with('.')) return false;
        if (const auto provider = providerOfStorageFolder(entry.name)) {
            add(*provider, paths::appending(storage, std::string(entry.name)));
        }
        return false;
    });

    for (const auto& [folder, provider] : homeFolders)
        add(provider, paths::appending(root, std::string(folder.substr(1))));
    return found;
}

std::vector<AvailableProvider> availableProviders() {
    return availableProviders(paths::homeFolder());
}

std::string warning(Provider provider) {
    if (provider == Provider::iCloud) {
        return "This folder is synced with iCloud Drive. Backing up here means every backup will "
               "upload to iCloud, which can be slow and use significant bandwidth. Files may also "
               "be stored as \"Optimized\" placeholders instead of real copies, which defeats "
               "the purpose of a backup.\n\nWe recommend using an external drive instead.";
    }
    const std::string name(nameOf(provider));
    return "This folder is synced with " + name + ". Backing up here means every backup will " +
           "upload to " + name +
           ", which can be slow and use significant bandwidth. Files may also be stored as "
           "placeholders instead of real copies, which defeats the purpose of a backup.\n\nWe "
           "recommend using an external drive instead.";
}

}  // namespace quillstow::CloudSyncDetector
