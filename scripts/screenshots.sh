#!/usr/bin/env bash
# Draws the status icons, the menu rows and the peers window into docs/images (or the folder
# given), at twice the density of a plain screen, as the README shows them.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-"$root/docs/images"}

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$root/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$root/build" --target veltrane-screenshots
QT_QPA_PLATFORM=offscreen QT_SCALE_FACTOR=2 "$root/build/Tools/veltrane-screenshots" "$out"
