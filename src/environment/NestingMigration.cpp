#include "environment/NestingMigration.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <utility>

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

using Moves = std::vector<std::pair<fs::path, fs::path>>;

void putBack(const Moves& moves, const fs::path& createdFolder) {
    for (auto move = moves.rbegin(); move != moves.rend(); ++move) {
        if (!moveWithoutReplacing(move->second, move->first)) {
            log.error("Could not move back %{private}s: %{public}s", move->second.native(),
                      errors::posix(errno).description);
        }
    }
    if (!createdFolder.empty()) ::rmdir(createdFolder.c_str());
}

// Moves what it can of `nested` into `correct`, all or nothing; throws Failure with everything
// put back. The lines of the log follow the items in order, once the unit has held.
void moveUp(const fs::path& nested, const fs::path& correct) {
    fs::path created;
    if (!existsAsLink(correct)) {
        if (::mkdir(correct.c_str(), 0777) != 0) throwPosix(errno);
        created = correct;
    }
    Moves moves;
    std::vector<std::function<void()>> lines;
    try {
        for (const auto& name : namesIn(nested)) {
            const fs::path target = correct / name;
            if (existsAsLink(target)) {
                lines.push_back([name] {
                    log.notice("Skipping %{private}s — already exists at correct location", name);
                });
                continue;
            }
            if (!moveWithoutReplacing(nested / name, target)) throwPosix(errno);
            moves.emplace_back(nested / name, target);
            lines.push_back([name] { log.info("Moved: %{private}s", name); });
        }
        if (namesIn(nested).empty()) {
            if (::rmdir(nested.c_str()) != 0) throwPosix(errno);
            lines.push_back([folder = paths::lastPathComponent(nested)] {
                log.info("Removed empty directory: %{private}s", folder);
            });
        }
    } catch (const fs::filesystem_error& error) {
        putBack(moves, created);
        throw Failure(errors::posix(error.code().value()));
    } catch (const Failure&) {
        putBack(moves, created);
        throw;
    }
    for (const auto& line : lines)
        line();
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
