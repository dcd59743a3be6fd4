#!/usr/bin/env bash
# The installed app in a real panel: Debian's xfce4-panel (its systray plugin is the tray host and
# the StatusNotifierWatcher) under Xvfb and xfwm4, against the simulated daemon. Checks from
# screenshots that the icon is drawn in the panel, that a left click opens the menu, and that
# choosing "Quit Veltrane" in it ends the app.
#
# Usage: tst_realpanel.sh PREFIX SIMULATOR [SCREENSHOT-FOLDER]
# Run it under xvfb-run and dbus-run-session, with XDG_CONFIG_HOME set for both (the panel's
# settings daemon is started by the bus, with the bus's environment).
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
prefix=$1 simulator=$2
shots=${3:-$(mktemp -d)}
work=$(mktemp -d)
pids=()
trap 'kill "${pids[@]}" 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT

fail() { echo "FAIL: $*"; echo "Screenshots: $shots"; exit 1; }
# The mean brightness (0 to 1) of a region of a screenshot.
brightness() { convert "$1" -crop "$2" -colorspace Gray -format '%[fx:mean]' info:; }
# Waits up to $1 tenths of a second for the command after it to succeed.
within() { local n=$1; shift; for _ in $(seq "$n"); do "$@" && return 0; sleep 0.1; done; return 1; }
watcher_up() {
    dbus-send --session --print-reply --dest=org.freedesktop.DBus / org.freedesktop.DBus.NameHasOwner \
        string:org.kde.StatusNotifierWatcher | grep -q 'boolean true'
}
shot() { import -window root "$shots/$1.png"; echo "$shots/$1.png"; }

# The panel: one bar along the top holding the system tray only.
settings="$XDG_CONFIG_HOME/xfce4/xfconf/xfce-perchannel-xml"
mkdir -p "$settings" "$shots"
cp "$here/realpanel/xfce4-panel.xml" "$settings/"
xfwm4 >"$work/xfwm4.log" 2>&1 & pids+=($!)
xfce4-panel >"$work/panel.log" 2>&1 & pids+=($!)
within 100 watcher_up || fail "the panel never offered a StatusNotifierWatcher"

mkdir "$work/run"
"$simulator" --socket "$work/run/daemon.sock" >/dev/null 2>&1 & pids+=($!)
within 50 test -S "$work/run/daemon.sock" || fail "the simulated daemon did not start"
"$here/../scripts/with-daemon-socket.sh" "$work/run" "$prefix/bin/veltrane-tray" >"$work/app.log" 2>&1 &
app=$!

# The icon: the logo with the green dot of a connected network, somewhere in the panel.
green=''
for _ in $(seq 40); do
    green=$(convert "$(shot panel)" -crop 800x40+0+0 txt:- | grep -m1 -i '#22C55E' | cut -d: -f1 || true)
    [ -n "$green" ] && break
    sleep 0.25
done
[ -n "$green" ] || fail "no connected status icon drawn in the panel"
echo "status icon's dot at $green"

# A left click opens the menu below the panel, where the screen was black.
menu_area=300x150+0+60
[ "$(brightness "$shots/panel.png" "$menu_area")" = 0 ] || fail "something covers the screen already"
menu_open() { [ "$(brightness "$(shot menu)" "$menu_area")" != 0 ]; }
xdotool mousemove "${green%,*}" "${green#*,}" click 1
within 50 menu_open || fail "a left click opened no menu"
echo "menu open: $shots/menu.png"

# The last row is "Quit Veltrane": choose it from the keyboard, as a user may.
xdotool key Up
sleep 0.3
shot quit-chosen >/dev/null
xdotool key Return
app_gone() { ! kill -0 "$app" 2>/dev/null; }
within 100 app_gone || fail "choosing Quit Veltrane did not end the app"
wait "$app" || fail "the app ended with status $?"
echo "PASS: icon drawn, menu opened by a left click, Quit Veltrane ended the app"
