#include "copy/ExclusionFilter.hpp"

#include <algorithm>
#include <array>
#include <cctype>

namespace quillstow {

namespace {

std::string lowercased(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return lower;
}

constexpr std::array<std::string_view, 3> internalFileNames{
    ".quillstow-checkpoint.json",
    ".quillstow-hashes.json",
    ".quillstow-lastcheck",
};

}  // namespace

std::string_view pathExtension(std::string_view name) {
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return {};
    return name.substr(dot + 1);
}

bool matchesPattern(std::string_view name, std::string_view pattern) {
    if (pattern.find('*') == std::string_view::npos) return lowercased(name) == lowercased(pattern);
    const std::string lowerName = lowercased(name);
    const std::string lowerPattern = lowercased(pattern);

    std::vector<std::string_view> pieces;
    std::string_view rest = lowerPattern;
    for (auto star = rest.find('*'); star != std::string_view::npos; star = rest.find('*')) {
        pieces.push_back(rest.substr(0, star));
        rest.remove_prefix(star + 1);
    }
    pieces.push_back(rest);

    const bool anchoredAtStart = !lowerPattern.starts_with('*');
    const bool anchoredAtEnd = !lowerPattern.ends_with('*');
    std::size_t position = 0;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (pieces[i].empty()) continue;
        const auto found = lowerName.find(pieces[i], position);
        if (found == std::string::npos) return false;
        if (i == 0 && anchoredAtStart && found != 0) return false;
        if (i + 1 == pieces.size() && anchoredAtEnd &&
            found + pieces[i].size() != lowerName.size()) {
            return false;
        }
        position = found + pieces[i].size();
    }
    return true;
}

bool ExclusionFilter::isExcluded(std::string_view name, bool isDirectory) const {
    if (excludedNames.contains(name)) return true;
    if (isDirectory) return false;
    for (const auto& pattern : excludedFilePatterns) {
        if (matchesPattern(name, pattern)) return true;
    }
    const std::string_view extension = pathExtension(name);
    if (extension.empty()) return false;
    return excludedExtensions.contains(lowercased(extension));
}

ExclusionFilter filterForProfile(BackupProfile profile) {
    ExclusionFilter filter;
    filter.profile = profile;
    return filter;
}

bool isPackageUnit(std::string_view, BackupProfile) {
    return false;
}

bool isInternalFileName(std::string_view name) {
    return std::find(internalFileNames.begin(), internalFileNames.end(), name) !=
           internalFileNames.end();
}

BackupProfile recommendProfile(const std::vector<std::string>&, const std::string&) {
    return BackupProfile::standard;
}

}  // namespace quillstow
