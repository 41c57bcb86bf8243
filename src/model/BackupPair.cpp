#include "model/BackupPair.hpp"

namespace quillstow {

json::Value toJson(const BackupPair& pair) {
    using coding::fromDate;
    using coding::fromFileUrl;
    json::Value value{
        {"id", pair.id.text()},
        {"name", pair.name},
        {"sourceURL", fromFileUrl(pair.sourceURL)},
        {"destinationURL", fromFileUrl(pair.destinationURL)},
        {"isEnabled", pair.isEnabled},
        {"createdAt", fromDate(pair.createdAt)},
        {"profile", coding::nameOf(backupProfileNames, pair.profile)},
        {"didSuggestProfile", pair.didSuggestProfile},
    };
    if (pair.sourceBookmark) value["sourceBookmark"] = base64::encode(*pair.sourceBookmark);
    if (pair.destinationBookmark) {
        value["destinationBookmark"] = base64::encode(*pair.destinationBookmark);
    }
    if (pair.lastBackupAt) value["lastBackupAt"] = fromDate(*pair.lastBackupAt);
    if (pair.lastBackupFileCount) value["lastBackupFileCount"] = *pair.lastBackupFileCount;
    if (pair.lastBackupByteCount) value["lastBackupByteCount"] = *pair.lastBackupByteCount;
    if (pair.offsiteURL) value["offsiteURL"] = fromFileUrl(*pair.offsiteURL);
    if (pair.offsiteBookmark) value["offsiteBookmark"] = base64::encode(*pair.offsiteBookmark);
    if (pair.lastOffsiteAt) value["lastOffsiteAt"] = fromDate(*pair.lastOffsiteAt);
    if (pair.lastOffsiteFileCount) value["lastOffsiteFileCount"] = *pair.lastOffsiteFileCount;
    pair.keptValues.restoreInto(value);
    return value;
}

BackupPair backupPairFromJson(const json::Value& value, coding::DecodingNotes* notes,
                              std::string where) {
    using namespace coding;
    FieldReader fields(value, std::move(where), notes);
    BackupPair pair;
    // Without these the pair can't be told apart or placed; a default would misplace a backup.
    pair.id = fields.required("id", toUuid);
    pair.name = fields.required("name", toString);
    pair.sourceURL = fields.required("sourceURL", toFileUrl);
    pair.destinationURL = fields.required("destinationURL", toFileUrl);
    pair.sourceBookmark = fields.optional("sourceBookmark", toBytes);
    pair.destinationBookmark = fields.optional("destinationBookmark", toBytes);
    // A pair whose switch can't be read waits for the user rather than run against their wish.
    pair.isEnabled = fields.orDefault("isEnabled", false, toBool);
    pair.createdAt = fields.orDefault("createdAt", Date{}, toDate);
    pair.lastBackupAt = fields.optional("lastBackupAt", toDate);
    pair.lastBackupFileCount = fields.optional("lastBackupFileCount", toInteger);
    pair.lastBackupByteCount = fields.optional("lastBackupByteCount", toInteger);
    pair.offsiteURL = fields.optional("offsiteURL", toFileUrl);
    pair.offsiteBookmark = fields.optional("offsiteBookmark", toBytes);
    pair.lastOffsiteAt = fields.optional("lastOffsiteAt", toDate);
    pair.lastOffsiteFileCount = fields.optional("lastOffsiteFileCount", toInteger);
    pair.profile =
        fields.optional("profile", caseOf(backupProfileNames)).value_or(BackupProfile::standard);
    pair.didSuggestProfile = fields.optional("didSuggestProfile", toBool).value_or(false);
    pair.keptValues = fields.kept(toJson(pair));
    return pair;
}

namespace {

// One pass from the left, like a plain replace of every occurrence with nothing.
void removeAll(std::string& text, std::string_view piece) {
    std::string kept;
    kept.reserve(text.size());
    std::size_t position = 0;
    for (auto found = text.find(piece); found != std::string::npos;
         found = text.find(piece, position)) {
        kept.append(text, position, found - position);
        position = found + piece.size();
    }
    kept.append(text, position);
    text = std::move(kept);
}

// Unicode's white space and line ends in UTF-8: at the ends of a name the user sees none of
// them, so none may make a folder name of its own.
constexpr std::string_view whiteSpaces[] = {
    "\t",     "\n",     "\v",     "\f",     "\r",     " ",      "\u0085", "\u00A0", "\u1680",
    "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008",
    "\u2009", "\u200A", "\u2028", "\u2029", "\u202F", "\u205F", "\u3000",
};

// How many bytes of white space `matches` finds at one end of the text, 0 for none.
template <typename Matches>
std::size_t whiteSpaceAt(Matches matches) {
    for (const std::string_view space : whiteSpaces) {
        if (matches(space)) return space.size();
    }
    return 0;
}

std::string_view trimmedOfWhiteSpace(std::string_view text) {
    while (const auto size = whiteSpaceAt([&](auto space) { return text.starts_with(space); }))
        text.remove_prefix(size);
    while (const auto size = whiteSpaceAt([&](auto space) { return text.ends_with(space); }))
        text.remove_suffix(size);
    return text;
}

}  // namespace

std::string sanitizedFolderName(const std::string& name) {
    std::string result = name;
    removeAll(result, "..");
    removeAll(result, "/");
    removeAll(result, "\\");
    removeAll(result, std::string_view("\0", 1));
    result = std::string(trimmedOfWhiteSpace(result));
    const auto firstNonDot = result.find_first_not_of('.');
    result.erase(0, firstNonDot == std::string::npos ? result.size() : firstNonDot);
    return result.empty() ? "Untitled Backup" : result;
}

}  // namespace quillstow
