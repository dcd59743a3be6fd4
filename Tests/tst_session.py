#!/usr/bin/python3
"""A whole session of the installed app, as a user lives it: started before the panel, a panel
that restarts, no daemon, then Connect, sign-in, the peers window, a second start, Disconnect; a
quiet bus; the menu for every status and one notice for every command's outcome; Quit.
Usage: tst_session.py PREFIX SIMULATOR, under xvfb-run and a bare session bus."""
import os
import re
import signal
import struct
import subprocess
import sys
import tempfile
import time

import dbus

from harness import GET_STATUS, GREEN, Desktop, ID, RED, SLATE, Session, check, finish, replying, until, within

PREFIX, SIMULATOR = sys.argv[1], sys.argv[2]
RULE = "\u2014"
SIGN_IN = ("Sign-in", "Complete the sign-in in your browser. Veltrane will pick up the session automatically.")
SIGNED_IN = ("Signed in", "The daemon picked up your session.")
BLUE = (59, 130, 246)
ACTIVE = ["Disconnect", "Log out"]
CONNECTED = {"wantRunning": True, "membershipState": "membership_active", "selfFqdn": "lab_box.example.ts.net",
             "assignedIp": "100.64.0.7", "userEmail": "maria@example.com", "isTagged": True}
STOPPED = {"wantRunning": False, "membershipState": "membership_active"}
SIGNED_OUT = {"wantRunning": True, "membershipState": "awaiting_login"}
NO_NETWORK = {"wantRunning": True, "membershipState": "no_active_memberships"}
# Statuses as a panel reads them from the running app: the header, the icon's dot, and the rows
# between the rules. (Every state's rows and dot are the controller's and the icon's unit tests'.)
STATES = [  # each differs from the one before, so each is seen applied
    ({"success": False, "status": CONNECTED}, "Disconnected", RED, ["(off) Connect"]),
    ({"success": True, "status": STOPPED}, "Disconnected", SLATE, ["Connect"]),
    # Tagged without a tag name: no owner, not the e-mail. "_" is DBusMenu's "__".
    ({"success": True, "status": CONNECTED}, "Connected", GREEN,
     ["Disconnect", "(off) lab__box.example.ts.net", "(off) 100.64.0.7", "Peers\u2026", "Log out"]),
    ({"success": True, "status": NO_NETWORK}, "Connected, no network", BLUE, ACTIVE),
    # No name, no address: the device row says so; a tag's name is the owner.
    ({"success": True, "status": {"membershipState": "membership_active", "isTagged": True, "ownerTag": "tag:ci"}},
     "Connected", GREEN, ["Disconnect", "(off) This device", "(off)  \u00b7 tag:ci", "Peers\u2026", "Log out"]),
]
WIRE = {"Disconnect": "stop", "Connect": "start", "Log in\u2026": "login_via_link", "Log out": "logout"}
UNREACHABLE = "Unable to reach the daemon: "
# Commands whose outcome needs the whole app: a notification server that reads markup, the
# browser, a daemon that answers nonsense. (Every outcome's notice is the controller's unit test's.)
COMMANDS = [
    # The server reads markup: daemon text goes escaped.
    ("Disconnect", CONNECTED, {"success": False, "error": "<b>x</b> & y"}, ("Disconnect failed", "&lt;b&gt;x&lt;/b&gt; &amp; y")),
    ("Log in\u2026", SIGNED_OUT, {"success": True, "login": {"loginUrl": "http://exa mple.com/%zz"}},
     ("Sign-in", "Login link issued.")),
    ("Disconnect", CONNECTED, b"ERR\n", ("Veltrane", UNREACHABLE + "Daemon request failed (invalid response")),
    ("Log in\u2026", SIGNED_OUT, {"success": True, "login": {"loginUrl": "veltrane-auth:code/42"}}, SIGN_IN),
]


def menu(header, middle):
    return ["(off) Veltrane", "(off) " + header, RULE, *middle, RULE, "Quit Veltrane"]


def shown(*xdotool_search):
    """Whether X shows a window that `xdotool search --onlyvisible …` finds."""
    found = subprocess.run(["xdotool", "search", "--onlyvisible", *xdotool_search], capture_output=True, text=True)
    return found.stdout.strip() != ""


class BusMonitor:
    """Every message one connection sends, as "type member" lines."""

    def __init__(self, sender):
        self.sender, self.seen = sender, []
        self.process = subprocess.Popen(["dbus-monitor", "--session", "--profile", f"sender='{sender}'"],
                                        stdout=subprocess.PIPE, text=True)
        # Once it is a monitor, the bus takes its name away: from then on it sees everything.
        until(lambda: "\tNameLost" in self.process.stdout.readline())
        os.set_blocking(self.process.stdout.fileno(), False)

    def messages(self):
        for line in self.process.stdout:
            fields = line.rstrip("\n").split("\t")
            if len(fields) > 3 and fields[3] == self.sender:
                self.seen.append(f"{fields[0]} {fields[-1]}")
        return self.seen


def main():
    # The browser: a stand-in for xdg-open that notes the link it was asked to open.
    bin_dir = tempfile.mkdtemp()
    links = os.path.join(bin_dir, "links")
    with open(os.path.join(bin_dir, "xdg-open"), "w") as browser:
        browser.write(f"#!/bin/sh\nprintf '%s\\n' \"$1\" >> '{links}'\n")
    os.chmod(os.path.join(bin_dir, "xdg-open"), 0o755)
    environment = {"PATH": bin_dir + ":" + os.environ["PATH"]}
    # A session, then a status table and a command table against a daemon of the test's.

    # The notification server comes late too, and reads markup.
    late = ["--no-panel", "--late-host", "--no-notifications", "--capabilities=body,body-markup"]
    with Session(PREFIX, SIMULATOR, options=None, desktop=late, environment=environment,
                 arguments=["--autostart"]) as session:
        app, desktop = session.app, session.desktop
        time.sleep(2.5)
        desktop.start("panel")  # its host comes later, as waybar's does
        time.sleep(1.5)
        held = list(desktop.registered)
        desktop.start("host")
        check(not held and within(lambda: desktop.registered == [app.owner], 3),
              "autostarted first: registers with the panel that comes, once its host is there")
        desktop.start("panel")  # a host that never says so: registered all the same
        check(within(lambda: desktop.registered == [app.owner] * 2, 6), "registers again with a panel that replaces it")

        check(within(lambda: app.rows() == menu("Disconnected", ["(off) Connect"]), 12)
              and app.tooltip() == "Veltrane \u2014 Disconnected" and app.dot() == RED, "no daemon: unreachable")
        sizes = [int(w) if len(d) == 4 * w * h else -1 for w, h, d in app.property("IconPixmap")]
        check(app.property("Id") == ID and app.property("ItemIsMenu") and app.property("IconName") == ""
              and sizes == [16, 22, 24, 32, 44, 48, 64, 96, 128], f"a menu item with its id and whole images {sizes}")
        # GNOME's extension reads the interface: without Activate it opens the menu at once, rather
        # than waiting whether a double click follows. Plasma calls it anyway, and draws the menu
        # itself when the call fails.
        introspected = app.item.Introspect(dbus_interface="org.freedesktop.DBus.Introspectable")
        check('"ProvideXdgActivationToken"' in introspected and '"Activate"' not in introspected
              and '"ContextMenu"' not in introspected, "no activation to wait for")

        session.replace_daemon(lambda: session.simulator("--stopped", "--signed-out", "--login-delay", "-1"))
        check(within(lambda: app.rows() == menu("Disconnected", ["Connect"]), 12) and app.dot() == SLATE,
              "a stopped daemon: Connect")
        app.click("Connect")
        check(within(lambda: app.rows() == menu("Connected, needs auth", ["Disconnect", "Log in\u2026"]), 12),
              "connected and signed out: Log in\u2026")
        app.click("Log in\u2026")
        check(within(lambda: open(links).read().startswith("https://login.veltrane.example/a/VLT-"), 12),
              "the sign-in link goes to the browser")
        failed = f"{SIGN_IN[0]} \u2014 {SIGN_IN[1]})"
        check(within(lambda: [line for line in app.log if line.startswith("[notification] delivery failed: ")
                              and line.endswith(failed)], 10), "no notification server yet: the notice is logged")
        desktop.start("notifications")
        session.daemon.process.send_signal(signal.SIGUSR1)  # the user signs in
        until(lambda: app.rows()[1] == "(off) Connected", 12)
        check(app.rows() == menu("Connected", ["Disconnect", "(off) maria-workstation.acme-engineering.veltrane.net",
                                               "(off) 100.64.0.1 \u00b7 maria.lopez@acme.example", "Peers\u2026", "Log out"])
              and app.tooltip() == "Veltrane \u2014 Connected" and app.dot() == GREEN, f"signed in, names whole: {app.rows()}")

        app.click("Peers\u2026")
        check(within(lambda: shown("--name", "^Veltrane \u2014 Peers$"), 12), "Peers\u2026 shows the peers window")
        second = subprocess.run([os.path.join(PREFIX, "bin/veltrane-tray")], timeout=20)
        check(second.returncode == 0 and app.process.poll() is None and len(desktop.registered) == 2
              and within(lambda: shown("--name", "^Veltrane$"), 5),
              "a second start leaves at once; the first runs on and shows its menu as a window")
        app.click("Disconnect")
        check(within(lambda: app.rows() == menu("Disconnected", ["Connect"]), 12), "Disconnect")
        check(desktop.notices == [SIGNED_IN] and desktop.questions == 1,
              f"exactly the sign-in notices: {desktop.notices}")

        # Silent while nothing changes: a change of state is one icon, one tooltip, one menu update.
        replies, delays = {"get_status": {"success": True, "status": CONNECTED}}, {}

        def answer(command):
            time.sleep(delays.get(command, 0))
            return replies[command]
        session.replace_daemon(lambda: session.fake(replying(answer)))
        until(lambda: app.dot() == GREEN)
        monitor = BusMonitor(app.owner)
        start = time.monotonic()
        until(lambda: len(session.polls_since(start)) >= 3, 15)
        check(monitor.messages() == [], f"three unchanged polls send nothing: {monitor.messages()}")
        replies["get_status"] = {"success": True, "status": NO_NETWORK}
        one_change = ["sig NewIcon", "sig NewTitle", "sig NewToolTip", "sig ItemsPropertiesUpdated"]
        check(within(lambda: monitor.messages() == one_change, 10), f"a change of state: {monitor.messages()}")
        start = time.monotonic()
        until(lambda: len(session.polls_since(start)) >= 2, 10)
        check(monitor.messages() == one_change, "and nothing more while it stays")
        monitor.process.kill()

        for reply, header, dot, middle in STATES:
            replies["get_status"] = reply
            check(within(lambda: app.rows() == menu(header, middle) and app.tooltip() == "Veltrane \u2014 " + header
                         and app.property("IconAccessibleDesc") == app.property("Title") == app.tooltip()
                         and app.dot() == dot, 10),
                  f"{header}: {app.rows()}, dot {app.dot()}")
        check(desktop.notices[1:] == [], "no notice from a status")

        # Rows read by screen readers by their text; no dot a host would grey; icons sharp at 2x.
        layout = dict(app.layout())
        check(layout[5]["accessible-desc"] == "This device" and "icon-data" not in layout[2]
              and struct.unpack(">II", bytes(layout[1]["icon-data"])[16:24]) == (32, 32), "rows for every host")

        # The menu as any DBusMenu host may ask for it; unknown rows are errors.
        exported, quit_row = app.menu, app.row("Quit Veltrane")
        revision, (root, properties, children) = exported.GetLayout(0, 0, dbus.Array([], signature="s"))
        check(revision == 1 and root == 0 and properties["children-display"] == "submenu" and not children,
              "the root alone at depth 0")
        check(exported.GetLayout(quit_row, -1, ["label"])[1][1] == {"label": "Quit Veltrane"}
              and "shortcut" not in exported.GetLayout(quit_row, -1, dbus.Array([], signature="s"))[1][1]
              and [(i, dict(p)) for i, p in exported.GetGroupProperties([1, 99], ["enabled"])] == [(1, {"enabled": False})],
              "one row, a group, chosen properties; no shortcut for a panel's menu")
        def error_of(method, *arguments):
            try:
                getattr(exported, method)(*arguments)
            except dbus.DBusException as error:
                return error.get_dbus_name()
        unknown = "com.canonical.dbusmenu.Error.UnknownId"
        errors = [error_of("GetLayout", 99, -1, dbus.Array([], signature="s")), error_of("GetProperty", 99, "label"),
                  error_of("AboutToShow", 99), error_of("Event", 99, "clicked", dbus.Int32(0, variant_level=1), dbus.UInt32(0)),
                  error_of("GetProperty", 1, "x")]
        check(errors == [unknown] * 4 + ["org.freedesktop.DBus.Error.InvalidArgs"]
              and list(exported.AboutToShowGroup([1, 98])[1]) == [98], f"unknown rows and properties are errors: {errors}")

        # A host that reads the menu to have it ready (GNOME Shell, at start-up and after it
        # restarts) asks AboutToShow with no menu on screen: polls go on.
        exported.GetLayout(0, -1, dbus.Array([], signature="s"))
        exported.AboutToShow(0)
        prefetched = time.monotonic()
        check(within(lambda: len(session.polls_since(prefetched)) >= 2, 7), "a prefetch of the menu holds no poll")
        # While a host shows the menu no tick polls, so rows hold still; the missed tick polls once
        # when it closes. A host that never says "closed" (waybar) holds polls 15 s at most.
        event = lambda name: exported.Event(0, name, dbus.Int32(0, variant_level=1), dbus.UInt32(0))
        event("opened")
        opened = time.monotonic()
        time.sleep(7)
        held = session.polls_since(opened + 0.5)  # after a request already under way
        closed = time.monotonic()
        event("closed")
        check(not held and within(lambda: [t for t in session.polls_since(closed) if t - closed < 1], 3),
              f"no poll while the menu is open, then one at once: {held}")
        exported.AboutToShowGroup(dbus.Array([0], signature="i"))
        shown_at = time.monotonic()
        resumed = until(lambda: session.polls_since(shown_at + 0.5), 25)[0] - shown_at
        check(14 < resumed < 18, f"without \"closed\", polls resume {resumed:.1f} s after the menu opened")

        os.remove(links)
        for row, status, reply, notice in COMMANDS:
            replies.update(get_status={"success": True, "status": status}, **{WIRE[row]: reply})
            heard = len(desktop.notices)
            app.click(row)
            until(lambda: len(desktop.notices) > heard, 10)
            start = time.monotonic()
            until(lambda: len(session.polls_since(start)) >= 1, 10)
            got = desktop.notices[heard:]
            check(len(got) == 1 and got[0][0] == notice[0] and got[0][1].startswith(notice[1]), f"{row}: {got}")
        check(within(lambda: open(links).read() == "veltrane-auth:code/42\n", 10), "a link of any scheme is opened, nothing else")
        ids = [hints.get("x-veltrane-id", "") for hints in desktop.hints]
        check(all(hints.get("desktop-entry") == ID for hints in desktop.hints) and len(set(ids)) == len(ids)
              and all(re.fullmatch(r"[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}", i) for i in ids),
              f"each of {len(ids)} notices names the app's desktop entry and an identifier of its own")
        replies["get_status"] = {"success": True, "status": CONNECTED}
        check(within(lambda: desktop.notices[-1] == SIGNED_IN, 10), "and its pickup is told")

        # Clicked while a slow status request is out, a command waits behind it: the status applied
        # meanwhile disables the command rows, a second click sends nothing, and once answered the
        # command is followed at once by a status request, not by the next tick.
        replies["logout"], delays["get_status"] = {"success": True}, 2
        heard, start = len(desktop.notices), time.monotonic()
        until(lambda: session.polls_since(start))
        app.click("Log out", times=2)
        check(within(lambda: {"(off) Disconnect", "(off) Log out"} <= set(app.rows()), 5),
              f"command rows disabled while the command runs: {app.rows()}")
        until(lambda: len(desktop.notices) > heard, 10)
        time.sleep(2 * 3)
        delays.clear()
        lines = [(t, line) for t, line in session.requests if t >= start]
        logouts = [t for t, line in lines if line == '{"command":"logout"}']
        follow = [t for t, line in lines if logouts and t > logouts[0] and line == GET_STATUS][:1]
        check(len(logouts) == 1 and len(desktop.notices) == heard + 1 and follow and follow[0] - logouts[0] < 0.5,
              f"one command sent and told, and a status request right after it: {lines}")
        session.desktop.stop()  # a notification server that refuses: the app logs its reason
        session.desktop = Desktop(["--refuse=Do not disturb"])
        app.click("Log out")
        check(within(lambda: "[notification] delivery failed: Do not disturb (Signed out \u2014 Your session has been ended.)"
                     in app.log, 10), "a refused notice is logged with the server's reason")
        # GNOME's extension says "closed" after the row that ends the app was clicked: the app
        # is still there, its menu too, to take it.
        event("opened")
        app.click("Quit Veltrane")
        time.sleep(0.1)
        try:
            event("closed")
            heard = "taken"
        except dbus.DBusException as error:
            heard = error.get_dbus_name()
        check(heard == "taken" and app.process.wait(timeout=20) == 0,
              f'"Quit Veltrane" ends the app once the panel has said its menu closed: "closed" {heard}')
    finish()


main()
