#pragma once

// Where the popover and the small windows go: centred under the tray icon when its place is
// known, else under the mouse pointer, kept on the screen's free area. A panel at the bottom
// puts the window above the icon instead.
//
// Pure; any thread.

#include <QPoint>
#include <QRect>
#include <QSize>
#include <optional>

namespace quillstow::shell {

// The gap between the icon and the window.
inline constexpr int popoverGap = 4;

// The window's top-left corner. `icon` is the icon's place on the screen, if the tray host
// tells it; `cursor` stands in for it otherwise; `available` is the screen without panels.
QPoint placePopover(const std::optional<QRect>& icon, QPoint cursor, QSize window,
                    const QRect& available);

}  // namespace quillstow::shell
