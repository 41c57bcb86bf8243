#include "model/Tips.hpp"

#include <vector>

namespace quillstow {

std::string completionMessage(int fileCount, const std::optional<std::string>& tip) {
    std::string message = fileCount == 0   ? "Everything's up to date."
                          : fileCount == 1 ? "1 file backed up."
                                           : std::to_string(fileCount) + " files backed up.";
    if (tip) message += " " + *tip;
    return message;
}

std::optional<std::string> nextTip(UserDefaults& defaults, int filesCopied, bool movedLargeFiles,
                                   bool sampleChecked, bool wasThrottled) {
    const std::int64_t counter = defaults.integer(tipCounterKey);
    defaults.setInteger(tipCounterKey, counter + 1);
    return tipAt(counter, filesCopied, movedLargeFiles, sampleChecked, wasThrottled);
}

std::optional<std::string> tipAt(std::int64_t counter, int filesCopied, bool movedLargeFiles,
                                 bool sampleChecked, bool wasThrottled) {
    if (counter % 3 != 0) return std::nullopt;

    std::vector<std::string> tips;
    if (filesCopied >= 1) {
        tips.push_back("Every file was verified after copying to make sure nothing was corrupted.");
        tips.push_back(
            "Files are written to a safe temporary location first, then swapped into place — so "
            "a crash can never leave you with a half-written file.");
        tips.push_back(
            "A unique fingerprint was saved for each file so Quillstow can detect if it ever "
            "silently corrupts.");
    }
    if (movedLargeFiles) {
        tips.push_back(
            "Large files were copied in small chunks so you could cancel anytime without losing "
            "progress.");
    }
    if (sampleChecked) {
        tips.push_back(
            "A sample of your existing backups was re-checked — everything looks healthy.");
    }
    if (wasThrottled) {
        tips.push_back(
            "Quillstow slowed down while you were working so your computer stayed fast.");
    }
    if (tips.empty()) {
        tips = {
            "If you accidentally delete a file, Quillstow keeps a copy for 30 days.",
            "If a drive disconnects mid-backup, your existing backups stay safe. Nothing gets "
            "deleted.",
            "Quillstow checks that your drives are still connected throughout every backup.",
            "Your backups resume automatically when a disconnected drive comes back.",
        };
    }
    // A negative counter (a damaged store) still picks a valid entry.
    const std::int64_t size = std::int64_t(tips.size());
    const std::int64_t index = ((counter / 3) % size + size) % size;
    return tips[std::size_t(index)];
}

}  // namespace quillstow
