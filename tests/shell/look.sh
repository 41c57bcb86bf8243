#!/usr/bin/env bash
# Looks at the tray application as a person would: a virtual X server, a private session bus,
# xfce4-panel with only its system tray, and Quillstow with two pairs. Clicks the icon, reads what
# shows through the program's widget dump, and saves screenshots of the tray, the popover, the
# menu, the filing window from its first screen to a project filed, and each small window.
#
# usage: look.sh QUILLSTOW SCREENSHOT-TOOL OUTPUT-FOLDER
# Exit 0 when everything showed, 1 when something didn't, 77 (skipped) where it can't run.
set -uo pipefail

skip() {
    echo "SKIPPED: $*"
    exit 77
}
# Runs a command every tenth of a second until it succeeds, at most $1 times.
retry() {
    for _ in $(seq "$1"); do
        "${@:2}" && return 0
        sleep 0.1
    done
    return 1
}
for tool in xvfb-run dbus-run-session xfce4-panel xfconf-query xwininfo xdotool xprop; do
    command -v "$tool" >/dev/null || skip "$tool is not installed (scripts/setup installs it)"
done

if [[ "${1:-}" != "--inside" ]]; then
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    mkdir -p "$3" "$work/runtime" && chmod 700 "$work/runtime"
    rm -f "$3"/{tray-light,tray-dark,popover,menu,no-tray}.png "$3"/filing-window-*.png "$3"/look-*.png
    HOME=$work XDG_CONFIG_HOME=$work/config XDG_CACHE_HOME=$work/cache XDG_DATA_HOME=$work/data \
        XDG_RUNTIME_DIR=$work/runtime LOOK_WORK=$work timeout 110 \
        xvfb-run -a -s "-screen 0 1024x600x24 -nolisten tcp" dbus-run-session -- "$0" --inside "$@"
    exit $?
fi

program=$2
screenshot=$3
out=$4
work=$LOOK_WORK
dump=$work/widgets.txt
commands=$work/commands.txt
failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

# The panel: one panel at the top holding only the system tray.
panelConfig=$XDG_CONFIG_HOME/xfce4/xfconf/xfce-perchannel-xml
mkdir -p "$panelConfig"
cat >"$panelConfig/xfce4-panel.xml" <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="length" type="uint" value="100"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="size" type="uint" value="30"/>
      <property name="background-style" type="uint" value="1"/>
      <property name="background-rgba" type="array">
        <value type="double" value="0.93"/><value type="double" value="0.93"/>
        <value type="double" value="0.93"/><value type="double" value="1"/>
      </property>
      <property name="plugin-ids" type="array">
        <value type="int" value="1"/>
      </property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="systray"/>
  </property>
</channel>
XML

# Two pairs with folders of their own; the second's drive is not there.
mkdir -p "$work/Projects" "$work/Photos" "$work/Drive" "$XDG_CONFIG_HOME/Quillstow"
echo "draft" >"$work/Projects/plan.txt"
projects=E621E1F8-C36C-495A-93FC-0C247A3E6E5F
cat >"$XDG_CONFIG_HOME/Quillstow/config.json" <<JSON
{"appConfig": {"backupInterval": "1hr", "hasCompletedOnboarding": true, "launchAtLogin": false,
               "notificationLevel": "errorsOnly"},
 "pairs": [
  {"id": "$projects", "name": "Projects",
   "sourceURL": "file://$work/Projects", "destinationURL": "file://$work/Drive",
   "isEnabled": true, "createdAt": "2026-11-23T09:00:00Z"},
  {"id": "1B4D4F3A-8E1C-4C1B-9E0B-2F3C4D5E6F70", "name": "Photos",
   "sourceURL": "file://$work/Photos", "destinationURL": "file:///media/nobody/Missing%20Drive",
   "isEnabled": true, "createdAt": "2026-11-23T09:00:00Z"}]}
JSON

xfce4-panel --disable-wm-check >"$work/panel.log" 2>&1 &
panel=$!
panelShown() { xwininfo -root -tree 2>/dev/null | grep -q '"xfce4-panel"'; }
retry 100 panelShown || skipskip "xfce4-panel did not start: $(tail -2 "$work/panel.log")"

QUILLSTOW_WIDGET_DUMP=$dump QUILLSTOW_TEST_COMMANDS=$commands QUILLSTOW_TRAY_PATIENCE_MS=5000 \
    QT_QPA_PLATFORM=xcb "$program" >"$work/app.log" 2>&1 &
app=$!
cleanup() {
    kill "$app" "$panel" 2>/dev/null
    wait "$app" "$panel" 2>/dev/null
}
trap cleanup EXIT

# Waits up to five seconds for a line of the widget dump to show, or to go.
waitFor() { retry 50 grep -qF -- "$1" "$dump"; }
notShown() { ! grep -qF -- "$1" "$dump"; }
waitGone() { retry 50 notShown "$1"; }

waitFor "tray: shown" || { cat "$work/app.log"; fail "the tray icon was not shown"; exit 1; }
sleep 1
# The icon: the first item of the only plugin, at the left of the panel.
read -r px py ph < <(xwininfo -root -tree | grep '"xfce4-panel"' | grep -oE '[0-9]+x[0-9]+\+[0-9]+\+[0-9]+' |
    awk -Fx '{split($2, a, "+"); if ($1 > 200) print a[2], a[3], a[1]}' | head -1)
[[ -n "${px:-}" ]] || { fail "the panel's window was not found"; exit 1; }
iconX=$((px + ph / 2 + 4))
iconY=$((py + ph / 2))
click() { xdotool mousemove "$iconX" "$iconY" click "$1"; }

"$screenshot" "$out/tray-light.png" 0 0 320 60 || fail "no screenshot of the light panel"
xfconf-query -c xfce4-panel -p /panels/panel-1/background-rgba \
    -t double -s 0.16 -t double -s 0.16 -t double -s 0.18 -t double -s 1
sleep 0.7
"$screenshot" "$out/tray-dark.png" 0 0 320 60 || fail "no screenshot of the dark panel"

click 1
if waitFor "window: popover"; then
    sleep 0.5
    for name in Projects Photos; do
        grep -qF "label: $name" "$dump" || fail "the popover does not show the pair $name"
    done
    "$screenshot" "$out/popover.png" 0 0 480 440
    # Another workspace, as a window manager announces it on the root window, closes it.
    xprop -root -f _NET_CURRENT_DESKTOP 32c -set _NET_CURRENT_DESKTOP 1
    waitGone "window: popover" || { fail "a workspace switch did not close the popover"; click 1; }
    xprop -root -f _NET_CURRENT_DESKTOP 32c -set _NET_CURRENT_DESKTOP 0
    sleep 0.5
else
    fail "a left click did not open the popover"
fi

# With the popover open, a right click shows the menu in front of it; the popover stays. Over
# XEmbed the program shows its own menu; a StatusNotifierItem host draws the menu it was given.
click 1
waitFor "window: popover" || fail "a left click did not open the popover again"
sleep 0.3
click 3
if waitFor "  item: Open Quillstow" || waitFor "tray menu opened: 1"; then
    for item in "Open Quillstow" "Back Up All Now" "●  Projects" "⚠  Photos" "Add Folder…" \
        "File a Finished Project…" "Recent Activity" "Settings" "How Quillstow Works" \
        "About Quillstow" "Quit Quillstow" "Remove This Backup…"; do
        grep -qF "item: $item" "$dump" || fail "the menu has no \"$item\""
    done
    sleep 0.5
    "$screenshot" "$out/menu.png" 0 0 480 440
    # The first pair's submenu, with its destructive item at the end.
    xdotool key Down Down Down Right
    sleep 0.7
    "$screenshot" "$out/look-pair-menu.png" 0 0 720 440 || fail "no screenshot of the pair's menu"
    xdotool key Escape
    sleep 0.2
else
    fail "a right click did not open the menu"
fi
xdotool key Escape
sleep 0.3
grep -qF "window: popover" "$dump" || fail "the menu took the popover away"
click 1
waitGone "window: popover" || fail "a left click did not close the popover"

# The filing window, from the menu's "File a Finished Project…": its first screen, a project
# picked and an archive chosen in the desktop's folder dialog, and the proven result.
project="$work/Finished/Spring Campaign 2023"
mkdir -p "$project"/{"1 Documents","2 Project Files","3 Media","4 Renders","5 Drafts","6 Finals"} "$work/Archive"
echo "final cut" >"$project/6 Finals/Campaign.mp4"
echo "brief" >"$project/1 Documents/brief.txt"
filing="File a Finished Project"
# The filing window's frame on the screen, as "x y width height".
frame() {
    xwininfo -name "$filing" 2>/dev/null | awk '/Absolute upper-left X/ {x=$NF} /Absolute upper-left Y/ {y=$NF}
        /^ *Width/ {w=$NF} /^ *Height/ {h=$NF} END {if (w) print x, y, w, h}'
}
# Clicks a point of the filing window given from its bottom-right corner.
clickFromBottomRight() {
    read -r wx wy ww wh < <(frame)
    xdotool mousemove $((wx + ww - $1)) $((wy + wh - $2)) click 1
}
# Types a folder into the open folder dialog called $1 and takes it.
pickInDialog() {
    retry 30 xwininfo -name "$1" >/dev/null 2>&1
    dialog=$(xdotool search --name "^$1\$" | head -1)
    [[ -n "$dialog" ]] || return 1
    xdotool windowfocus --sync "$dialog" 2>/dev/null
    sleep 0.3
    xdotool type --delay 5 "$2"
    xdotool key Return
    sleep 0.5
}
filingShot() {
    read -r wx wy ww wh < <(frame)
    "$screenshot" "$out/filing-window-$1.png" "$wx" "$wy" "$ww" "$wh" || fail "no screenshot of the filing window ($1)"
}

click 3
sleep 0.7
# Down through Open Quillstow, Back Up All Now, the two pairs and Add Folder… to the sixth item.
xdotool key Down Down Down Down Down Down Return
if waitFor "window: filing $filing"; then
    sleep 0.5
    grep -qF "label: File a finished project" "$dump" || fail "the filing window has no title line"
    grep -qF "button: Choose Project Folder…" "$dump" || fail "the filing window has no \"Choose Project Folder…\""
    filingShot choose
    clickFromBottomRight 84 32
    pickInDialog "Choose the finished project folder" "$project" || fail "the project's folder dialog did not open"
    waitFor "label: Spring Campaign 2023" || fail "picking a project did not lead to its review"
    clickFromBottomRight 60 246
    pickInDialog "Choose the folder your archive lives in — the one holding your year folders" "$work/Archive" ||
        fail "the archive's folder dialog did not open"
    waitFor "button: Change…" || fail "the archive folder was not taken"
    sleep 0.3
    filingShot review
    clickFromBottomRight 64 32
    waitFor "label: Filed" || fail "the filing did not end as filed"
    sleep 0.3
    filingShot filed
    [[ -f "$work/Archive/2023/Spring Campaign 2023/6 Finals/Campaign.mp4" ]] ||
        fail "the project was not filed into the archive"
else
    fail "the menu's \"File a Finished Project…\" did not open the filing window"
fi
cp "$dump" "$out/widgets.txt"

# The small windows, each opened as its menu item or request would, looked at, then closed.
echo close-windows >>"$commands"
sleep 0.5
lookAt() {  # command, words the window must show, screenshot name
    echo "$1" >>"$commands"
    if waitFor "$2"; then
        sleep 0.7
        "$screenshot" "$out/look-$3.png" 0 0 1024 600 || fail "no screenshot of $3"
    else
        fail "\"$1\" did not show \"$2\""
    fi
    echo close-windows >>"$commands"
    sleep 0.5
}
lookAt welcome "label: Step 1 of 4 — Choose a folder to protect" welcome
lookAt about "label: Version " about
lookAt learn "label: How Quillstow Keeps Your Files Safe" learn
lookAt "smart-setup $projects Projects developer 3400000" "label: Looks like a code project." smart-setup
lookAt "restore $projects" "Restore — Projects" restore
lookAt "recover $projects" "Recover Deleted Files — Projects" recover

# Without any tray: the popover opens as a window of its own.
cleanup
rm -f "$dump"
QUILLSTOW_WIDGET_DUMP=$dump QUILLSTOW_TRAY_PATIENCE_MS=1000 QT_QPA_PLATFORM=xcb \
    "$program" >"$work/app-no-tray.log" 2>&1 &
app=$!
if waitFor "window: popover" && waitFor "tray: none"; then
    grep -qF "label: Projects" "$dump" || fail "the popover window does not show the pair Projects"
    sleep 0.5
    "$screenshot" "$out/no-tray.png" 0 0 480 440
else
    fail "without a tray the popover did not open as a window"
fi

echo "screenshots in $out: $(cd "$out" && ls *.png | tr '\n' ' ')"
((failures == 0)) || { echo "--- app log"; tail -20 "$work/app.log"; exit 1; }
