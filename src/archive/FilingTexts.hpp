#pragma once

// Every word the filing of a finished project shows: the inspector's heads-ups, the manifest's
// check, the filer's endings, the slimmer's offer and the screens of the flow, in one place.
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
inline constexpr std::string_view chooseTitle = "File a finished project";
inline constexpr std::string_view chooseBody =
    "Pick a project folder you've finished with. It gets copied into your archive under the "
    "right year — your original stays exactly where it is.";
inline constexpr std::string_view chooseProjectButton = "Choose Project Folder…";
inline constexpr std::string_view chooseProjectMessage = "Choose the finished project folder";
inline constexpr std::string_view choosePrompt = "Choose";
inline constexpr std::string_view worthALook = "Worth a look first";
inline constexpr std::string_view fileAnyway = "You can file it anyway — this is just a heads-up.";
inline constexpr std::string_view fileItAs = "File it as";
inline constexpr std::string_view nameLabel = "Name";
inline constexpr std::string_view yearLabel = "Year";
inline constexpr std::string_view archiveFolder = "Archive folder";
inline constexpr std::string_view notChosenYet = "Not chosen yet";
inline constexpr std::string_view chooseArchiveButton = "Choose…";
inline constexpr std::string_view changeArchiveButton = "Change…";
inline constexpr std::string_view chooseArchiveMessage =
    "Choose the folder your archive lives in — the one holding your year folders";
std::string goesTo(std::string_view destinationPreview);
inline constexpr std::string_view back = "Back";
inline constexpr std::string_view fileIt = "File It";
std::string filingTitle(std::string_view name);
inline constexpr std::string_view copying = "Copying…";
inline constexpr std::string_view originalUntouched = "Your original isn't being touched.";
inline constexpr std::string_view filedHeading = "Filed";
inline constexpr std::string_view notFiledHeading = "Couldn't file it";
inline constexpr std::string_view filedIcon = "checkmark.circle.fill";
inline constexpr std::string_view notFiledIcon = "exclamationmark.triangle.fill";
inline constexpr std::string_view showInFileManager = "Show in File Manager";
inline constexpr std::string_view fileAnother = "File Another";

}  // namespace quillstow::filingtext
