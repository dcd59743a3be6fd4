#!/usr/bin/python3
"""The run command's choice of daemon, where a user runs it.

scripts/start-tray.sh runs the installed app against the daemon that listens at the fixed socket
path, else against the simulated daemon. Four kinds of /run/veltrane: missing, a directory without a
socket, a socket left behind by a daemon that is gone, and a live daemon. For each the app must
reach the right daemon, and the system's /run/veltrane must stay as it was.

The test plays the system in a private mount namespace with a /run of its own (a user namespace
too when not run as root); the app runs without a session bus, offscreen.

Usage: tst_runpath.py PREFIX SIMULATOR
"""
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

from fakedaemon import FakeDaemon

HERE = os.path.dirname(os.path.abspath(__file__))
START = os.path.join(HERE, "../scripts/start-tray.sh")
DIRECTORY = "/run/veltrane"
SOCKET = DIRECTORY + "/daemon.sock"
GET_STATUS = b'{"command":"get_status"}'

if os.environ.get("TST_RUNPATH_IN_NAMESPACE") != "1":
    unshare = ["unshare", "--mount", "--propagation", "private"]
    if os.getuid() != 0:
        unshare[1:1] = ["--user", "--map-root-user"]
    os.execvpe(unshare[0], unshare + [sys.executable, *sys.argv],
               dict(os.environ, TST_RUNPATH_IN_NAMESPACE="1"))

PREFIX, SIMULATOR = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
subprocess.run(["mount", "-t", "tmpfs", "tst-runpath", "/run"], check=True)
work = tempfile.mkdtemp()
# The simulator as start-tray.sh starts it, saying which requests reach it.
logging_simulator = os.path.join(work, "simulator")
with open(logging_simulator, "w") as script:
    script.write(f'#!/bin/sh\nexec "{SIMULATOR}" --log-requests "$@"\n')
os.chmod(logging_simulator, 0o755)


def run_start_tray(polled, seconds=8):
    """Runs start-tray.sh until `polled(output)` or `seconds` pass; returns its output, and whether it
    was still running."""
    output = os.path.join(work, "output")
    environment = dict(os.environ, QT_QPA_PLATFORM="offscreen", DBUS_SESSION_BUS_ADDRESS="unix:path=/nonexistent")
    with open(output, "wb") as sink:
        process = subprocess.Popen([START, os.path.join(PREFIX, "bin/veltrane-tray"), logging_simulator],
                                   stdout=sink, stderr=subprocess.STDOUT, env=environment, start_new_session=True)
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline and process.poll() is None:
            with open(output, "rb") as partial:
                if polled(partial.read()):
                    break
            time.sleep(0.1)
        still_running = process.poll() is None
        os.killpg(process.pid, signal.SIGTERM)
        process.wait()
    with open(output, "rb") as produced:
        return produced.read().decode(errors="replace"), still_running


def listing():
    """What the system's /run/veltrane holds: None when it is missing."""
    if not os.path.lexists(DIRECTORY):
        return None
    return sorted((name, os.stat(os.path.join(DIRECTORY, name)).st_mode) for name in os.listdir(DIRECTORY))


failures = []
passed = []


def check(case, condition, message):
    (passed if condition else failures).append(case)
    print(("ok   " if condition else "FAIL ") + f"{case}: {message}")


def check_simulator_used(case):
    before = listing()
    output, still_running = run_start_tray(lambda output: b"request: " + GET_STATUS in output)
    check(case, "Simulated daemon: pid" in output, "the simulated daemon is started")
    check(case, "request: " + GET_STATUS.decode() in output, "the app polls it")
    check(case, still_running, "the app was still running when stopped")
    check(case, "File exists" not in output and "cannot create" not in output, "no error from the namespace")
    check(case, listing() == before, "the system's /run/veltrane is left as it was")
    if "request: " not in output:
        print(output)


# No daemon installed.
check_simulator_used("no directory")

# A daemon installed but stopped: its directory stays, without a socket.
os.mkdir(DIRECTORY)
check_simulator_used("directory without a socket")

# A daemon that died: its socket file stays, and nobody listens on it.
stale = socket.socket(socket.AF_UNIX)
stale.bind(SOCKET)
stale.close()
check_simulator_used("stale socket")
os.unlink(SOCKET)

# A live daemon: the app talks to it, and no simulator starts.
daemon = FakeDaemon(SOCKET, lambda connection, _: connection.sendall(b'{"success":true,"status":{"running":false}}\n'))
output, still_running = run_start_tray(lambda _: GET_STATUS.decode() in daemon.requests)
check("live daemon", GET_STATUS.decode() in daemon.requests, "the app polls the daemon at the fixed path")
check("live daemon", "Simulated daemon" not in output and "request: " not in output, "no simulated daemon starts")
check("live daemon", still_running, "the app was still running when stopped")
daemon.die()
os.unlink(SOCKET)

shutil.rmtree(work)
print(f"{len(passed)} passed, {len(failures)} failed")
sys.exit(1 if failures else 0)
