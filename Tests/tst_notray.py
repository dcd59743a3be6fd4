#!/usr/bin/python3
"""The installed app on a desktop that shows no status items: the menu as a window, read and
pressed through AT-SPI as a screen reader does; a second launch brings it back; a panel that comes
later gets the item. With a panel from the start no window shows unless the app is launched again.
Usage: tst_notray.py PREFIX SIMULATOR, under xvfb-run and a bare session bus."""
import os
import signal
import subprocess
import sys
import time

import dbus
import pyatspi

from harness import Session, check, finish, until, within

PREFIX, SIMULATOR = sys.argv[1], sys.argv[2]
HINT = "This desktop shows no status icons."


def window_ids():
    found = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^Veltrane$"], capture_output=True, text=True)
    return found.stdout.split()


def frame():
    """The menu window as AT-SPI shows it, or None."""
    app = next((a for a in pyatspi.Registry.getDesktop(0) if a and a.name == "veltrane-tray"), None)
    return next((w for w in app if w.name == "Veltrane" and w.getState().contains(pyatspi.STATE_SHOWING)), None) if app else None


def rows(window):
    """The shown controls and labels of the window: (role, name, enabled)."""
    found = []

    def walk(node):
        for child in node:
            if child.getState().contains(pyatspi.STATE_SHOWING) and child.getRole() in (pyatspi.ROLE_PUSH_BUTTON, pyatspi.ROLE_LABEL):
                found.append((child.getRole(), child.name, child.getState().contains(pyatspi.STATE_ENABLED)))
            walk(child)
    walk(window)
    return found


def button(window, name):
    for child in window:
        if child.getRole() == pyatspi.ROLE_PUSH_BUTTON and child.name == name:
            return child
        if found := button(child, name):
            return found
    return None


def launch_again():
    return subprocess.run([os.path.join(PREFIX, "bin/veltrane-tray")], timeout=20).returncode


launcher = subprocess.Popen(["/usr/libexec/at-spi-bus-launcher", "--launch-immediately"], start_new_session=True)
until(lambda: dbus.SessionBus().name_has_owner("org.a11y.Bus"))
accessible = {"QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"}

with Session(PREFIX, SIMULATOR, desktop=["--no-panel"], environment=accessible) as session:
    started = time.monotonic()
    window = until(frame, 10)
    check(time.monotonic() - started < 4 and len(window_ids()) == 1, "started by the user without a panel: the window at once")
    shown = within(lambda: [r for r in rows(window) if r[0] == pyatspi.ROLE_PUSH_BUTTON], 5)
    check([name for _, name, _ in shown] == ["Disconnect", "Peers\u2026", "Log out", "Quit Veltrane"]
          and all(enabled for *_, enabled in shown)
          and all(button(window, name).getState().contains(pyatspi.STATE_FOCUSABLE) for _, name, _ in shown),
          f"the menu's rows as named controls, reachable by keyboard: {shown}")
    labels = [name for role, name, _ in rows(window) if role == pyatspi.ROLE_LABEL]
    check(labels[:2] == ["Veltrane", "Connected"] and "100.64.0.1 \u00b7 maria.lopez@acme.example" in labels
          and labels[-1].startswith(HINT), f"the header and device rows read as they show, and why there is no icon: {labels}")
    button(window, "Disconnect").queryAction().doAction(0)
    check(within(lambda: '{"command":"stop"}' in [line for _, line in session.requests], 5)
          and within(lambda: button(window, "Connect") and button(window, "Connect").getState().contains(pyatspi.STATE_SHOWING), 10),
          "Disconnect sends stop, and the window follows the daemon: Connect")

    subprocess.run(["xdotool", "windowfocus", "--sync", window_ids()[0], "key", "Escape"])
    check(within(lambda: window_ids() == [], 5) and session.app.process.poll() is None, "Escape closes it; the app runs on")
    check(launch_again() == 0 and within(lambda: len(window_ids()) == 1, 5), "a second launch leaves and brings the window back")

    session.desktop.start("panel")
    check(within(lambda: session.desktop.registered == [session.app.owner], 8)
          and within(lambda: not any(name.startswith(HINT) for _, name, _ in rows(frame())), 5)
          and len(window_ids()) == 1, "a panel that comes later gets the item; the window stays, without its hint")

with Session(PREFIX, SIMULATOR, desktop=["--no-panel"], arguments=["--autostart"]) as session:
    check(not within(window_ids, 5), "started at login without a panel: no window yet, one may come late")

with Session(PREFIX, SIMULATOR) as session:
    until(lambda: session.desktop.registered, 10)
    time.sleep(2)
    check(window_ids() == [], "with a panel from the start: no window")
    check(launch_again() == 0 and within(lambda: len(window_ids()) == 1, 5), "until the app is launched again")

os.killpg(launcher.pid, signal.SIGTERM)
finish()
