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
. "$(dirname "$0")/lib.sh"

lines=1000000
cnf_files=500
runs=3
while getopts ':n:f:r:h' opt; do
  case $opt in
    n) lines=$OPTARG ;;
    f) cnf_files=$OPTARG ;;
    r) runs=$OPTARG ;;
    *) bench_usage 6,11; exit 2 ;;
  esac
done
bench_need_tools
bench_converter
[ -f "$bench_root/build-web/kestro-web.wasm" ] || bench_fail "run ./setup.sh first (build-web/)"
bench_workdir web
mkdir -p "$work/odf" "$work/cnf"

awk -v n="$lines" 'BEGIN { x = 12345; for (i = 0; i < n; i++) { x = (x * 16807) % 2147483647; printf " %d  %d \r\n", i, x % 100000 } }' \
  >"$work/odf/two-column.odf"
python3 "$bench_root/scripts/make-cnf.py" "$work/cnf" "$cnf_files"

# The best of RUNS native runs of "kestro-convert ARGS" in DIR, in ms.
native_ms() {
  bench_best "$runs" "$@"
  echo $((best_wall_us / 1000))
}

report() {
  local what=$1 native=$2 web=$3
  awk -v w="$what" -v n="$native" -v b="$web" 'BEGIN { printf "%-34s native %6d ms   page %6d ms   %.2f x\n", w, n, b, b / (n > 0 ? n : 1) }'
}

odf_native=$(native_ms "$work/odf" "$conv" --spe two-column.odf)
read -r _ odf_ready _ odf_web < <(node "$bench_root/web/bench.mjs" "$runs" All SPE "$work/odf/two-column.odf")
cnf_native=$(native_ms "$work/cnf" "$conv" --spe "$work"/cnf/*.cnf)
read -r _ cnf_ready _ cnf_web < <(node "$bench_root/web/bench.mjs" "$runs" All SPE "$work"/cnf/*.cnf)

report "two-column .odf, $lines lines, SPE" "$odf_native" "$odf_web"
report "$cnf_files .cnf files, SPE" "$cnf_native" "$cnf_web"
ready=$((odf_ready < cnf_ready ? odf_ready : cnf_ready))
echo "page ready to convert: $ready ms after loading"
size=$(cat "$bench_root"/build-web/kestro-web.wasm "$bench_root"/build-web/kestro-web.js "$bench_root"/build-web/worker.js | gzip -9 | wc -c)
echo "engine compressed (gzip -9: wasm + its script + the worker): $size bytes"
