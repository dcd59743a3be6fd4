#!/usr/bin/env bash
# Builds and installs the tray app into the build tree, then runs it (scripts/start-tray.sh). When
# a Veltrane daemon is running, the app talks to it. Otherwise (or when options are given) a
# simulated daemon stands in, reached through the app's fixed socket path in a private mount
# namespace: no root is needed and nothing changes under the system's /var/run.
# Options go to the simulator (see --help), e.g. scripts/run.sh --peers 500 --signed-out
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build"
run_root="$build/run-root"

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_SYSCONFDIR=/etc >/dev/null
cmake --build "$build" --target veltrane-tray veltrane-daemon-sim desktop-files
# Installed, the app has its desktop identity: one instance at a time, and desktop notifications.
# It goes into a root of its own in the build tree, as the package would into /.
DESTDIR="$run_root" cmake --install "$build" >/dev/null
exec "$root/scripts/start-tray.sh" "$run_root/usr/bin/veltrane-tray" "$run_root/usr/bin/veltrane-daemon-sim" "$@"
