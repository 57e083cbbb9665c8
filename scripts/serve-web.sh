#!/usr/bin/env bash
# Serves build-web/ (the page and its engine) on this computer, with the
# headers its worker needs; open the address it prints. Ctrl-C stops it.
#   scripts/serve-web.sh [PORT]
set -euo pipefail
cd "$(dirname "$0")/.."
[ -f build-web/index.html ] || { echo "build-web/ has no page yet: run ./setup.sh first" >&2; exit 1; }
exec node web/serve.mjs build-web "${1:-8021}"
