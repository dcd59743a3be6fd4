#!/usr/bin/env bash
# Installs the Debian packages the build, tests, fuzzing and benchmarks need, only those missing.
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config
    qt6-base-dev qt6-base-dev-tools qt6-qpa-plugins libgl-dev
    libsimdjson-dev libbenchmark-dev
    clang libclang-rt-dev libc++-dev libc++abi-dev
    gnustep-make libgnustep-gui-dev libblocksruntime-dev
    dbus dbus-bin xvfb xauth x11-utils fonts-dejavu-core
    xfce4-panel xfwm4 xfconf xdotool imagemagick weston qt6-wayland
    at-spi2-core python3-pyatspi python3-dbus strace
    librsvg2-bin lintian desktop-file-utils appstream dpkg-dev file
)

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
