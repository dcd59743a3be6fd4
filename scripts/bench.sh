#!/usr/bin/env bash
# Builds the benchmarks in release mode and runs them; each prints its ratio to a baseline
# measured in the same run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build-bench"

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DVELTRANE_BUILD_TESTS=OFF -DVELTRANE_BUILD_BENCHMARKS=ON >/dev/null
cmake --build "$build" --target bench_decode bench_roundtrip bench_peers bench_tray_traffic
"$build/Benchmarks/bench_decode" "$@"
"$build/Benchmarks/bench_roundtrip" "$@"
"$build/Benchmarks/bench_peers" "$@"
# The status item's D-Bus traffic in a real panel: about 70 seconds of polls.
"$root/Benchmarks/tray-traffic.sh" "$build/Benchmarks/bench_tray_traffic"
