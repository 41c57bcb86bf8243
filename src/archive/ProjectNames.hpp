#pragma once

// What a project's folder name says: the name it is filed under, what is awkward about it, and
// the year it belongs to. Pure functions of the name, with Unicode regular expressions (ICU),
// so a no-break space or a full-width blank is white space like any other. Any thread.

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillstow {

// In the order a review lists them.
enum class ProjectNameProblem { surroundingWhitespace, repeatedSpaces, awkwardCharacters };

namespace projectnames {

// The years a name may suggest, inclusive.
inline constexpr int earliestYear = 2015;
inline constexpr int latestYear = 2040;

// Trimmed of the Unicode space separators and the tab at both ends; line breaks stay.
std::string trimmedOfSpaces(std::string_view name);

// ":" and "/" become "-", every run of white space one blank, and the ends trimmed.
std::string tidiedName(std::string_view name);

std::vector<ProjectNameProblem> problemsOf(std::string_view name);

// A four-digit year in range ("Spring Collection 2023"), else a season code ("SS24",
// "Fall 23", "pre-fall19"), else nothing; only the first match of each expression counts.
std::optional<int> suggestedYear(std::string_view name);

// The text in its canonical composition (NFC), so that "é" typed and "é" as "e" with an accent
// sort alike; ordering these keys by bytes is ordering by Unicode scalar values.
std::string canonicalKey(std::string_view text);

// Sorts by the canonical key of each item's text, ties by the text's own bytes.
template <typename Item, typename TextOf>
void sortInTextOrder(std::vector<Item>& items, TextOf textOf) {
    std::vector<std::pair<std::string, std::size_t>> keys;
    keys.reserve(items.size());
    for (std::size_t i = 0; i < items.size(); ++i)
        keys.emplace_back(canonicalKey(textOf(items[i])), i);
    std::sort(keys.begin(), keys.end(), [&](const auto& a, const auto& b) {
        if (a.first != b.first) return a.first < b.first;
        return textOf(items[a.second]) < textOf(items[b.second]);
    });
    std::vector<Item> sorted;
    sorted.reserve(items.size());
    for (const auto& key : keys)
        sorted.push_back(std::move(items[key.second]));
    items = std::move(sorted);
}

}  // namespace projectnames
}  // namespace quillstow
