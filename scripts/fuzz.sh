#!/usr/bin/env bash
# Fuzzes under AddressSanitizer and UndefinedBehaviorSanitizer: the reply decoder alone, then the
# whole exchange over a real socket (the daemon's bytes chunked and cut short).
# Usage: scripts/fuzz.sh [seconds]   each target for that long (default 600)
#        scripts/fuzz.sh --runs N    each target for N executions (10 million for a long run)
# Crashes land in fuzz-artifacts/, with the failing run's log beside them.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build-fuzz"
if [ "${1:-}" = --runs ]; then
    limit=(-runs="$2")
else
    limit=(-max_total_time="${1:-600}")
fi

CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DVELTRANE_BUILD_TESTS=OFF -DVELTRANE_BUILD_FUZZERS=ON >/dev/null
cmake --build "$build" --target fuzz_decode_response fuzz_exchange

mkdir -p "$root/fuzz-artifacts"
for target in decode_response:corpus exchange:corpus-exchange; do
    name=${target%%:*} seeds=${target#*:}
    # The checked-in seeds stay untouched: the fuzzer grows a scratch copy.
    corpus=$(mktemp -d)
    cp "$root/Tests/Fuzz/$seeds"/* "$corpus"/
    echo "fuzz_$name:"
    status=0
    "$build/Tests/Fuzz/fuzz_$name" "${limit[@]}" -max_len=65536 -timeout=60 -dict="$root/Tests/Fuzz/fuzz.dict" \
        -artifact_prefix="$root/fuzz-artifacts/" -print_final_stats=1 "$corpus" >"$corpus.log" 2>&1 || status=$?
    grep -E '^(#[0-9]+\s+DONE|Done|stat::number_of_executed_units|==[0-9]+==|SUMMARY|INFO: Running|fuzz_)' "$corpus.log" || true
    if [ "$status" -ne 0 ]; then
        # The whole log stays beside the crash file: what differed, and how the fuzzer got there.
        mv "$corpus.log" "$root/fuzz-artifacts/fuzz_$name.log"
        echo "fuzz_$name failed; its log: fuzz-artifacts/fuzz_$name.log"
        exit "$status"
    fi
    rm -rf "$corpus" "$corpus.log"
done
