#!/usr/bin/env bash
# Builds the benchmarks in release mode and runs them; each prints its ratio to a baseline.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build-bench"

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DVELTRANE_BUILD_TESTS=OFF -DVELTRANE_BUILD_BENCHMARKS=ON >/dev/null
cmake --build "$build" --target bench_decode bench_roundtrip bench_peers
"$build/Benchmarks/bench_decode" "$@"
"$build/Benchmarks/bench_roundtrip" "$@"
"$build/Benchmarks/bench_peers" "$@"
