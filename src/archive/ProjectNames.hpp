#pragma once

// What a project's folder name says: the name it is filed under, what is awkward about it, and
// the year it belongs to. Pure functions of the name, with Unicode regular expressions (ICU),
// so a no-break space or a full-width blank is white space like any other. Any thread.

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

}  // namespace projectnames
}  // namespace quillstow
