#!/usr/bin/env bash
# Soaks the tray: 10,000 polls and 100 commands against the simulated daemon, the peers window
# open, polling every 2 ms instead of every 3 s; once under AddressSanitizer and LeakSanitizer
# (leaks, descriptors), once plain (resident memory, descriptors). Prints the figures.
# Usage: scripts/soak.sh [polls]   (default 10,000; a command every hundred polls)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$root/build-asan" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVELTRANE_SANITIZE=ON >/dev/null
cmake --build "$root/build-asan" --target soak
cmake -S "$root" -B "$root/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$root/build" --target soak
# A small quarantine: ASan's default keeps 256 MB of freed memory (its growth is not judged, but
# it would hide the figures).
echo "With ASan and LSan:"
ASAN_OPTIONS=detect_leaks=1:quarantine_size_mb=4 "$root/build-asan/Tools/soak" "$@" 2>/dev/null
echo "Plain:"
"$root/build/Tools/soak" "$@" 2>/dev/null
