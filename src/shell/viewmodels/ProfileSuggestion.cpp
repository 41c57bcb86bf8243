#include "shell/viewmodels/ProfileSuggestion.hpp"

#include <algorithm>

#include "copy/ExclusionFilter.hpp"
#include "copy/ProfileRecommendation.hpp"
#include "copy/SourceListing.hpp"
#include "model/BookmarkManager.hpp"

namespace quillstow::shell {

namespace {

template <typename T>
const T* valueAt(const NotificationInfo& info, const char* key) {
    const auto found = info.find(key);
    return found == info.end() ? nullptr : std::get_if<T>(&found->second);
}

// "{label}: a, b, … (+k more)", or nothing for an empty list.
std::optional<std::string> listLine(const char* label, std::vector<std::string> items) {
    constexpr std::size_t shown = 10;
    if (items.empty()) return std::nullopt;
    std::sort(items.begin(), items.end());
    std::string line = std::string(label) + ": ";
    for (std::size_t i = 0; i < std::min(shown, items.size()); ++i)
        line += (i ? ", " : "") + items[i];
    if (items.size() > shown) line += " (+" + std::to_string(items.size() - shown) + " more)";
    return line;
}

}  // namespace

std::optional<ProfileSuggestion> profileSuggestionOf(const NotificationInfo& info) {
    const auto* id = valueAt<Uuid>(info, "pairId");
    const auto* name = valueAt<std::string>(info, "pairName");
    const auto* profile = valueAt<std::string>(info, "recommendedProfile");
    const auto* bytes = valueAt<std::int64_t>(info, "approximateBytes");
    if (!id || !name || !profile || !bytes) return std::nullopt;
    const auto recommended = coding::caseNamed(backupProfileNames, *profile);
    if (!recommended) return std::nullopt;
    return ProfileSuggestion{*id, *name, *recommended, *bytes};
}

NotificationInfo requestOf(const ProfileSuggestion& suggestion) {
    return {
        {"pairId", suggestion.pairId},
        {"pairName", suggestion.pairName},
        {"recommendedProfile",
         std::string(coding::nameOf(backupProfileNames, suggestion.recommended))},
        {"approximateBytes", suggestion.approximateBytes},
    };
}

ProfileSuggestion measureSuggestion(const BackupPair& pair, std::stop_token stop) {
    std::filesystem::path source = pair.sourceURL;
    if (pair.sourceBookmark) {
        try {
            source =
                BookmarkManager::resolveBookmark(*pair.sourceBookmark, pair.sourceURL, true).url;
        } catch (const std::exception&) {
            // A stale or unreadable bookmark: the source as it stands.
        }
    }
    const auto items = listSource(source, filterForPair(pair), stop);
    std::int64_t bytes = 0;
    for (const auto& item : items)
        bytes += item.byteCount();
    return {pair.id, pair.name, recommendProfile(items, source), bytes};
}

ProfileOffer offerOf(BackupProfile profile, const std::string& pairName) {
    const std::vector<std::string> normal{"Normal backup — every file in this folder is included."};
    switch (profile) {
        case BackupProfile::standard:
            return {"folder", "Ready to back up \"" + pairName + ".\"",
                    "Backs up everything in this folder normally.", normal};
        case BackupProfile::film:
            return {"film",
                    "Looks like a film project.",
                    "Optimised for video work — handles project libraries as a unit and skips "
                    "files your apps recreate automatically.",
                    {"Backs up your Final Cut and Logic projects as one whole thing instead of "
                     "going through them piece by piece — much faster.",
                     "Skips files your apps automatically recreate, like render previews and "
                     "proxy media.",
                     "Picks up where it left off if a big video gets interrupted, instead of "
                     "starting over."}};
        case BackupProfile::photography:
            return {"photo.stack",
                    "Looks like a photo library.",
                    "Optimised for photo libraries — keeps your catalog intact and skips preview "
                    "thumbnails.",
                    {"Backs up your Photos library and Lightroom catalog as whole units, so a "
                     "200,000-photo library doesn't have to be checked one image at a time.",
                     "Skips preview thumbnails and other files your apps regenerate "
                     "automatically."}};
        case BackupProfile::music:
            return {"music.note",
                    "Looks like a music project.",
                    "Optimised for music projects — handles your sessions as a unit and skips "
                    "freeze files.",
                    {"Backs up your Logic and GarageBand projects as whole units instead of going "
                     "through every internal file.",
                     "Skips freeze files and other bounces that get recreated automatically."}};
        case BackupProfile::developer:
            return {"chevron.left.forwardslash.chevron.right",
                    "Looks like a code project.",
                    "Optimised for code projects — skips dependencies and build files that get "
                    "rebuilt anyway.",
                    {"Skips dependency folders like node_modules and build outputs that get "
                     "rebuilt anyway.",
                     "Cuts down on hundreds of thousands of tiny files that don't need to be in a "
                     "backup."}};
        case BackupProfile::documents:
            return {"doc.text", "Looks like documents.",
                    "Standard backup behavior for documents and files.", normal};
    }
    return {};
}

std::vector<std::string> technicalLinesOf(BackupProfile profile) {
    std::vector<std::string> lines{"Profile: " +
                                   std::string(coding::nameOf(backupProfileNames, profile))};
    if (profile == BackupProfile::standard) return lines;
    if (auto names = listLine("Excluded folders", profileExcludedNames(profile)))
        lines.push_back(*names);
    if (auto extensions = listLine("Excluded extensions", profileExcludedExtensions(profile)))
        lines.push_back(*extensions);
    return lines;
}

void acceptSuggestion(ConfigStore& store, const ProfileSuggestion& suggestion) {
    store.updatePair(suggestion.pairId, [&suggestion](BackupPair& pair) {
        pair.profile = suggestion.recommended;
        pair.didSuggestProfile = true;
    });
}

}  // namespace quillstow::shell
