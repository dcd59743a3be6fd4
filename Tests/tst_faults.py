#!/usr/bin/python3
"""The installed app under every way a daemon can misbehave, in one run.

One app, on a private session bus under Xvfb, through a series of daemons at its socket: the
simulator in each of its fault modes, a missing socket, a socket this user may not open, a daemon
that accepts and never reads, one that sends 5 MiB without a line feed, a restart into another
state, one that answers a command and then dies, and commands that are refused or answered
badly. The test plays the notification server and reads the app's state from its status item.
For each daemon: the state the daemon's answers call for (the icon's dot), exactly the notices
they call for, no status request sooner than the poll interval allows, and then, with a good
daemon back, the app alive, applying its answers and holding no more descriptors than before.
Last, daemon texts with markup, control characters, right-to-left text and 10,000 characters
must reach menu rows and notices as the daemon wrote them.

Usage: tst_faults.py PREFIX SIMULATOR, under xvfb-run and dbus-run-session.
"""
import json
import os
import socket
import subprocess
import sys
import threading
import time

import dbus

from appsession import HERE, AppSession, until
from fakedaemon import FakeDaemon

PREFIX, SIMULATOR = sys.argv[1], sys.argv[2]
RED, SLATE, GREEN = (239, 68, 68), (100, 116, 139), (34, 197, 94)
GET_STATUS = '{"command":"get_status"}'
POLL_INTERVAL = 3.0
failures, passed = [], []


def check(condition, what):
    (passed if condition else failures).append(what)
    print(("ok   " if condition else "FAIL ") + what, flush=True)


class Notices:
    """The notification server's log of what the app showed."""

    def __init__(self):
        self.received = []
        self.server = subprocess.Popen(["/usr/bin/python3", os.path.join(HERE, "notificationserver.py")],
                                       stdout=subprocess.PIPE, text=True)
        assert self.server.stdout.readline().strip() == "ready"
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        for line in self.server.stdout:
            notice = json.loads(line)
            self.received.append((notice["summary"], notice["body"]))


class Requests:
    """Every request line that reached a daemon of this test, with its time."""

    def __init__(self):
        self.seen = []

    def add(self, line):
        if line:
            self.seen.append((time.monotonic(), line))

    def polls_since(self, start):
        return [t for t, line in self.seen if t >= start and line == GET_STATUS]


requests = Requests()
notices = Notices()


def ask(path, line):
    """One exchange with the daemon at `path`, as the app makes it."""
    with socket.socket(socket.AF_UNIX) as connection:
        connection.connect(path)
        connection.sendall(line.encode() + b"\n")
        reply = b""
        while not reply.endswith(b"\n"):
            chunk = connection.recv(1 << 16)
            if not chunk:
                break
            reply += chunk
    return reply


def main():
    wrapper = []
    if os.getuid() == 0:
        # Root opens any socket; without these capabilities it is refused as a user is.
        wrapper = ["setpriv", "--bounding-set=-dac_override,-dac_read_search", "--inh-caps=-dac_override,-dac_read_search"]
    with AppSession(PREFIX, SIMULATOR, simulator_options=["--connect-delay", "0"], wrapper=wrapper) as session:
        bus = dbus.SessionBus()
        item = bus.get_object(bus.get_name_owner("net.veltrane.tray"), "/StatusNotifierItem", introspect=False)
        daemon = {"current": session.simulator}
        app_fds = f"/proc/{session.app.pid}/fd"

        def dot():
            images = item.Get("org.kde.StatusNotifierItem", "IconPixmap", dbus_interface=dbus.PROPERTIES_IFACE)
            width, height, data = next((w, h, bytes(d)) for w, h, d in images if w == 64)
            at = (int(height * 0.77) * width + int(width * 0.77)) * 4  # the dot's centre, ARGB
            return tuple(data[at + 1:at + 4])

        def replace_daemon(start):
            current = daemon["current"]
            if current.poll() is None:
                current.kill()
            current.wait()
            if os.path.lexists(session.socket):
                os.unlink(session.socket)
            daemon["current"] = session.simulator = start()

        def simulator(*options, path=session.socket, log=True):
            logging = ["--log-requests"] if log else []
            process = subprocess.Popen([SIMULATOR, "--socket", path, "--connect-delay", "0", *logging, *options],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)

            def log():
                for line in process.stderr:
                    if line.startswith("request: "):
                        requests.add(line[len("request: "):].rstrip("\n"))
            threading.Thread(target=log, daemon=True).start()
            until(lambda: os.path.exists(path))
            return process

        until(lambda: dot() == GREEN)
        time.sleep(2 * POLL_INTERVAL)
        baseline = len(os.listdir(app_fds))

        def recover(name, expected=GREEN):
            """A good daemon again: the app applies its answers, alive and without extra descriptors."""
            replace_daemon(simulator)
            check(until(lambda: dot() == expected, 15) and session.app.poll() is None,
                  f"{name}: with a good daemon back the app applies its answers")
            descriptors = len(os.listdir(app_fds))
            check(descriptors <= baseline + 1, f"{name}: {descriptors} descriptors, {baseline} before")

        clicks = []

        def click(row):
            clicks.append(time.monotonic())
            session.click(row)

        # Daemons whose every answer fails: the unreachable state, no notice, polling on schedule.
        for fault in ["silent", "close-before-read", "close-mid-line", "empty", "garbage", "wrong-types",
                      "endless-stream", "refuse", "refuse-without-error"]:
            heard = len(notices.received)
            replace_daemon(lambda: simulator("--fault", fault))
            check(until(lambda: dot() == RED, 15), f"{fault}: the daemon-not-running state")
            check(notices.received[heard:] == [], f"{fault}: no notice")
            recover(fault)

        # Daemons that answer well in an odd way: the state they report, no notice.
        for fault in ["slow-reply", "trailing-bytes"]:
            heard = len(notices.received)
            replace_daemon(lambda: simulator("--fault", fault))
            since = time.monotonic()
            until(lambda: requests.polls_since(since))
            check(dot() == GREEN and notices.received[heard:] == [], f"{fault}: connected, no notice")

        def unreachable(name, start):
            heard = len(notices.received)
            replace_daemon(start)
            check(until(lambda: dot() == RED, 20), f"{name}: the daemon-not-running state")
            check(notices.received[heard:] == [], f"{name}: no notice")
            recover(name)

        unreachable("missing socket", NoDaemon)

        def forbidden():
            process = simulator()
            os.chmod(session.socket, 0)
            return process
        unreachable("socket without permission", forbidden)
        unreachable("accepts and never reads", lambda: FakeDaemon(session.socket, None, reads=False, heard=requests.add))

        def flood(connection, _):
            connection.sendall(b"x" * (5 << 20))
        unreachable("5 MiB without a line feed", lambda: FakeDaemon(session.socket, flood, heard=requests.add))

        # Restarted into another state: the new daemon's state; its commands work.
        heard = len(notices.received)
        replace_daemon(lambda: simulator("--stopped"))
        check(until(lambda: dot() == SLATE, 10), "restarted mid-run: the new daemon's stopped state")
        click("Connect")
        check(until(lambda: dot() == GREEN, 10) and notices.received[heard:] == [],
              "restarted mid-run: Connect reaches the new daemon, no notice")

        # Answers a command, then dies: the command's outcome (no notice for a successful stop),
        # then the unreachable state.
        upstream = os.path.join(session.work, "upstream.sock")
        backend = simulator(path=upstream, log=False)

        def answer_then_die(connection, line):
            connection.sendall(ask(upstream, line))
            if line == '{"command":"stop"}':
                fake.die()
        heard = len(notices.received)
        replace_daemon(lambda: FakeDaemon(session.socket, answer_then_die, heard=requests.add))
        fake = daemon["current"]
        until(lambda: dot() == GREEN)
        click("Disconnect")
        check(until(lambda: dot() == RED, 10), "answers a command and dies: then the daemon-not-running state")
        time.sleep(POLL_INTERVAL)
        check(notices.received[heard:] == [], "answers a command and dies: no notice for the stop it answered")
        backend.kill()
        backend.wait()
        recover("answers a command and dies")

        # Commands answered badly: exactly one notice each, with the texts for the case.
        for fault, row, expected in [
                ("refuse:stop", "Disconnect", ("Disconnect failed", "The daemon is busy; try again.")),
                ("refuse-without-error:logout", "Log out", ("Sign-out failed", "Logout failed.")),
                ("empty:stop", "Disconnect", ("Veltrane", "Unable to reach the daemon: The daemon returned an empty response.")),
                ("garbage:stop", "Disconnect", ("Veltrane", "Unable to reach the daemon: Daemon request failed (invalid response"))]:
            heard = len(notices.received)
            replace_daemon(lambda: simulator("--fault", fault))
            until(lambda: dot() == GREEN)
            clicked = time.monotonic()
            click(row)
            until(lambda: len(notices.received) > heard)
            until(lambda: len(requests.polls_since(clicked)) >= 2, 10)  # the follow-up poll and a tick
            got = notices.received[heard:]
            check(len(got) == 1 and got[0][0] == expected[0] and got[0][1].startswith(expected[1]),
                  f"{fault}: one notice {expected}, got {got}")
        recover("commands answered badly")

        # Nothing is asked again early: polls come at the interval, or at once after a command.
        polls = requests.polls_since(0)
        early = [(round(b - a, 2)) for a, b in zip(polls, polls[1:])
                 if b - a < POLL_INTERVAL - 0.5 and not any(0 <= b - c < 2 for c in clicks)]
        check(len(polls) > 20 and not early, f"{len(polls)} polls, none sooner than the interval allows: {early}")

        verbatim_texts(session, replace_daemon)
        session.click("Quit Veltrane")
        check(session.app.wait(timeout=20) == 0, '"Quit Veltrane" ends the app after all of it')

    notices.server.kill()
    print(f"{len(passed)} passed, {len(failures)} failed")
    return 1 if failures else 0


class NoDaemon:
    """No daemon at all: nothing at the socket path."""

    def poll(self):
        return 0

    def kill(self):
        pass

    def wait(self):
        return 0


MARKUP = "<b>bold</b> &amp; <i>it</i>_x.corp.example"
CONTROL_RTL = "\u05e9\u05dc\u05d5\u05dd \u202eabc\u202c \u0001\u0007\u001b[31m\tend"
LONG = "".join(chr(0x61 + i % 26) for i in range(9990)) + "\u05e2\u05d1\u05e8\u05d9\u05ea<b>&z"


def verbatim_texts(session, replace_daemon):
    """Daemon texts reach menu rows and notices as written: never markup, never trimmed of odd characters."""
    status = {"membershipState": "membership_active", "wantRunning": True, "isDataPlaneActive": True,
              "selfFqdn": MARKUP, "assignedIp": "100.64.0.1", "userEmail": CONTROL_RTL, "connectableDevices": []}
    replies = {"stop": {"success": False, "error": MARKUP + " " + CONTROL_RTL},
               "logout": {"success": True, "message": LONG}}

    def answer(connection, line):
        command = json.loads(line)["command"]
        reply = {"success": True, "status": status} if command == "get_status" else replies[command]
        connection.sendall(json.dumps(reply).encode() + b"\n")

    replace_daemon(lambda: FakeDaemon(session.socket, answer, heard=requests.add))

    def labels():
        _, (_, _, rows) = session.menu.GetLayout(0, -1, dbus.Array([], signature="s"))
        return [str(r[1].get("label", "")) for r in rows if r[1].get("visible")]

    def shows(text):
        """A row that shows `text` as written: whole, or shortened in the middle to the row's width."""
        for label in labels():
            label = label.replace("__", "_")
            head, _, tail = label.partition("\u2026")
            if label == text or (tail and text.startswith(head) and text.endswith(tail) and len(head) > 4):
                return label
        return None

    check(until(lambda: shows(MARKUP), 10), f"menu row: the DNS name as written, {shows(MARKUP)!r}")
    owner_row = "100.64.0.1 \u00b7 " + CONTROL_RTL
    check(until(lambda: shows(owner_row), 10), f"menu row: the address and owner as written, {shows(owner_row)!r}")

    heard = len(notices.received)
    session.click("Disconnect")
    until(lambda: len(notices.received) > heard)
    check(notices.received[heard:] == [("Disconnect failed", MARKUP + " " + CONTROL_RTL)],
          "notice: the daemon's error as written")
    heard = len(notices.received)
    session.click("Log out")
    until(lambda: len(notices.received) > heard)
    check(notices.received[heard:] == [("Signed out", LONG)], "notice: the daemon's 10,000-character message whole")

    status["selfFqdn"] = LONG
    shortened = until(lambda: shows(LONG), 10)
    check(len(shortened) < 200, f"menu row: a 10,000-character name keeps its beginning and end, {shortened!r}")

sys.exit(main())
