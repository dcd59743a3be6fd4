#!/usr/bin/env bash
# Usage: packaging/macos/finish-bundle.sh APP MACDEPLOYQT
#
# Makes Veltrane.app whole, as `cmake --install` leaves it: deploys Qt inside it, gives it the
# minimum macOS its binaries really need, signs it ad hoc from the inside out, and checks it. Any
# finding fails the install:
# - a binary that links anything but the system's libraries or a file inside the bundle (a
#   Homebrew path, a plugin whose Qt module was not deployed, an @loader_path that leaves it);
# - a signature that does not verify strictly.
# Homebrew builds each bottle for the macOS it was built on, so the bundle's minimum is the highest
# any of its binaries declares (LC_BUILD_VERSION's minos), not the one this project's code asks.
set -euo pipefail
[ $# -eq 2 ] || { echo "usage: $0 APP MACDEPLOYQT" >&2; exit 2; }
app=$(cd "$1" && pwd -P)
macdeployqt=$2
contents="$app/Contents"

# Qt's frameworks and plugins, unsigned for now: the minimum goes into Info.plist before signing.
"$macdeployqt" "$app" -always-overwrite

binaries() {
    find "$contents" -type f -print0 | while IFS= read -r -d '' path; do
        if file -b "$path" | grep -q '^Mach-O'; then printf '%s\0' "$path"; fi
    done
}

# The oldest macOS a binary runs on: LC_BUILD_VERSION's minos, or the older LC_VERSION_MIN_MACOSX.
minimum_of() {
    otool -l "$1" | awk '
        /cmd LC_BUILD_VERSION/ { build = 1 } build && $1 == "minos" { print $2; exit }
        /cmd LC_VERSION_MIN_MACOSX/ { legacy = 1 } legacy && $1 == "version" { print $2; exit }'
}

findings=()
minimum=0
while IFS= read -r -d '' binary; do
    need=$(minimum_of "$binary")
    if [ -n "$need" ]; then
        minimum=$(printf '%s\n%s\n' "$minimum" "$need" | sort -V | tail -n 1)
    fi
    # Every library it loads: the system's, or a file inside the bundle.
    while read -r library; do
        case "$library" in
        /System/Library/* | /usr/lib/*) continue ;;
        @rpath/*) target="$contents/Frameworks/${library#@rpath/}" ;;
        @executable_path/*) target="$contents/MacOS/${library#@executable_path/}" ;;
        @loader_path/*) target="$(dirname "$binary")/${library#@loader_path/}" ;;
        *)
            findings+=("${binary#"$app"/} links $library, outside the bundle")
            continue
            ;;
        esac
        resolved=$(cd "$(dirname "$target")" 2>/dev/null && printf '%s/%s' "$(pwd -P)" "$(basename "$target")") || resolved=""
        if [ -z "$resolved" ] || [ ! -e "$resolved" ]; then
            findings+=("${binary#"$app"/} links $library, which the bundle lacks")
        elif [[ "$resolved" != "$contents"/* ]]; then
            findings+=("${binary#"$app"/} links $library, which leaves the bundle")
        fi
    done < <(otool -L "$binary" | tail -n +2 | awk '{ print $1 }')
done < <(binaries)

if [ ${#findings[@]} -gt 0 ]; then
    printf 'The bundle is not whole:\n' >&2
    printf '  %s\n' "${findings[@]}" >&2
    exit 1
fi
[ "$minimum" != 0 ] || { echo "No binary in $app declares a minimum macOS" >&2; exit 1; }
/usr/libexec/PlistBuddy -c "Set :LSMinimumSystemVersion $minimum" "$contents/Info.plist"
echo "Veltrane.app runs on macOS $minimum and later"

# Signed inside out, each framework and plugin before what loads it (Apple discourages --deep).
"$macdeployqt" "$app" -always-overwrite -codesign=-
codesign --verify --strict --verbose=2 "$app"
