#!/usr/bin/env bash
# Builds and installs the tray app into the build tree, then runs it. When a Veltrane daemon is
# running, the app talks to it. Otherwise (or when options are given) a simulated daemon stands in,
# reached through the app's fixed socket path in a private mount namespace: no root is needed and
# nothing changes under the system's /var/run.
# Options go to the simulator (see --help), e.g. scripts/run.sh --peers 500 --signed-out
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build"
prefix="$build/run-prefix"

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" --target veltrane-tray veltrane-daemon-sim
# Installed, the app has its desktop identity: one instance at a time, and desktop notifications.
cmake --install "$build" --prefix "$prefix" >/dev/null
app="$prefix/bin/veltrane-tray"

if [ $# -eq 0 ] && [ -S /var/run/veltrane/daemon.sock ]; then
    exec "$app"
fi

socket_dir=$(mktemp -d "${TMPDIR:-/tmp}/veltrane-sim.XXXXXX")
"$build/Tools/veltrane-daemon-sim" --socket "$socket_dir/daemon.sock" "$@" &
simulator=$!
trap 'kill "$simulator" 2>/dev/null; wait "$simulator" 2>/dev/null; rm -rf "$socket_dir"' EXIT
for _ in $(seq 50); do
    [ -S "$socket_dir/daemon.sock" ] && break
    kill -0 "$simulator" 2>/dev/null || exit 1
    sleep 0.1
done
echo "Simulated daemon: pid $simulator (kill -USR1 $simulator completes a pending sign-in)"
"$root/scripts/with-daemon-socket.sh" "$socket_dir" "$app"
