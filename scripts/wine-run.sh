#!/usr/bin/env bash
# Runs a Windows program of the cross build (build-win/) under wine, quietly
# and in a wine folder of the build's own, never the user's ~/.wine:
#   scripts/wine-run.sh build-win/bin/kestro-convert.exe [ARGUMENTS...]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
export WINEPREFIX=${WINEPREFIX:-$root/build-win/wine}
export WINEDEBUG=${WINEDEBUG:--all}
# Made once, before the first program runs: wine speaks of it on stderr.
[ -f "$WINEPREFIX/system.reg" ] || wineboot --init >/dev/null 2>&1
exec wine "$@"
