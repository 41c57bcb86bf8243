#pragma once

// What the tray menu shows, as plain data: the pairs with their marks, the five newest events
// as lines, and the settings with their checks. The menu builder turns it into a menu each
// time the menu opens.
//
// Pure; main thread, where the status manager lives.

#include <string>
#include <vector>

#include "control/StatusManager.hpp"

namespace quillstow::shell {

struct MenuPairItem {
    Uuid id;
    // "{mark}  {name}".
    std::string title;
    bool isEnabled = true;

    bool operator==(const MenuPairItem&) const = default;
};

struct MenuEventLine {
    // "{mark} {pair} — {detail} ({when})".
    std::string title;
    // Shown in red: an error or files that don't match.
    bool isAlarm = false;

    bool operator==(const MenuEventLine&) const = default;
};

struct MenuState {
    std::vector<MenuPairItem> pairs;
    // Newest first, at most five.
    std::vector<MenuEventLine> recentEvents;
    AppConfig settings;
};

inline constexpr std::size_t recentEventCount = 5;

MenuState menuState(const StatusManager& manager, Date now);

// Whether choosing `chosen` over `before` in the notifications' submenu goes through the
// permission step first: only when notifications were off and come on.
bool asksNotificationPermission(NotificationLevel before, NotificationLevel chosen);

// One event's line; `pairName` is nothing for a pair that was removed.
MenuEventLine eventLine(const BackupEvent& event, const std::string* pairName, Date now);

}  // namespace quillstow::shell
