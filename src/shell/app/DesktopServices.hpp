#pragma once

// The desktop services the shell uses: showing a folder or an item in the file manager, the XDG
// autostart entry that launches the program at login, and the desktop's wish for reduced motion.
//
// Main thread only.

#include <filesystem>
#include <string>

namespace quillstow::shell {

// org.freedesktop.FileManager1.ShowFolders on the session bus, else xdg-open of the folder.
void showFolderInFileManager(const std::filesystem::path& folder);
// org.freedesktop.FileManager1.ShowItems: the item selected in its folder; else xdg-open of the
// folder that holds it.
void showItemInFileManager(const std::filesystem::path& item);

// ${XDG_CONFIG_HOME:-~/.config}/autostart/io.quillstow.Quillstow.desktop
std::filesystem::path autostartEntryPath();
// The entry's text, starting `program` with --autostart.
std::string autostartEntry(const std::string& program);
// Writes or removes the entry; throws Failure when it can't.
void setLaunchAtLogin(bool enabled, const std::string& program);

// GNOME's enable-animations through the settings portal; animations are on when nobody says.
bool desktopPrefersReducedMotion();

}  // namespace quillstow::shell
