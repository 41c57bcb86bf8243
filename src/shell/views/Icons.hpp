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

}  // namespace quillstow::shell
