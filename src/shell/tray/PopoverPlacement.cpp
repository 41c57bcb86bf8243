#include "tray/PopoverPlacement.hpp"

#include <algorithm>

namespace quillstow::shell {

QPoint placePopover(const std::optional<QRect>& icon, QPoint cursor, QSize window,
                    const QRect& available) {
    const QRect anchor = icon && icon->isValid() ? *icon : QRect(cursor, QSize(1, 1));
    int x = anchor.x() + anchor.width() / 2 - window.width() / 2;
    int y = anchor.bottom() + 1 + popoverGap;
    // A panel at the bottom: above the icon rather than off the screen.
    if (y + window.height() > available.bottom() + 1)
        y = anchor.top() - popoverGap - window.height();
    x = std::clamp(x, available.left(),
                   std::max(available.left(), available.right() + 1 - window.width()));
    y = std::clamp(y, available.top(),
                   std::max(available.top(), available.bottom() + 1 - window.height()));
    return {x, y};
}

}  // namespace quillstow::shell
