#!/usr/bin/env bash
# The whole suite at both ends of what users run: on this machine (Debian 12: the oldest Qt the app
# supports), then inside a Debian 13 root (today's Qt, simdjson, GCC and desktops).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

SECONDS=0
"$root/scripts/suite.sh"
echo "This machine's leg took $SECONDS s."

SECONDS=0
"$root/scripts/test-debian13.sh"
echo "The Debian 13 leg took $SECONDS s."
