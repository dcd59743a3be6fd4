#!/usr/bin/env bash
# Builds the project and starts the simulated daemon on a private socket, in the foreground.
# Extra arguments go to the simulator (see --help), e.g. scripts/run.sh --peers 500 --signed-out
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$root/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$root/build" --target veltrane-daemon-sim

runtime="${XDG_RUNTIME_DIR:-/tmp}/veltrane-sim-$(id -u)"
mkdir -p "$runtime"
exec "$root/build/Tools/veltrane-daemon-sim" --socket "$runtime/daemon.sock" "$@"
