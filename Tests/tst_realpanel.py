#!/usr/bin/python3
"""The installed app in Debian's xfce4-panel under Xvfb and xfwm4, from screenshots: the icon in
the panel, a left click opens the panel's own menu (no window of the app's), Quit ends the app.
Usage: tst_realpanel.py PREFIX SIMULATOR, under xvfb-run and a bare session bus."""
import glob
import os
import shutil
import subprocess
import sys
import tempfile

import dbus

from harness import HERE, Session, check, finish, until, within

PREFIX, SIMULATOR = sys.argv[1], sys.argv[2]
shots = tempfile.mkdtemp(prefix="realpanel-")
os.environ["XDG_CONFIG_HOME"] = config = tempfile.mkdtemp()
os.makedirs(os.path.join(config, "xfce4/xfconf/xfce-perchannel-xml"))
shutil.copy(os.path.join(HERE, "realpanel/xfce4-panel.xml"), os.path.join(config, "xfce4/xfconf/xfce-perchannel-xml"))


def shot(name):
    path = os.path.join(shots, name + ".png")
    subprocess.run(["import", "-window", "root", path], check=True)
    return path


def brightness(path, region):
    """The mean brightness, 0 to 1, of a region of a screenshot."""
    return float(subprocess.run(["convert", path, "-crop", region, "-colorspace", "Gray", "-format", "%[fx:mean]",
                                 "info:"], capture_output=True, text=True).stdout)


def green_dot():
    """Where the panel shows the connected icon's dot, as "x,y", or None."""
    pixels = subprocess.run(["convert", shot("panel"), "-crop", "1280x40+0+0", "txt:-"], capture_output=True, text=True)
    return next((line.split(":")[0] for line in pixels.stdout.splitlines() if "#22C55E" in line.upper()), None)


# The bus is bare: the panel's settings daemon is started here, as a session's bus would start it.
desktop = [subprocess.Popen([glob.glob("/usr/lib/*/xfce4/xfconf/xfconfd")[0]]),
           subprocess.Popen(["xfwm4"], stderr=subprocess.DEVNULL),
           subprocess.Popen(["xfce4-panel"], stderr=subprocess.DEVNULL)]
until(lambda: dbus.SessionBus().name_has_owner("org.kde.StatusNotifierWatcher"), 20)
with Session(PREFIX, SIMULATOR, desktop=["--no-panel"]) as session:
    dot = within(green_dot, 15)
    check(dot, f"the connected status icon is drawn in the panel, its dot at {dot}")
    menu_area = "300x150+0+60"  # below the panel, where the screen is black
    x, y = dot.split(",")
    subprocess.run(["xdotool", "mousemove", x, y, "click", "1"])
    check(within(lambda: brightness(shot("menu"), menu_area) > 0, 5), f"a left click opens a menu: {shots}/menu.png")
    apps_own = subprocess.run(["xdotool", "search", "--onlyvisible", "--classname", "veltrane-tray"],
                              capture_output=True, text=True).stdout.split()
    check(apps_own == [], f"the menu is the panel's, no window of the app's: {apps_own}")
    subprocess.run(["xdotool", "key", "Up"])  # the last row, "Quit Veltrane", from the keyboard
    shot("quit-chosen")
    subprocess.run(["xdotool", "key", "Return"])
    check(session.app.process.wait(timeout=10) == 0, "choosing Quit Veltrane ends the app")
for process in desktop:
    process.kill()
print("Screenshots:", shots)
finish()
