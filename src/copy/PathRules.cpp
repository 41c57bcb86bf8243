#include "copy/PathRules.hpp"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "environment/MountTable.hpp"
#include "support/FileInfo.hpp"
#include "support/Paths.hpp"

namespace quillstow {

namespace fs = std::filesystem;

const std::vector<std::string_view>& protectedPaths() {
    static const std::vector<std::string_view> rows{
        // The system folders of the platform the rules were first written for.
        "/System", "/private/var/db", "/private/var/root", "/usr", "/bin", "/sbin", "/etc", "/dev",
        "/cores", "/Library/Apple", "/Library/Application Support/com.apple", "/Library/Frameworks",
        "/Library/Extensions", "/Library/Keychains", "/Library/LaunchAgents",
        "/Library/LaunchDaemons", "/Library/StartupItems",
        // Linux: kernel interfaces, boot files, libraries, system state and runtime folders.
        "/proc", "/sys", "/boot", "/efi", "/lib", "/lib32", "/lib64", "/libx32", "/var/lib",
        "/var/log", "/var/cache", "/var/spool", "/var/run", "/run", "/snap", "/lost+found"};
    return rows;
}

std::vector<fs::path> homeFolders() {
    std::vector<fs::path> homes;
    if (const passwd* user = ::getpwuid(::getuid()); user && user->pw_dir) {
        homes.push_back(paths::standardized(user->pw_dir));
    }
    if (const char* home = std::getenv("HOME"); home && home[0] == '/') {
        const fs::path standardized = paths::standardized(home);
        if (homes.empty() || homes.front() != standardized) homes.push_back(standardized);
    }
    return homes;
}

namespace {

[[noreturn]] void refuse(const fs::path& url, ErrorCode code, const char* message) {
    throw FileOperationFailure({url, "validatePath", errors::quillstow(code, message)});
}

// Whether `path` lies strictly below `folder`: the folder's path followed by "/".
bool isBelow(const std::string& path, const std::string& folder) {
    const std::string prefix = folder.ends_with('/') ? folder : folder + "/";
    return path.starts_with(prefix);
}

}  // namespace

void validatePaths(const fs::path& source, const fs::path& destination) {
    const std::string from = paths::standardized(source).native();
    const std::string to = paths::standardized(destination).native();

    if (from == to) {
        refuse(destination, ErrorCode::sameFolder,
               "Source and destination are the same folder. Choose a different destination.");
    }
    if (isBelow(to, from)) {
        refuse(destination, ErrorCode::destinationInsideSource,
               "Destination is inside the source folder. Choose a different destination.");
    }
    if (isBelow(from, to)) {
        refuse(source, ErrorCode::sourceInsideDestination,
               "Source folder is inside the destination. Choose a different destination.");
    }
    // Where drives appear is never a system folder, though /run holds one of those places.
    const bool isOnRemovableMedia =
        std::any_of(removableMediaRoots().begin(), removableMediaRoots().end(),
                    [&](const std::string& root) { return (to + "/").starts_with(root); });
    for (const auto row : protectedPaths()) {
        if (isOnRemovableMedia) break;
        if (to == row || isBelow(to, std::string(row))) {
            refuse(destination, ErrorCode::protectedFolder,
                   "Destination is a protected system folder. Choose a different destination.");
        }
    }
    for (const auto& home : homeFolders()) {
        if (to == home.native()) {
            refuse(destination, ErrorCode::homeFolder,
                   "Destination cannot be your home folder. Choose a subfolder or external drive.");
        }
    }
    if (to == "/") validateLocation(destination);
}

void validateLocation(const fs::path& location) {
    if (paths::standardized(location) == "/") {
        refuse(location, ErrorCode::rootFolder,
               "Destination cannot be the root of the filesystem.");
    }
}

FileOperationError sourceVolumeLost(const fs::path& source) {
    return {source, "sourceVolumeCheck",
            errors::quillstow(ErrorCode::sourceVolumeLost,
                              "Source volume disconnected during backup — aborting to "
                              "protect existing backups.")};
}

FileOperationError destinationVolumeLost(const fs::path& destination) {
    return {destination, "destinationVolumeCheck",
            errors::quillstow(ErrorCode::destinationVolumeLost,
                              "Destination volume disconnected during backup — aborting.")};
}

std::optional<FileOperationError> checkSourceBeforeArchival(const fs::path& source) {
    if (files::isFolder(source)) return std::nullopt;
    return FileOperationError{
        source, "archive",
        errors::quillstow(ErrorCode::sourceVolumeLost,
                          "Source became unreachable before archival — skipping archival "
                          "to protect backups.")};
}

}  // namespace quillstow
