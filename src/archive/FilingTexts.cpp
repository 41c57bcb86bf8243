#include "archive/FilingTexts.hpp"

namespace quillstow::filingtext {

namespace {

std::string quoted(std::string_view name) {
    return "\"" + std::string(name) + "\"";
}

std::string counted(std::size_t count, std::string_view one, std::string_view many) {
    return std::to_string(count) + " " + std::string(count == 1 ? one : many);
}

}  // namespace

std::string looseFiles(std::size_t count) {
    return counted(count, "file is", "files are") +
           " sitting loose at the top instead of in one of the numbered folders.";
}

std::string missingFolders(const std::vector<std::string>& folders) {
    std::string text = "Missing ";
    for (std::size_t i = 0; i < folders.size(); ++i) {
        if (i > 0) text += ", ";
        text += folders[i];
    }
    return text + ".";
}

std::string checkSummary(std::size_t missing, std::size_t wrongSize, std::size_t expected) {
    if (missing == 0 && wrongSize == 0) {
        // "All 1 file" stands as it is.
        return "All " + counted(expected, "file is", "files are") + " present and the right size.";
    }
    std::vector<std::string> parts;
    if (missing > 0) parts.push_back(counted(missing, "file is missing", "files are missing"));
    if (wrongSize > 0) {
        parts.push_back(counted(wrongSize, "file is", "files are") +
                        " a different size than when this was archived");
    }
    std::string text;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) text += ", ";
        text += parts[i];
    }
    return text + ".";
}

std::string sourceMissing(std::string_view name) {
    return "Couldn't find " + quoted(name) + " to file. It may have been moved or renamed.";
}

std::string alreadyFiled(std::string_view name, int year) {
    return "There's already something filed as " + quoted(name) + " in " + std::to_string(year) +
           ". Nothing was changed — rename one of them first.";
}

std::string folderNotCreated(int year, std::string_view error) {
    return "Couldn't create the folder for " + std::to_string(year) + ": " + std::string(error);
}

std::string copyFailed(std::string_view name, std::string_view error) {
    return "Couldn't copy " + quoted(name) + ": " + std::string(error) +
           " The original has been left alone.";
}

std::string filesNotCopied(std::size_t count) {
    return counted(count, "file", "files") +
           " couldn't be copied. The original has been left alone.";
}

std::string copyDoesNotMatch(std::string_view name, int year, std::string_view checkSummary) {
    return "Copied " + quoted(name) + " into " + std::to_string(year) +
           ", but the copy doesn't match: " + std::string(checkSummary) +
           " The original has been left alone.";
}

std::string filed(std::string_view name, int year, std::size_t files) {
    return "Filed " + quoted(name) + " into " + std::to_string(year) + ". All " +
           counted(files, "file", "files") +
           " copied and checked — the original is safe to clear whenever you like.";
}

std::string notFiled(std::string_view name) {
    return "Couldn't file " + quoted(name) + ".";
}

std::string rebuildableOffer(std::string_view size, std::size_t folders) {
    // "it" stays in the plural.
    return std::string(size) + " in " + counted(folders, "folder", "folders") +
           " your editing apps rebuild on their own. Removing it won't affect your footage or "
           "finished videos.";
}

}  // namespace quillstow::filingtext
