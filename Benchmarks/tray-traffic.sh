#!/usr/bin/env bash
# Usage: Benchmarks/tray-traffic.sh BENCH_TRAY_TRAFFIC
# Runs the tray-traffic count in a real panel: xfce4-panel (its systray is the tray host) under
# Xvfb and a private session bus, seeded with one bar that holds the system tray.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bench=$(realpath "$1")
config=$(mktemp -d)
trap 'rm -rf "$config"' EXIT
mkdir -p "$config/xfce4/xfconf/xfce-perchannel-xml"
cp "$root/Tests/realpanel/xfce4-panel.xml" "$config/xfce4/xfconf/xfce-perchannel-xml/"

# The panel's settings daemon is started by the bus, with the bus's environment.
XDG_CONFIG_HOME=$config xvfb-run -a -s "-screen 0 800x600x24" dbus-run-session -- bash -c '
    xfce4-panel >/dev/null 2>&1 &
    panel=$!
    for _ in $(seq 100); do
        dbus-send --session --print-reply --dest=org.freedesktop.DBus / org.freedesktop.DBus.NameHasOwner \
            string:org.kde.StatusNotifierWatcher 2>/dev/null | grep -q "boolean true" && break
        sleep 0.1
    done
    QT_QPA_PLATFORM=xcb "$1"
    status=$?
    kill $panel
    exit $status' bench "$bench" 2>&1 | grep -v -E '^(dbus-daemon|\(xfconfd|$)'
