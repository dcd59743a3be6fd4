#!/usr/bin/env bash
# Builds the Debian packages into build-package/packages: veltrane-tray, the app, and
# veltrane-tray-daemon-simulator, the simulated daemon for developers. Installs what the build
# needs first. Install the app with: sudo apt install ./build-package/packages/veltrane-tray_*.deb
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build-package"

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELTRANE_BUILD_TESTS=OFF \
    -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_SYSCONFDIR=/etc >/dev/null
cmake --build "$build"
(cd "$build" && cpack -B "$build/packages" | grep 'package:')
