#!/usr/bin/env bash
# Takes the README's screenshots of the window and of a plot under Xvfb, from
# the bundled examples. Run ./setup.sh first.
set -euo pipefail
cd "$(dirname "$0")/.."
for p in xvfb xauth; do
  dpkg -s "$p" >/dev/null 2>&1 || missing="${missing:-} $p"
done
if [ -n "${missing:-}" ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get install -y -qq --no-install-recommends $missing
fi
cmake --build build --target kestro-screenshots
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
find examples -maxdepth 1 -type f ! -name '*.cpp' -exec cp {} "$work"/ \;
mkdir -p docs/images
# Settings of their own, so the pictures never depend on the user's.
XDG_CONFIG_HOME="$work/settings" xvfb-run -a -s "-screen 0 1400x1000x24" build/bin/kestro-screenshots docs/images "$work"
ls -l docs/images
