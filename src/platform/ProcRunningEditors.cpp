#include "platform/ProcRunningEditors.hpp"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "support/Paths.hpp"

namespace quillstow {

const std::vector<EditorApplication>& editorApplications() {
    static const std::vector<EditorApplication> table{
        {"resolve", "DaVinci Resolve"},
        {"blender", "Blender"},
        {"kdenlive", "Kdenlive"},
        {"shotcut", "Shotcut"},
        {"lightworks", "Lightworks"},
        {"natron", "Natron"},
        {"olive-editor", "Olive"},
        {"gimp", "GIMP"},
        {"gimp-2.10", "GIMP"},
        {"gimp-3.0", "GIMP"},
        {"krita", "Krita"},
        {"darktable", "darktable"},
        {"rawtherapee", "RawTherapee"},
        {"digikam", "digiKam"},
        {"inkscape", "Inkscape"},
        {"scribus", "Scribus"},
        {"ardour8", "Ardour"},
        {"ardour7", "Ardour"},
        {"ardour", "Ardour"},
        {"reaper", "REAPER"},
        {"bitwig-studio", "Bitwig Studio"},
        {"audacity", "Audacity"},
        {"musescore", "MuseScore"},
        {"mscore", "MuseScore"},
        {"lmms", "LMMS"},
        {"soffice.bin", "LibreOffice"},
    };
    return table;
}

std::string_view editorNamed(std::string_view commandName, std::string_view executablePath) {
    // A command name is cut to 15 characters by the kernel, so the executable decides first.
    const std::string executable = executablePath.empty()
                                       ? std::string()
                                       : paths::lastPathComponent(std::string(executablePath));
    for (const auto& editor : editorApplications()) {
        if (editor.executable == executable) return editor.displayName;
    }
    for (const auto& editor : editorApplications()) {
        if (editor.executable == commandName) return editor.displayName;
    }
    return {};
}

namespace {

std::vector<std::string> numericEntries(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(folder.c_str()), ::closedir);
    if (!listing) return names;
    while (const dirent* entry = ::readdir(listing.get())) {
        const std::string_view name(entry->d_name);
        if (!name.empty() && std::all_of(name.begin(), name.end(), ::isdigit)) {
            names.emplace_back(name);
        }
    }
    return names;
}

std::string readLink(const std::filesystem::path& link) {
    char target[4096];
    const ssize_t length = ::readlink(link.c_str(), target, sizeof target);
    return length > 0 ? std::string(target, std::size_t(length)) : std::string();
}

std::string commandName(const std::filesystem::path& process) {
    std::ifstream file(process / "comm");
    std::string name;
    std::getline(file, name);
    return name;
}

void collectOpenFiles(const std::filesystem::path& process, EditorSnapshot& snapshot) {
    const auto descriptors = process / "fd";
    for (const auto& number : numericEntries(descriptors)) {
        const auto link = descriptors / number;
        const std::string target = readLink(link);
        // Pipes, sockets and files already deleted are nothing a pass would copy.
        if (!target.starts_with('/') || target.ends_with(" (deleted)")) continue;
        snapshot.openPaths.insert(paths::standardized(target).native());
        struct stat status {};
        if (::stat(link.c_str(), &status) == 0) {
            snapshot.openFiles.insert({status.st_dev, status.st_ino});
        }
    }
}

}  // namespace

ProcRunningEditors::ProcRunningEditors(std::filesystem::path procRoot)
    : procRoot_(std::move(procRoot)) {}

EditorSnapshot ProcRunningEditors::snapshot() const {
    EditorSnapshot snapshot;
    for (const auto& pid : numericEntries(procRoot_)) {
        if (std::strtoll(pid.c_str(), nullptr, 10) < 1) continue;
        const auto process = procRoot_ / pid;
        const std::string_view name = editorNamed(commandName(process), readLink(process / "exe"));
        if (name.empty()) continue;
        snapshot.names.emplace_back(name);
        collectOpenFiles(process, snapshot);
    }
    std::sort(snapshot.names.begin(), snapshot.names.end());
    snapshot.names.erase(std::unique(snapshot.names.begin(), snapshot.names.end()),
                         snapshot.names.end());
    return snapshot;
}

}  // namespace quillstow
