#!/usr/bin/env bash
# Benchmark of the page: the engine as WebAssembly in the page's worker, in
# headless Chromium, against the native kestro-convert in the same run, both
# with SPE ticked.
#
# Usage: bench/web.sh [-n LINES] [-f FILES] [-r RUNS]
#
#   -n   lines of the two-column ".odf" input (default 1000000)
#   -f   number of Genie2K ".cnf" files of 16384 channels, one batch with SPE ticked (default 500)
#   -r   runs per timing; the best one counts (default 3)
#
# Needs ./setup.sh first (build/ and build-web/). Prints the times, the ratio
# web/native (target: at most 3), how soon the page is ready to convert
# (target: within 1 s) and the engine's compressed size (target: under 1 MB).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
lines=1000000
cnf_files=500
runs=3
while getopts ':n:f:r:h' opt; do
  case $opt in
    n) lines=$OPTARG ;;
    f) cnf_files=$OPTARG ;;
    r) runs=$OPTARG ;;
    *) sed -n '6,11s/^# \{0,1\}//p' "$0"; exit 2 ;;
  esac
done
native="$root/build/bin/kestro-convert"
[ -x "$native" ] && [ -f "$root/build-web/kestro-web.wasm" ] || { echo "web.sh: run ./setup.sh first" >&2; exit 2; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/odf" "$work/cnf"

awk -v n="$lines" 'BEGIN { x = 12345; for (i = 0; i < n; i++) { x = (x * 16807) % 2147483647; printf " %d  %d \r\n", i, x % 100000 } }' \
  >"$work/odf/two-column.odf"
# The Genie2K reader's needs: the channel signature, the time record, the counts last.
python3 - "$work/cnf" "$cnf_files" <<'PY'
import random, struct, sys
folder, count = sys.argv[1], int(sys.argv[2])
channels = 16384
header = bytearray(1024)
header[0x100:0x104] = b'\xd0\x01' + struct.pack('<h', channels)
header[0x200:0x219] = b'\x01' + struct.pack('<Qqq', 58557 * 86400 * 10**7, ~(3000 * 10**7), ~(2950 * 10**7))
rng = random.Random(54321)
spectra = [struct.pack('<%di' % channels, *(rng.randrange(100000) for _ in range(channels))) for _ in range(4)]
for i in range(count):
    with open('%s/s%05d.cnf' % (folder, i), 'wb') as f:
        f.write(header + spectra[i % len(spectra)])
PY

# The best of RUNS native runs of "kestro-convert ARGS" in DIR, in ms.
native_ms() {
  local dir=$1 best=
  shift
  for _ in $(seq "$runs"); do
    local t0 t1
    t0=$(date +%s%N)
    (cd "$dir" && "$native" "$@" >/dev/null)
    t1=$(date +%s%N)
    local ms=$(((t1 - t0) / 1000000))
    [ -z "$best" ] || [ "$ms" -lt "$best" ] && best=$ms
  done
  echo "$best"
}

report() {
  local what=$1 native=$2 web=$3
  awk -v w="$what" -v n="$native" -v b="$web" 'BEGIN { printf "%-34s native %6d ms   page %6d ms   %.2f x\n", w, n, b, b / (n > 0 ? n : 1) }'
}

odf_native=$(native_ms "$work/odf" --spe two-column.odf)
read -r _ odf_ready _ odf_web < <(node "$root/web/bench.mjs" "$runs" All SPE "$work/odf/two-column.odf")
cnf_native=$(native_ms "$work/cnf" --spe "$work"/cnf/*.cnf)
read -r _ cnf_ready _ cnf_web < <(node "$root/web/bench.mjs" "$runs" All SPE "$work"/cnf/*.cnf)

report "two-column .odf, $lines lines, SPE" "$odf_native" "$odf_web"
report "$cnf_files .cnf files, SPE" "$cnf_native" "$cnf_web"
ready=$((odf_ready < cnf_ready ? odf_ready : cnf_ready))
echo "page ready to convert: $ready ms after loading"
size=$(cat "$root"/build-web/kestro-web.wasm "$root"/build-web/kestro-web.js "$root"/build-web/worker.js | gzip -9 | wc -c)
echo "engine compressed (gzip -9: wasm + its script + the worker): $size bytes"
