#!/usr/bin/env bash
# Usage: scripts/start-tray.sh APP SIMULATOR [SIMULATOR OPTIONS…]
#
# Runs the tray app APP. When a daemon listens at the app's socket and no options are given, the
# app talks to it. Otherwise SIMULATOR, the simulated daemon, listens in a private directory and
# the app reaches it through its fixed socket path in a private mount namespace: nothing changes
# under the system's /var/run, whether the daemon's directory is missing, empty, holds a socket
# no daemon listens on any more, or a live one.
set -euo pipefail
[ $# -ge 2 ] || { echo "usage: $0 APP SIMULATOR [SIMULATOR OPTIONS...]" >&2; exit 2; }
here=$(cd "$(dirname "$0")" && pwd)
app=$1 simulator=$2
shift 2
socket=/var/run/veltrane/daemon.sock

# Connecting tells a listening daemon from a socket file left behind: that one refuses.
daemon_answers() {
    /usr/bin/python3 - "$socket" <<'PYTHON' 2>/dev/null
import socket, sys
connection = socket.socket(socket.AF_UNIX)
connection.settimeout(2)
try:
    connection.connect(sys.argv[1])
except PermissionError:
    pass  # a daemon is there, only not for this user; the app will say so
PYTHON
}

if [ $# -eq 0 ] && [ -S "$socket" ] && daemon_answers; then
    echo "Using the daemon at $socket"
    exec "$app"
fi

socket_dir=$(mktemp -d "${TMPDIR:-/tmp}/veltrane-sim.XXXXXX")
"$simulator" --socket "$socket_dir/daemon.sock" "$@" &
simulator_pid=$!
trap 'kill "$simulator_pid" 2>/dev/null; wait "$simulator_pid" 2>/dev/null; rm -rf "$socket_dir"' EXIT
for _ in $(seq 50); do
    [ -S "$socket_dir/daemon.sock" ] && break
    kill -0 "$simulator_pid" 2>/dev/null || exit 1
    sleep 0.1
done
echo "Simulated daemon: pid $simulator_pid (kill -USR1 $simulator_pid completes a pending sign-in)"
"$here/with-daemon-socket.sh" "$socket_dir" "$app"
