#!/usr/bin/env bash
# Runs the whole suite again inside a Debian 13 root: today's Qt, simdjson, GCC and desktops, where
# this machine may have older ones. The root is made with debootstrap from the package registry and
# kept between runs outside the tree; it is made again when absent, left half-made, or older than a
# week. The tree is copied in, so the two legs' build folders stay apart.
# Usage: scripts/test-debian13.sh [command inside the copied tree]   (default: scripts/suite.sh)
# VELTRANE_DEBIAN13_ROOT chooses where the root is kept.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
chroot_dir=${VELTRANE_DEBIAN13_ROOT:-/var/cache/veltrane-tray/debian13-root}
stamp="$chroot_dir/.veltrane-root-made"
inner=("${@:-scripts/suite.sh}")

if [ "$(id -u)" -ne 0 ]; then
    exec sudo --preserve-env=VELTRANE_DEBIAN13_ROOT "$0" "$@"
fi

if ! command -v debootstrap >/dev/null; then
    apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends debootstrap
fi

if [ ! -f "$stamp" ] || [ -n "$(find "$stamp" -mtime +7)" ]; then
    echo "Making the Debian 13 root in $chroot_dir (a few minutes)"
    rm -rf --one-file-system "$chroot_dir"
    mkdir -p "$chroot_dir"
    debootstrap --variant=minbase --include=sudo,ca-certificates trixie "$chroot_dir" \
        http://deb.debian.org/debian >"$chroot_dir.log" 2>&1 || { tail -20 "$chroot_dir.log"; exit 1; }
    touch "$stamp"
fi
cp /etc/resolv.conf "$chroot_dir/etc/resolv.conf"

# A fresh copy of the tree, without this machine's build folders.
rm -rf --one-file-system "$chroot_dir/src"
mkdir -p "$chroot_dir/src"
tar -C "$root" --exclude='./build*' --exclude=./fuzz-artifacts --exclude=./.cache -cf - . |
    tar -C "$chroot_dir/src" -xf -

# The mounts live in a namespace of their own and go with it. The root is a mount point itself, as
# the tests' own private namespaces need.
status=0
unshare --mount --propagation private -- bash -euo pipefail -c '
    dir=$1; shift
    mount --bind "$dir" "$dir"
    mount -t proc proc "$dir/proc"
    mount --rbind /sys "$dir/sys"
    mount --rbind /dev "$dir/dev"
    mount -t tmpfs tmpfs "$dir/tmp"
    exec chroot "$dir" /usr/bin/env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        HOME=/root LANG=C.UTF-8 ${CI:+CI=$CI} bash -c "cd /src && exec \"\$@\"" inner "$@"
' outer "$chroot_dir" "${inner[@]}" || status=$?

# A fuzz finding and its log come out beside this tree's own.
if [ -n "$(ls -A "$chroot_dir/src/fuzz-artifacts" 2>/dev/null)" ]; then
    mkdir -p "$root/fuzz-artifacts/debian13"
    cp -a "$chroot_dir/src/fuzz-artifacts/." "$root/fuzz-artifacts/debian13/"
    echo "Fuzz artifacts of the Debian 13 leg: fuzz-artifacts/debian13/"
fi
exit "$status"
