#include "environment/NestingMigration.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "model/BookmarkManager.hpp"
#include "support/Error.hpp"
#include "support/Logger.hpp"
#include "support/Paths.hpp"

namespace quillstow::NestingMigration {

namespace fs = std::filesystem;

namespace {

const Logger log("NestingMigration");

bool existsAsLink(const fs::path& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

bool isRealFolder(const fs::path& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Names in a folder, sorted so that a run is the same every time. Throws when it can't be read.
std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

// A rename that fails rather than replace what stands at `to`.
bool moveWithoutReplacing(const fs::path& from, const fs::path& to) {
    return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0;
}

// Moves what it can of `nested` into `correct`, item by item, each whole or not at all; throws
// Failure at the first error. What moved before it stays moved: every item is in one of the two
// places, complete, and the next start takes up the rest.
void moveUp(const fs::path& nested, const fs::path& correct) {
    try {
        if (!existsAsLink(correct) && ::mkdir(correct.c_str(), 0777) != 0) throwPosix(errno);
        for (const auto& name : namesIn(nested)) {
            const fs::path target = correct / name;
            if (existsAsLink(target)) {
                log.notice("Skipping %{private}s — already exists at correct location", name);
                continue;
            }
            if (!moveWithoutReplacing(nested / name, target)) throwPosix(errno);
            log.info("Moved: %{private}s", name);
        }
        if (namesIn(nested).empty()) {
            if (::rmdir(nested.c_str()) != 0) throwPosix(errno);
            log.info("Removed empty directory: %{private}s", paths::lastPathComponent(nested));
        }
    } catch (const fs::filesystem_error& error) {
        throw Failure(errors::posix(error.code().value()));
    }
}

fs::path rootOf(const BackupPair& pair) {
    if (!pair.destinationBookmark) return pair.destinationURL;
    try {
        return BookmarkManager::resolveBookmark(*pair.destinationBookmark, pair.destinationURL,
                                                false)
            .url;
    } catch (const BackupFailure& failure) {
        log.error(
            "Could not resolve destination bookmark for \"%{private,mask.hash}s\": %{public}s",
            pair.name, failure.error().errorDescription());
        return pair.destinationURL;
    }
}

void migrate(const BackupPair& pair) {
    if (paths::lastPathComponent(pair.destinationURL) != "Quillstow") return;
    // A name that isn't one folder's name would lead elsewhere than a nested pair folder.
    if (pair.name.empty() || pair.name == "." || pair.name == ".." ||
        pair.name.find('/') != std::string::npos) {
        return;
    }
    const fs::path root = rootOf(pair);
    const fs::path inner = root / "Quillstow";
    const fs::path nested = inner / pair.name;
    if (!isRealFolder(nested)) return;
    log.notice("Detected double-nested path for \"%{private,mask.hash}s\": %{private}s", pair.name,
               nested.native());
    try {
        moveUp(nested, root / pair.name);
    } catch (const Failure& failure) {
        log.error("Migration failed for \"%{private,mask.hash}s\": %{public}s", pair.name,
                  failure.error().description);
        return;
    }
    if (::rmdir(inner.c_str()) == 0) log.info("Cleaned up empty inner Quillstow directory");
    log.notice("Migration complete for \"%{private,mask.hash}s\"", pair.name);
}

}  // namespace

void run(const std::vector<BackupPair>& pairs) {
    for (const auto& pair : pairs)
        migrate(pair);
}

}  // namespace quillstow::NestingMigration
