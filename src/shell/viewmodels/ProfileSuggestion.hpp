#pragma once

// The smart-setup offer after a first backup (or on "Redo Smart Setup…"): what the request
// must hold, the words of the offer for each profile, and the answer applied to the pair.
//
// Pure but for acceptSuggestion, which changes the pair in the settings; main thread.

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "model/BackupPair.hpp"
#include "model/BackupProfile.hpp"
#include "model/ConfigStore.hpp"
#include "support/NotificationCenter.hpp"

namespace quillstow::shell {

inline constexpr const char* profileSuggestedNotificationName = "io.quillstow.profileSuggested";

struct ProfileSuggestion {
    Uuid pairId;
    std::string pairName;
    BackupProfile recommended = BackupProfile::standard;
    std::int64_t approximateBytes = 0;

    bool operator==(const ProfileSuggestion&) const = default;
};

// The request's four keys with their types, the profile a raw value; else nothing.
std::optional<ProfileSuggestion> profileSuggestionOf(const NotificationInfo& info);

// The request that opens the window, with the four keys.
NotificationInfo requestOf(const ProfileSuggestion& suggestion);

// "Redo Smart Setup…": the pair's source listed as a pass lists it (through its bookmark, else
// the source as it stands), the sizes of its files added up, and the profile it seems to call
// for, which may be standard here. Reads the whole source: call it off the main thread. Once
// `stop` is asked for, it reads no further folder.
ProfileSuggestion measureSuggestion(const BackupPair& pair, std::stop_token stop = {});

// What the window says of a profile.
struct ProfileOffer {
    std::string icon;
    std::string title;
    std::string description;
    std::vector<std::string> bullets;
};
ProfileOffer offerOf(BackupProfile profile, const std::string& pairName);

// "Profile: {raw value}", then the profile's excluded folders and extensions, sorted, ten at
// most with " (+{k} more)".
std::vector<std::string> technicalLinesOf(BackupProfile profile);

// "Set it up": the pair takes the profile from its next pass on, and is not asked again. A
// pair removed in the meantime is left alone.
void acceptSuggestion(ConfigStore& store, const ProfileSuggestion& suggestion);

namespace SmartSetupTexts {
inline constexpr const char* windowTitle = "Smart setup";
inline constexpr const char* whatThisChanges = "What does this change?";
inline constexpr const char* showTechnicalDetails = "Show technical details";
inline constexpr const char* hideTechnicalDetails = "Hide technical details";
inline constexpr const char* useDefaults = "Use defaults";
inline constexpr const char* setItUp = "Set it up";
}  // namespace SmartSetupTexts

}  // namespace quillstow::shell
