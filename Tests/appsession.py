"""The installed app against the simulated daemon, driven through its exported menu as a panel
would: shared by the tests that run the real app from Python."""
import os
import subprocess
import tempfile
import time

import dbus

HERE = os.path.dirname(os.path.abspath(__file__))


def until(probe, seconds=20):
    """Polls `probe` until it returns something other than None or False."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        try:
            result = probe()
            if result is not None and result is not False:
                return result
        except (dbus.DBusException, LookupError):
            pass
        time.sleep(0.1)
    raise TimeoutError(getattr(probe, "__doc__", None) or "condition")


class AppSession:
    """Starts the simulator and the app (optionally under a wrapper such as strace); a context."""

    def __init__(self, prefix, simulator, simulator_options=(), wrapper=(), environment=None):
        self.work = tempfile.mkdtemp()
        self.socket = os.path.join(self.work, "daemon.sock")
        self.simulator = subprocess.Popen([simulator, "--socket", self.socket, *simulator_options],
                                          stdout=subprocess.DEVNULL)
        until(lambda: os.path.exists(self.socket))
        env = dict(os.environ, QT_QPA_PLATFORM="xcb", **(environment or {}))
        self.app = subprocess.Popen([os.path.join(HERE, "../scripts/with-daemon-socket.sh"), self.work, *wrapper,
                                     os.path.join(prefix, "bin/veltrane-tray")], env=env)
        bus = dbus.SessionBus()
        owner = until(lambda: bus.get_name_owner("net.veltrane.tray"))
        self.menu = dbus.Interface(bus.get_object(owner, "/MenuBar", introspect=False), "com.canonical.dbusmenu")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in (self.app, self.simulator):
            if process.poll() is None:
                process.kill()
            process.wait()

    def row(self, label):
        """The id of the shown and enabled row with this label, or None."""
        _, (_, _, rows) = self.menu.GetLayout(0, -1, dbus.Array([], signature="s"))
        return next((r[0] for r in rows if r[1].get("label") == label and r[1].get("visible")
                     and r[1].get("enabled", True)), None)

    def click(self, label):
        """Clicks the row once it is shown and enabled."""
        self.menu.Event(until(lambda: self.row(label)), "clicked", dbus.Int32(0, variant_level=1), dbus.UInt32(0))
