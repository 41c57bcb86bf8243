#include "archive/RestoreTexts.hpp"

#include <array>
#include <ctime>
#include <utility>

#include "copy/ExclusionFilter.hpp"
#include "support/ByteCount.hpp"

namespace quillstow::restoretext {

std::string summary(int restored, int failed, bool cancelled) {
    std::string text;
    if (failed > 0) text += "Error: ";
    if (cancelled) text += "Restore cancelled. ";
    if (failed == 0) {
        text += std::to_string(restored) +
                (restored == 1 ? " file restored successfully." : " files restored successfully.");
    } else {
        // "files" after the restored count stays plural even for 1, as the window has always
        // said it.
        text += "Restored " + std::to_string(restored) + " files. " + std::to_string(failed) +
                (failed == 1 ? " file failed." : " files failed.");
    }
    return text;
}

bool isError(std::string_view message) {
    return message.find("Error") != std::string_view::npos;
}

std::string_view iconForFile(std::string_view name) {
    using Icons = std::pair<std::string_view, std::array<std::string_view, 8>>;
    static constexpr std::array<Icons, 6> table{{
        {"photo", {"jpg", "jpeg", "png", "gif", "heic", "webp"}},
        {"film", {"mp4", "mov", "avi", "mkv"}},
        {"music.note", {"mp3", "aac", "wav", "flac", "m4a"}},
        {"doc.richtext", {"pdf"}},
        {"doc.zipper", {"zip", "gz", "tar", "rar", "7z"}},
        {"chevron.left.forwardslash.chevron.right",
         {"swift", "py", "js", "ts", "html", "css", "json", "xml"}},
    }};
    const std::string extension = lowercased(pathExtension(name));
    if (extension.empty()) return "doc";
    for (const auto& [icon, extensions] : table) {
        for (const auto candidate : extensions) {
            if (candidate == extension) return icon;
        }
    }
    return "doc";
}

std::string windowTitle(std::string_view pairName) {
    return "Restore — " + std::string(pairName);
}

std::string selectedCounter(std::int64_t selectedCount) {
    return std::to_string(selectedCount) + " selected";
}

std::string fileCounter(std::int64_t shownCount) {
    return std::to_string(shownCount) + " files";
}

std::string_view restoreToHelp(std::int64_t selectedCount) {
    return selectedCount == 0 ? "Select files to restore"
                              : "Restore selected files to a custom location";
}

std::string_view restoreToOriginalHelp(std::int64_t selectedCount) {
    return selectedCount == 0 ? "Select files to restore"
                              : "Restore selected files to their original location";
}

std::string recoveryWindowTitle(std::string_view pairName) {
    return "Recover Deleted Files — " + std::string(pairName);
}

std::string dayHeading(std::string_view day) {
    return "Deleted on " + std::string(day);
}

std::string archivedAtText(std::int64_t secondsSinceEpoch) {
    const std::time_t seconds = std::time_t(secondsSinceEpoch);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char text[8];
    std::strftime(text, sizeof text, "%H:%M", &local);
    return "Deleted at " + std::string(text);
}

std::string progress(std::int64_t filesDone, std::int64_t filesTotal, std::int64_t bytesDone,
                     std::int64_t bytesTotal) {
    return "Restoring " + std::to_string(filesDone) + " of " + std::to_string(filesTotal) +
           (filesTotal == 1 ? " file — " : " files — ") + formatByteCount(bytesDone) + " of " +
           formatByteCount(bytesTotal);
}

}  // namespace quillstow::restoretext
