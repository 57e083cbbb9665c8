#!/usr/bin/env bash
# Installs what is missing (Debian packages), builds Kestro into build/, its
# web page into build-web/ and the Windows kestro-convert.exe into build-win/,
# and converts the bundled example files into a fresh output folder.
set -euo pipefail
cd "$(dirname "$0")"

packages=(cmake ninja-build g++ googletest libgtest-dev clang libclang-rt-14-dev time
          qt6-base-dev qt6-charts-dev libqt6opengl6-dev libdcmtk-dev
          dpkg-dev file lintian appstream   # these four build and check the Debian package
          emscripten nodejs npm chromium    # the web build, its page's packages and browser tests
          g++-mingw-w64-x86-64-posix wine)  # the Windows cross build, its tests run under wine
missing=()
for p in "${packages[@]}"; do
  case $p in  # a node from elsewhere (with its own npm) serves as well as Debian's
    nodejs) command -v node >/dev/null && continue ;;
    npm) command -v npm >/dev/null && continue ;;
  esac
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  echo "Installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build

# The same engine as WebAssembly, with the page, into build-web/.
(cd web && npm ci --no-audit --no-fund --loglevel=error)
[ -f build-web/build.ninja ] || NODE_PATH=/usr/share/nodejs emcmake cmake -S . -B build-web -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
NODE_PATH=/usr/share/nodejs cmake --build build-web

# The engine and kestro-convert for Windows, with their tests, into build-win/.
[ -f build-win/build.ninja ] || cmake -S . -B build-win -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake -DKESTRO_APP=OFF >/dev/null
cmake --build build-win

out=build/examples-out
rm -rf "$out"
mkdir -p "$out"
find examples -maxdepth 1 -type f ! -name '*.cpp' -exec cp {} "$out"/ \;
before=$(ls "$out")
convert="$PWD/build/bin/kestro-convert"
echo "Converting the examples in $out with SPE ticked:"
(cd "$out" && "$convert" --spe iaea.spe ascii.asc rutherford.rbs simulated.sim block.dat twocolumn.odf \
   genie.cnf ortec.chn spectech.spu canberra.bin bruker.spx generic.xml fastcomtec.mpa omdaq._ events.evt)
echo "The CSV table, which ends its run once its columns are written:"
(cd "$out" && "$convert" table.csv)
echo "The S-100 and the 35/40 .mca dumps, each with its own format choice:"
(cd "$out" && "$convert" --format "Canberra S-100 *.mca" s100.mca)
(cd "$out" && "$convert" --format "Canberra 35/40 *.mca" canberra3540.mca)
echo "The diffraction scans (one .odf per RAW range; the RD scan also gives its header listing):"
(cd "$out" && "$convert" brukeraxs.raw panalytical.rd)
echo "The DICOM image (its header listing, private tag named by DICOM.tags, and the histogram of its values):"
(cd "$out" && "$convert" image.dcm)
echo "The JCAMP-DX spectra (AFFN and ASDF; each gives an .odf and a .hdrx), the Shimadzu photometric file and the TA run:"
(cd "$out" && "$convert" jcamp-affn.jdx jcamp-asdf.jdx)
(cd "$out" && "$convert" --format "Shimadzu *.pho" shimadzu.pho)
(cd "$out" && "$convert" --format "Old TA Instr TGA/DSC" tainstruments.001)
echo "The infrared and UV spectra (each also gives its .hdr listing):"
(cd "$out" && "$convert" thermo.spa galactic.spc spectrum.gaml)
echo "Written:"
for f in $(ls "$out"); do
  grep -qx "$f" <<<"$before" || printf '  %s (%s bytes)\n' "$out/$f" "$(stat -c %s "$out/$f")"
done
