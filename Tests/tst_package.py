#!/usr/bin/python3
"""The Debian packages as a user gets them: linted, their contents checked, unpacked into a
throwaway root and run from there under strace against the packaged simulator.
Usage: tst_package.py PACKAGE-FOLDER, under xvfb-run and a bare session bus."""
import glob
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from harness import ID, SOURCE, Session, check, finish, until, within

PACKAGES = sys.argv[1]
ICON_SIZES = [16, 22, 24, 32, 48, 64, 96, 128, 256, 512]


def run(*command):
    result = subprocess.run(command, capture_output=True, text=True)
    return result.returncode, (result.stdout + result.stderr).strip()


def package(name):
    found = glob.glob(os.path.join(PACKAGES, f"{name}_*.deb"))
    if len(found) != 1:
        sys.exit(f"expected one {name} package in {PACKAGES}, found {found}")
    return found[0]


app_deb, simulator_deb = package("veltrane-tray"), package("veltrane-tray-daemon-simulator")

# Debian's own checks. Lintian's info tags are shown but pass: the one left is CPack's strip,
# which takes no options and so leaves the .comment section in.
status, report = run("lintian", "--fail-on", "error,warning", "--info", app_deb, simulator_deb)
print(report)
check(status == 0, "lintian finds no error or warning")

root = tempfile.mkdtemp()
for deb in (app_deb, simulator_deb):
    run("dpkg-deb", "-x", deb, root)
usr = os.path.join(root, "usr")


def files_of(deb):
    _, listing = run("dpkg-deb", "-c", deb)
    return {line.split()[-1].lstrip(".") for line in listing.splitlines() if not line.startswith("d")}


app_files, simulator_files = files_of(app_deb), files_of(simulator_deb)
check("/usr/bin/veltrane-tray" in app_files and not any("daemon-sim" in f for f in app_files),
      "the app's package holds the app and no simulator")
check(simulator_files >= {"/usr/bin/veltrane-daemon-sim", "/usr/share/man/man1/veltrane-daemon-sim.1.gz"}
      and not any("veltrane-tray" in f and "/doc/" not in f for f in simulator_files),
      "the simulator's package holds the simulator only")

for entry in (f"usr/share/applications/{ID}.desktop", f"etc/xdg/autostart/{ID}.desktop"):
    status, report = run("desktop-file-validate", os.path.join(root, entry))
    check(status == 0 and not report, f"desktop-file-validate passes {entry} {report}")
status, report = run("appstreamcli", "validate", "--no-net", "--pedantic",
                     os.path.join(usr, f"share/metainfo/{ID}.metainfo.xml"))
check(status == 0, f"appstreamcli validates the metainfo ({report.splitlines()[-1] if report else ''})")
_, conffiles = run("dpkg-deb", "-I", app_deb, "conffiles")
check(conffiles.split() == [f"/etc/xdg/autostart/{ID}.desktop"], "the autostart entry is a conffile")
_, recommends = run("dpkg-deb", "-f", app_deb, "Recommends")
check("qt6-wayland" in recommends.replace(" ", "").split(","), f"Qt's Wayland plugin is recommended: {recommends}")

for size in ICON_SIZES:
    path = os.path.join(usr, f"share/icons/hicolor/{size}x{size}/apps/{ID}.png")
    check(run("identify", "-format", "%m %wx%h", path) == (0, f"PNG {size}x{size}"), f"the {size} px icon is a {size} px PNG")
with open(os.path.join(usr, f"share/icons/hicolor/scalable/apps/{ID}.svg")) as svg:
    check("<svg" in svg.read(), "the scalable icon is an SVG")

# The app, from the throwaway root, against the simulator from its package, under strace: the logo
# comes from the installed resource directory, and no file is written, created, renamed or
# removed through polls, commands and the peers window. (Qt's start-up asks to make the runtime
# directory, which a session always has: the call fails and changes nothing.)
trace = os.path.join(root, "trace")
installed_logo = os.path.join(usr, "share/veltrane-tray/veltrane-logo.png")
CHANGING = ("creat,mkdir,mkdirat,rename,renameat,renameat2,unlink,unlinkat,rmdir,link,linkat,symlink,"
            "symlinkat,truncate,ftruncate,chmod,fchmodat,mknod,mknodat")
wrapper = ["strace", "-f", "-qq", "-o", trace, "-e", "trace=open,openat,openat2," + CHANGING]
runtime = {"XDG_RUNTIME_DIR": tempfile.mkdtemp()}  # as every session sets it; else Qt makes one
with Session(usr, os.path.join(usr, "bin/veltrane-daemon-sim"), wrapper=wrapper, environment=runtime) as session:
    app = session.app
    check(within(lambda: app.tooltip() == "Veltrane \u2014 Connected", 20), "the installed app shows the daemon connected")
    app.click("Peers\u2026")
    app.click("Disconnect")
    check(within(lambda: app.tooltip() == "Veltrane \u2014 Disconnected", 20), "after Disconnect it shows it disconnected")
    app.click("Connect")
    until(lambda: app.row("Disconnect"))
    time.sleep(3.5)  # a poll with everything shown
    check(app.quit() == 0, '"Quit Veltrane" ends the app')

with open(trace) as lines:
    calls = lines.read().splitlines()
loaded = [call for call in calls if "veltrane-logo.png" in call and re.search(r"= \d+$", call)]
check(len(loaded) == 1 and installed_logo in loaded[0], f"the logo is read once, from {installed_logo}: {loaded}")
check(not any(os.path.join(SOURCE, "Resources") in call for call in calls), "the source tree's logo is not looked at")
attempts = [call for call in calls if re.search(r"\bopen(at2?)?\(.*\b(O_WRONLY|O_RDWR|O_CREAT|O_TRUNC)\b|\b(%s)\("
                                                % CHANGING.replace(",", "|"), call)]
changed = [call for call in attempts if not re.search(r"= -1 E", call)]
check(len(calls) > 100 and not changed, f"{len(calls)} file calls traced; none changed a file: {changed}")

# A Wayland session without XWayland: the app runs on Qt's Wayland plugin, with no X display to
# fall back on.
runtime = tempfile.mkdtemp()
compositor = subprocess.Popen(["weston", "--backend=headless-backend.so", "--socket=wayland-veltrane", "--no-config"],
                              env=dict(os.environ, XDG_RUNTIME_DIR=runtime), stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL)
until(lambda: os.path.exists(os.path.join(runtime, "wayland-veltrane")), 20)
wayland = {"DISPLAY": None, "QT_QPA_PLATFORM": None, "XDG_SESSION_TYPE": "wayland",
           "WAYLAND_DISPLAY": "wayland-veltrane", "XDG_RUNTIME_DIR": runtime}
try:
    with Session(usr, os.path.join(usr, "bin/veltrane-daemon-sim"), environment=wayland) as session:
        app = session.app
        check(within(lambda: app.tooltip() == "Veltrane \u2014 Connected", 20), "on Wayland alone the app shows the daemon")
        with open(f"/proc/{app.process.pid}/maps") as maps:
            libraries = maps.read()
        check("libqwayland" in libraries and "libqxcb" not in libraries, "through Qt's Wayland plugin, not X11's")
        app.click("Peers\u2026")
        time.sleep(1)
        app.process.send_signal(signal.SIGTERM)  # as a session that ends asks
        check(app.process.wait(timeout=20) == 0, "asked to terminate, it ends with status 0")
finally:
    compositor.terminate()
    compositor.wait()

shutil.rmtree(root)
finish()
