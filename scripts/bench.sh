#!/usr/bin/env bash
# Builds the benchmarks in release mode and runs them; each prints its ratio to a baseline
# measured in the same run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build-bench"

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DVELTRANE_BUILD_TESTS=OFF -DVELTRANE_BUILD_BENCHMARKS=ON >/dev/null
cmake --build "$build"
"$build/Benchmarks/bench_decode" "$@"
"$build/Benchmarks/bench_roundtrip" "$@"
"$build/Benchmarks/bench_peers" "$@"
# The status item's D-Bus traffic in a real panel: about 70 seconds of polls.
"$root/Benchmarks/tray-traffic.sh" "$build/Benchmarks/bench_tray_traffic"
# What a poll costs the installed app at 20, 1,000 and 10,000 peers: about 8 minutes.
prefix=$(mktemp -d "${TMPDIR:-/tmp}/veltrane-bench.XXXXXX")
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" --component tray >/dev/null
xvfb-run -a -s "-screen 0 1280x1024x24" dbus-run-session --config-file="$root/Tests/session-bus.conf" -- \
    /usr/bin/python3 "$root/Benchmarks/bench_poll.py" "$prefix" "$build/Tools/veltrane-daemon-sim" \
    "$build/Benchmarks/bench_poll_baseline"
