#!/usr/bin/env bash
# Usage: scripts/with-daemon-socket.sh DIR COMMAND [ARGUMENTS…]
#
# Runs COMMAND in a private mount namespace in which DIR is /run/veltrane, so the daemon's fixed
# socket path /var/run/veltrane/daemon.sock leads to whatever listens in DIR (the simulated
# daemon). Nothing changes outside the namespace, and no root is needed: an ordinary user gets a
# user namespace, and COMMAND still runs under the user's own id, so the session bus knows it.
set -euo pipefail
[ $# -ge 2 ] || { echo "usage: $0 DIR COMMAND [ARGUMENTS...]" >&2; exit 2; }
dir=$(realpath "$1")
shift

if [ "${VELTRANE_IN_NAMESPACE:-}" != 1 ]; then
    export VELTRANE_IN_NAMESPACE=1 VELTRANE_OUTER_UID=$(id -u) VELTRANE_OUTER_GID=$(id -g)
    if [ "$(id -u)" -eq 0 ]; then
        exec unshare --mount --propagation private "$0" "$dir" "$@"
    fi
    exec unshare --user --map-root-user --mount --propagation private "$0" "$dir" "$@"
fi
unset VELTRANE_IN_NAMESPACE

# A fresh /run that holds everything the old one did (the session bus, the user's runtime
# directory, the system bus), each bound back in place, except the daemon's directory: a real
# daemon's, whether it listens or not, gives way to DIR.
old=$(mktemp -d)
mount --rbind /run "$old"
mount -t tmpfs -o mode=755 veltrane-run /run
shopt -s dotglob nullglob
for entry in "$old"/*; do
    name=${entry##*/}
    if [ "$name" = veltrane ]; then
        continue
    elif [ -L "$entry" ]; then
        cp -P "$entry" "/run/$name"
        continue
    elif [ -d "$entry" ]; then
        mkdir -p "/run/$name" # mount itself may have made /run/mount already
    else
        [ -e "/run/$name" ] || touch "/run/$name"
    fi
    mount --rbind "$entry" "/run/$name"
done
mkdir /run/veltrane
mount --bind "$dir" /run/veltrane
umount -l "$old" && rmdir "$old"

if [ "$VELTRANE_OUTER_UID" -eq 0 ]; then
    exec "$@"
fi
exec unshare --user --map-user="$VELTRANE_OUTER_UID" --map-group="$VELTRANE_OUTER_GID" "$@"
