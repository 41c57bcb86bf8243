#pragma once

// Every word the filing of a finished project decides: the inspector's heads-ups, the manifest's
// check, the filer's endings, the slimmer's offer and the flow's progress. The window's own
// words live with the shell's texts.
// Pure functions and constants; any thread.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillstow::filingtext {

// Inspector.
inline constexpr std::string_view finalsEmpty =
    "There's nothing in the finals folder. This project may not be finished yet.";
std::string looseFiles(std::size_t count);
std::string missingFolders(const std::vector<std::string>& folders);
inline constexpr std::string_view surroundingWhitespace =
    "This name starts or ends with a space, which is invisible and easy to trip over later.";
inline constexpr std::string_view repeatedSpaces = "This name has double spaces in it.";
inline constexpr std::string_view awkwardCharacters =
    "This name has characters that some apps handle badly, like : or /.";

// Manifest check: "All {e} files are present and the right size." or the parts that failed.
std::string checkSummary(std::size_t missing, std::size_t wrongSize, std::size_t expected);

// Filer.
std::string sourceMissing(std::string_view name);
std::string alreadyFiled(std::string_view name, int year);
std::string folderNotCreated(int year, std::string_view error);
std::string copyFailed(std::string_view name, std::string_view error);
std::string filesNotCopied(std::size_t count);
std::string copyDoesNotMatch(std::string_view name, int year, std::string_view checkSummary);
std::string filed(std::string_view name, int year, std::size_t files);
std::string notFiled(std::string_view name);

// Slimmer: the sentence of the offer, with the bytes already formatted.
inline constexpr std::string_view nothingToTidy =
    "Nothing to tidy up — this project has no rebuildable files.";
std::string rebuildableOffer(std::string_view size, std::size_t folders);

// Flow.
inline constexpr std::string_view tidyingUp = "Tidying up files your apps can rebuild…";

}  // namespace quillstow::filingtext
