#!/usr/bin/env bash
# Builds the Debian package, unpacks it into a temporary root, converts an
# example with the unpacked kestro-convert (its outputs must equal the build
# tree's byte for byte), runs lintian (an error fails, warnings are listed) and
# validates the packaged AppStream metadata (an error or a warning fails).
# Needs the window build (the default configuration) and ./setup.sh's tools.
set -euo pipefail
cd "$(dirname "$0")/.."

[ -f build/build.ninja ] || cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build
if [ ! -x build/bin/kestro ]; then
  echo "package-check: build/ was configured without the window (KESTRO_APP=OFF); the package needs it" >&2
  exit 1
fi
rm -f build/kestro_*.deb
(cd build && cpack -G DEB >/dev/null)
deb=$(ls build/kestro_*.deb)
echo "== $deb"
dpkg-deb -f "$deb" Package Version Architecture Depends Recommends

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
dpkg-deb -x "$deb" "$work/root"
for f in usr/bin/kestro usr/bin/kestro-convert usr/share/kestro/Kestro.pdf \
         usr/share/applications/io.github.kestro.Kestro.desktop usr/share/metainfo/io.github.kestro.Kestro.metainfo.xml \
         usr/share/icons/hicolor/scalable/apps/kestro.svg usr/share/icons/hicolor/48x48/apps/kestro.png \
         usr/share/man/man1/kestro-convert.1.gz usr/share/man/man1/kestro.1.gz \
         usr/share/doc/kestro/copyright usr/share/doc/kestro/changelog.gz; do
  [ -s "$work/root/$f" ] || { echo "package-check: the package lacks /$f" >&2; exit 1; }
done
dpkg-deb -f "$deb" Depends | grep -q 'libqt6widgets6' || { echo "package-check: no Qt in Depends" >&2; exit 1; }

# The same examples through the packaged and the built converter, in the same
# folder, since outputs name their input's path.
convert_with() {
  rm -rf "$work/run"
  mkdir "$work/run"
  cp -p examples/genie.cnf examples/twocolumn.odf "$work/run"/
  (cd "$work/run" && "$1" --spe genie.cnf twocolumn.odf >stdout.txt 2>stderr.txt)
  mv "$work/run" "$work/$2"
}
convert_with "$work/root/usr/bin/kestro-convert" packaged
convert_with "$PWD/build/bin/kestro-convert" built
# The record of the outputs holds their write times, which differ by run.
if ! diff -r --exclude=.kestro-outputs "$work/packaged" "$work/built"; then
  echo "package-check: the packaged kestro-convert converts differently" >&2
  exit 1
fi
echo "The packaged kestro-convert wrote what the build writes:" $(ls "$work/packaged")

echo "== lintian"
status=0
lintian --fail-on error "$deb" >"$work/lintian.txt" 2>&1 || status=$?
grep -v 'running with root privileges' "$work/lintian.txt" || true
if [ "$status" -ne 0 ]; then
  echo "package-check: lintian reports errors" >&2
  exit 1
fi
echo "lintian: no errors ($(grep -c '^W:' "$work/lintian.txt" || true) warnings)"

echo "== appstreamcli validate"
appstreamcli validate --no-net --explain "$work/root/usr/share/metainfo/io.github.kestro.Kestro.metainfo.xml"
