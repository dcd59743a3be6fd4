#!/usr/bin/env bash
# One leg of the test run: installs what is missing, builds, fuzzes the reply decoder briefly, and
# runs the whole suite on the machine it is run on.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

"$root/scripts/install-deps.sh"

# A short fuzz run of the decoder and of the whole exchange under ASan and UBSan; scripts/fuzz.sh
# alone runs longer.
"$root/scripts/fuzz.sh" 20

# The parsing and socket code again, under ASan and UBSan.
cmake -S "$root" -B "$root/build-asan" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVELTRANE_SANITIZE=ON >/dev/null
cmake --build "$root/build-asan" --target tst_daemonprotocol tst_daemonclient
ctest --test-dir "$root/build-asan" --output-on-failure -R 'tst_daemon(protocol|client)'

# Configured as a system install, like the package it makes; tests install into throwaway roots.
cmake -S "$root" -B "$root/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_SYSCONFDIR=/etc
cmake --build "$root/build"
ctest --test-dir "$root/build" --output-on-failure -j2
