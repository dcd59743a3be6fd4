# The installed app on a desktop of the test's own, shared by every whole-app test, which runs
# under xvfb-run and a bare session bus: a `Session` starts desktop.py (notification server and
# panel), a daemon (the simulator or a `FakeDaemon`) that logs each request with its time, and
# the app, which reaches the daemon through its fixed socket path; the app is read and clicked
# as a panel does it.
import contextlib
import json
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time

import dbus

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(HERE)
ID = "net.veltrane.tray"
ITEM = "org.kde.StatusNotifierItem"
GET_STATUS = '{"command":"get_status"}'
RED, SLATE, GREY, GREEN = (239, 68, 68), (100, 116, 139), (148, 163, 184), (34, 197, 94)
results = {"passed": 0, "failed": 0}


def check(condition, what):
    results["passed" if condition else "failed"] += 1
    print(("ok   " if condition else "FAIL ") + what, flush=True)
    return condition


def finish():
    print(f"{results['passed']} passed, {results['failed']} failed", flush=True)
    sys.exit(1 if results["failed"] or not results["passed"] else 0)


def until(probe, seconds=20):
    """Polls `probe` until it returns something true, and returns that; raises on time-out."""
    deadline = time.monotonic() + seconds
    while True:
        with contextlib.suppress(dbus.DBusException, LookupError, OSError):
            if result := probe():
                return result
        if time.monotonic() > deadline:
            raise TimeoutError(getattr(probe, "__doc__", None) or "condition")
        time.sleep(0.1)


def within(probe, seconds):
    """What `probe` gives once it comes true within `seconds`, else False."""
    with contextlib.suppress(TimeoutError):
        return until(probe, seconds)
    return False


class Desktop:
    """desktop.py's events: the notices shown and the items registered with the panel."""

    def __init__(self, options=()):
        """`options`: desktop.py's, such as --no-panel."""
        self.notices, self.hints, self.registered, self.questions = [], [], [], 0
        self.process = subprocess.Popen([sys.executable, os.path.join(HERE, "desktop.py"), *options],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        assert "ready" in json.loads(self.process.stdout.readline())
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        for line in self.process.stdout:
            event = json.loads(line)
            if "notice" in event:
                self.notices.append(tuple(event["notice"]))
                self.hints.append(event["hints"])
            elif "registered" in event:
                self.registered.append(event["registered"])
            self.questions += "capabilities" in event

    def start(self, part):
        """Starts "notifications", the "panel" (again: the watcher's name gets a new owner) or its "host"."""
        print(part, file=self.process.stdin, flush=True)

    def stop(self):
        self.process.kill()
        self.process.wait()


class Simulator:
    """The simulated daemon, logging every request into `requests` as (time, line)."""

    def __init__(self, program, path, *options, requests=None):
        self.requests = [] if requests is None else requests
        self.process = subprocess.Popen([program, "--socket", path, "--connect-delay", "0", "--log-requests", *options],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        threading.Thread(target=self.read, daemon=True).start()
        until(lambda: os.path.exists(path), 10)

    def read(self):
        for line in self.process.stderr:
            if line.startswith("request: "):
                self.requests.append((time.monotonic(), line[len("request: "):].rstrip("\n")))

    stop = Desktop.stop


class FakeDaemon:
    """A daemon written in the test: `answer(connection, line)` does what it likes with each
    connection. `reads` false: it accepts and never reads nor closes."""

    def __init__(self, path, answer, reads=True, requests=None):
        self.answer, self.reads = answer, reads
        self.requests = [] if requests is None else requests
        self.held = []
        with contextlib.suppress(FileNotFoundError):
            os.unlink(path)
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(path)
        self.listener.listen(16)
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            if not self.reads:
                self.held.append(connection)
                continue
            with connection, contextlib.suppress(OSError):  # a client may leave before the answer
                line = connection.makefile("rb").readline().rstrip(b"\n").decode()
                if line:  # else a client that only looked whether a daemon listens
                    self.requests.append((time.monotonic(), line))
                    self.answer(connection, line)

    def stop(self):
        """Stops listening and leaves the socket file behind, as a crashed daemon does."""
        self.listener.close()
        for connection in self.held:
            connection.close()


def ask(path, line):
    """One exchange with the daemon at `path`, as the app makes it: the reply line."""
    with socket.socket(socket.AF_UNIX) as connection:
        connection.connect(path)
        connection.sendall(line.encode() + b"\n")
        return connection.makefile("rb").readline()


def replying(reply):
    """An answer that sends `reply(command)`: a dict as one JSON line, bytes as they are."""
    def answer(connection, line):
        reply_ = reply(json.loads(line)["command"])
        connection.sendall(reply_ if isinstance(reply_, bytes) else json.dumps(reply_).encode() + b"\n")
    return answer


class App:
    """The installed app, reached through its bus name, read and clicked as a panel does."""

    def __init__(self, prefix, socket_dir, wrapper=(), environment=None, arguments=()):
        # An `environment` value of None takes the variable away.
        env = {name: value for name, value in {**os.environ, "QT_QPA_PLATFORM": "xcb", **(environment or {})}.items()
               if value is not None}
        self.log = []  # the app's log lines
        self.process = subprocess.Popen([os.path.join(SOURCE, "scripts/with-daemon-socket.sh"), socket_dir, *wrapper,
                                         os.path.join(prefix, "bin/veltrane-tray"), *arguments], env=env,
                                        stderr=subprocess.PIPE, text=True)
        threading.Thread(target=lambda: self.log.extend(line.rstrip("\n") for line in self.process.stderr),
                         daemon=True).start()
        self.bus = dbus.SessionBus()
        self.owner = until(lambda: self.bus.get_name_owner(ID))
        self.item = self.bus.get_object(self.owner, "/StatusNotifierItem", introspect=False)
        self.menu = dbus.Interface(self.bus.get_object(self.owner, "/MenuBar", introspect=False),
                                   "com.canonical.dbusmenu")

    def property(self, name):
        return self.item.Get(ITEM, name, dbus_interface=dbus.PROPERTIES_IFACE)

    def call(self, method, *arguments):
        return self.item.get_dbus_method(method, ITEM)(*arguments)

    def tooltip(self):
        return str(self.property("ToolTip")[2])

    def dot(self):
        """The colour at the centre of the icon's state dot, in its 64-pixel image."""
        width, height, data = next((w, h, bytes(d)) for w, h, d in self.property("IconPixmap") if w == 64)
        at = (int(height * 0.77) * width + int(width * 0.77)) * 4  # ARGB
        return tuple(data[at + 1:at + 4])

    def layout(self):
        return [(int(i), props) for i, props, _ in self.menu.GetLayout(0, -1, dbus.Array([], signature="s"))[1][2]]

    def rows(self):
        """The menu as a panel draws it: visible rows with their DBusMenu labels, "—" for a
        separator, "(off) " before a disabled row."""
        rows = []
        for _, p in self.layout():
            if not p.get("visible", True):
                continue
            if p.get("type") == "separator":
                rows.append("\u2014")
            else:
                rows.append(("" if p.get("enabled", True) else "(off) ") + str(p.get("label", "")))
        return rows

    def row(self, label):
        """The id of the shown and enabled row with this label, or None."""
        return next((i for i, p in self.layout() if p.get("label") == label and p.get("visible", True)
                     and p.get("enabled", True)), None)

    def click(self, label, times=1):
        """Clicks the row once it is shown and enabled (`times` in a row)."""
        row = until(lambda: self.row(label))
        for _ in range(times):
            self.call("ProvideXdgActivationToken", f"click-{row}")  # as Plasma and GNOME do
            self.menu.Event(row, "clicked", dbus.Int32(0, variant_level=1), dbus.UInt32(0))

    def quit(self):
        """Chooses "Quit Veltrane"; the app's exit status."""
        self.click("Quit Veltrane")
        return self.process.wait(timeout=20)

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    stop = Desktop.stop


class Session:
    """A desktop, a daemon and the app, in that order; a context that ends them all."""

    def __init__(self, prefix, simulator=None, options=(), desktop=(), wrapper=(), environment=None, arguments=()):
        """`options` None: no daemon at the start; `desktop`: desktop.py's options; `arguments` the app's."""
        self.prefix, self.program = prefix, simulator
        self.work = tempfile.mkdtemp()
        self.socket_dir = os.path.join(self.work, "run")
        self.socket = os.path.join(self.socket_dir, "daemon.sock")
        os.mkdir(self.socket_dir)
        self.requests = []
        self.desktop = Desktop(desktop)
        self.daemon = self.simulator(*options) if options is not None else None
        self.app = App(prefix, self.socket_dir, wrapper, environment, arguments)

    def simulator(self, *options, path=None):
        return Simulator(self.program, path or self.socket, *options, requests=self.requests)

    def fake(self, answer, reads=True):
        return FakeDaemon(self.socket, answer, reads, self.requests)

    def replace_daemon(self, start):
        """Stops the daemon and puts `start()`'s in its place (None: no daemon at all)."""
        if self.daemon:
            self.daemon.stop()
        with contextlib.suppress(FileNotFoundError):
            os.unlink(self.socket)
        self.daemon = start()

    def polls_since(self, start):
        return [t for t, line in self.requests if t >= start and line == GET_STATUS]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for part in (self.app, self.daemon, self.desktop):
            if part:
                part.stop()
        shutil.rmtree(self.work, ignore_errors=True)
