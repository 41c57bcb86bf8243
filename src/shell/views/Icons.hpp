#pragma once

// The program's icons by symbol name: the tray's status icons from the icon theme, where they
// are installed into hicolor (so a StatusNotifierItem host can recolour them), else from the
// program's own resources; the glyphs of the popover from the resources only, so that they
// never clash with a theme's icons of the same name.
//
// Main thread only (QIcon).

#include <QIcon>
#include <string>

namespace quillstow::shell {

// Makes the program's own icons (":/icons/…") available; done by the functions below too.
void ensureIconResources();
QIcon themedSymbolIcon(const std::string& themeName);
QIcon glyphIcon(const std::string& symbol);
// The red mark of an item that removes something. Tray hosts export a menu over
// StatusNotifierItem (DBusMenu) with its items' labels, checks and icons but no colours, so the
// red is in the icon's own pixels: as a resource icon without a theme name it travels as
// "icon-data" and shows the same in the host's menu, an XEmbed menu and the popover's.
QIcon destructiveIcon();

}  // namespace quillstow::shell
