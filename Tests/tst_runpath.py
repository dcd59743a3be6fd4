#!/usr/bin/python3
"""The run command's choice of daemon for four kinds of /run/veltrane (missing, empty, a stale
socket, a live daemon), played in a private mount namespace: the right daemon is polled and the
system's /run/veltrane is left as it was. Usage: tst_runpath.py PREFIX SIMULATOR"""
import os
import signal
import socket
import subprocess
import sys
import tempfile
import time

from harness import GET_STATUS, SOURCE, FakeDaemon, check, finish, replying

DIRECTORY = "/run/veltrane"
SOCKET = DIRECTORY + "/daemon.sock"

if os.environ.get("TST_RUNPATH_IN_NAMESPACE") != "1":
    unshare = ["unshare", "--mount", "--propagation", "private"]
    if os.getuid() != 0:
        unshare[1:1] = ["--user", "--map-root-user"]
    os.execvpe(unshare[0], unshare + [sys.executable, *sys.argv], dict(os.environ, TST_RUNPATH_IN_NAMESPACE="1"))

PREFIX, SIMULATOR = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
subprocess.run(["mount", "-t", "tmpfs", "tst-runpath", "/run"], check=True)
work = tempfile.mkdtemp()
logging_simulator = os.path.join(work, "simulator")  # as start-tray.sh starts it, telling what reaches it
with open(logging_simulator, "w") as script:
    script.write(f'#!/bin/sh\nexec "{SIMULATOR}" --log-requests "$@"\n')
os.chmod(logging_simulator, 0o755)


def run_start_tray(polled, seconds=8):
    """Runs start-tray.sh until `polled(output)` or `seconds` pass: its output, and whether it was
    still running then."""
    output = os.path.join(work, "output")
    environment = dict(os.environ, QT_QPA_PLATFORM="offscreen", DBUS_SESSION_BUS_ADDRESS="unix:path=/nonexistent")
    with open(output, "wb") as sink:
        process = subprocess.Popen([os.path.join(SOURCE, "scripts/start-tray.sh"), os.path.join(PREFIX, "bin/veltrane-tray"),
                                    logging_simulator], stdout=sink, stderr=subprocess.STDOUT, env=environment,
                                   start_new_session=True)
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline and process.poll() is None and not polled(open(output).read()):
            time.sleep(0.1)
        still_running = process.poll() is None
        os.killpg(process.pid, signal.SIGTERM)
        process.wait()
    return open(output, errors="replace").read(), still_running


def listing():
    """What the system's /run/veltrane holds: None when it is missing."""
    if not os.path.lexists(DIRECTORY):
        return None
    return sorted((name, os.stat(os.path.join(DIRECTORY, name)).st_mode) for name in os.listdir(DIRECTORY))


def simulator_used(case):
    before = listing()
    output, still_running = run_start_tray(lambda output: "request: " + GET_STATUS in output)
    check("Simulated daemon: pid" in output and "request: " + GET_STATUS in output and still_running,
          f"{case}: the simulated daemon is started, and the running app polls it")
    check("File exists" not in output and "cannot create" not in output and listing() == before,
          f"{case}: no error from the namespace; the system's /run/veltrane is left as it was")


simulator_used("no directory")
os.mkdir(DIRECTORY)  # a daemon installed but stopped
simulator_used("directory without a socket")
stale = socket.socket(socket.AF_UNIX)  # a daemon that died: its socket stays, and nobody listens
stale.bind(SOCKET)
stale.close()
simulator_used("stale socket")
os.unlink(SOCKET)

daemon = FakeDaemon(SOCKET, replying(lambda _: {"success": True, "status": {"wantRunning": False}}))
output, still_running = run_start_tray(lambda _: daemon.requests)
check([line for _, line in daemon.requests][:1] == [GET_STATUS] and "Simulated daemon" not in output
      and "request: " not in output and still_running, "live daemon: the running app polls it, no simulator starts")
daemon.stop()
finish()
