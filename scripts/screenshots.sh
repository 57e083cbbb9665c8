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
# A Genie2K file cut short, for the run log of a run that stops on it.
mkdir -p "$work/damaged"
head -c 20000 tests/samples/cnf/SMP00011.CNF > "$work/damaged/cut-short.cnf"
mkdir -p docs/images
# Settings of their own, so the pictures never depend on the user's.
# Started in the work folder, so the folder tree opens nowhere else.
repo=$(pwd)
(cd "$work" && XDG_CONFIG_HOME="$work/settings" xvfb-run -a -s "-screen 0 1400x1000x24" \
  "$repo/build/bin/kestro-screenshots" "$repo/docs/images" "$work" "$work/damaged/cut-short.cnf")
ls -l docs/images
