#!/usr/bin/env bash
# Fuzzes the reply decoder under AddressSanitizer and UndefinedBehaviorSanitizer.
# Usage: scripts/fuzz.sh [seconds]   (default 600). Crashes land in fuzz-artifacts/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-600}
build="$root/build-fuzz"

CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DVELTRANE_BUILD_TESTS=OFF -DVELTRANE_BUILD_FUZZERS=ON >/dev/null
cmake --build "$build" --target fuzz_decode_response

# The checked-in seeds stay untouched: the fuzzer grows a scratch copy.
corpus=$(mktemp -d)
trap 'rm -rf "$corpus"' EXIT
cp "$root"/Tests/Fuzz/corpus/* "$corpus"/
mkdir -p "$root/fuzz-artifacts"
"$build/Tests/Fuzz/fuzz_decode_response" -max_total_time="$seconds" -max_len=65536 -timeout=10 \
    -dict="$root/Tests/Fuzz/fuzz.dict" -artifact_prefix="$root/fuzz-artifacts/" -print_final_stats=1 \
    "$corpus" 2>&1 | grep -E '^(#[0-9]+\s+DONE|Done|stat::number_of_executed_units|==[0-9]+==|SUMMARY|INFO: Running)' || true
test "${PIPESTATUS[0]}" -eq 0
