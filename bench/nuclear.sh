#!/usr/bin/env bash
# Benchmark of kestro-convert on nuclear spectrum inputs: one large Canberra
# S-100 ".mca" dump, and a batch of Genie2K ".cnf" files converted in one run.
#
# Usage: bench/nuclear.sh [-m MB] [-f FILES] [-r RUNS] [-p PART] [CONVERTER [WORKDIR]]
#
#   CONVERTER  the kestro-convert to measure (default: build/bin/kestro-convert
#              under the repository root)
#   WORKDIR    where the inputs and outputs go; created if missing and left in
#              place (default: a fresh temporary folder, removed afterwards)
#   -m         size of the S-100 input in MB (2^20 bytes; default 50)
#   -f         number of CNF files of 16384 channels (default 2000)
#   -r         runs per timing; the best one counts (default 3)
#   -p         s100, cnf or all (default all)
#
# S-100: "kestro-convert --format 6 big.mca" (a ".dat" and an ".odf").
# CNF:   "kestro-convert --spe *.cnf" (a ".spe" and an ".odf" per file).
# Each conversion is set against an I/O floor taken in the same run, with the
# page cache warm: reading every input and writing files of the same sizes as
# the outputs. Target: conversion time at most 4 x the floor.
# Exit status: 0 every target met, 1 a target missed, 2 usage or setup error
# or a failed conversion, 3 a part could not run because the converter does
# not offer that format yet.
set -euo pipefail
# shellcheck source=bench/lib.sh
. "$(dirname "$0")/lib.sh"

mb=50
cnf_files=2000
runs=3
part=all
while getopts ':m:f:r:p:h' opt; do
  case $opt in
    m) mb=$OPTARG ;;
    f) cnf_files=$OPTARG ;;
    r) runs=$OPTARG ;;
    p) part=$OPTARG ;;
    h) bench_usage 4,14; exit 0 ;;
    *) bench_usage 4,14 >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -le 2 ] || { bench_usage 4,14 >&2; exit 2; }
[[ $mb =~ ^[1-9][0-9]*$ ]] || bench_fail "-m needs a whole number of at least 1"
[[ $cnf_files =~ ^[1-9][0-9]*$ ]] || bench_fail "-f needs a whole number of at least 1"
[[ $runs =~ ^[1-9][0-9]*$ ]] || bench_fail "-r needs a whole number of at least 1"
[[ $part =~ ^(s100|cnf|all)$ ]] || bench_fail "-p takes s100, cnf or all"
bench_need_tools
command -v python3 >/dev/null || bench_fail "python3 is needed to generate the inputs"
bench_converter "${1:-}"
bench_workdir nuclear "${2:-}"

# ---- inputs ----

# S-100: times of 300 s and 310 s (hundredths) at 48 and 52, counts from 128.
# The counts repeat a block of pseudo-random values, so any size is quick.
make_s100() {
  python3 - "$1" "$2" <<'EOF'
import random, struct, sys
path, size = sys.argv[1], int(sys.argv[2]) << 20
header = bytearray(128)
struct.pack_into('<ii', header, 48, 30000, 31000)
rng = random.Random(12345)
chunk = struct.pack('<16384i', *(rng.randrange(100000) for _ in range(16384)))
with open(path, 'wb') as f:
    f.write(header)
    left = size - len(header)
    while left > 0:
        piece = chunk[:left]
        f.write(piece)
        left -= len(piece)
EOF
}

# CNF: see scripts/make-cnf.py.
make_cnf() {
  python3 "$bench_root/scripts/make-cnf.py" "$1" "$2"
}

# ---- measuring ----

# Runs the converter in DIR on the given arguments (bench_timed). A format
# the converter does not offer yet sets unavailable=1 instead.
#   convert DIR ARGS...
convert() {
  local dir=$1
  shift
  bench_tolerant=1 bench_timed "$dir" "$conv" "$@"
  unavailable=0
  if grep -q 'not available yet' "$work/.stderr"; then
    unavailable=1
    return
  fi
  if [ "$run_rc" -ne 0 ] || [ -s "$work/.stderr" ]; then
    echo "$bench_name: kestro-convert failed in $dir (exit $run_rc):" >&2
    cat "$work/.stdout" "$work/.stderr" >&2
    exit 2
  fi
}

failed=0
missing=0

# One row of the table from the best times and the peak memory.
#   add_row NAME IN_BYTES OUT_BYTES CONV_US FLOOR_US PEAK_KB FILES
add_row() {
  local row
  row=$(awk -v name="$1" -v ib="$2" -v ob="$3" -v c="$4" -v f="$5" -v kb="$6" -v n="$7" 'BEGIN {
    mb = 1048576
    ratio = c / f
    printf "%-12s %6d %9.2f %9.2f %9.3f %9.3f %7.2f %9.1f %8.2f %-4s\n", name, n, ib / mb, ob / mb,
      c / 1e6, f / 1e6, ratio, n / (c / 1e6), kb / 1024, ratio <= 4 ? "PASS" : "FAIL"
  }')
  rows+=("$row")
  [[ $row == *FAIL* ]] && failed=1
  return 0
}

# The converter's own words for a format it does not offer yet.
not_available_row() {
  local said
  said=$(grep -o 'Error [0-9]* .*not available yet' "$work/.stderr" | head -n 1)
  echo "$bench_name: $1 not measured: $said" >&2
  rows+=("$(printf '%-12s %s' "$1" "not measured: $said")")
  missing=1
}

# Converts the inputs in DIR RUNS times, each time from a folder holding only
# the inputs, and adds a row.
#   measure NAME DIR INPUT_GLOB OUTPUT_GLOBS CHECK ARGS...
measure() {
  local name=$1 dir=$2 in_glob=$3 out_globs=$4 check=$5
  shift 5
  local best_conv='' best_floor='' peak_kb=0 in_list=$work/.inputs size_list=$work/.sizes r
  bench_inputs "$dir" "$in_glob" "$in_list"
  for ((r = 1; r <= runs; r++)); do
    echo "  $name: run $r of $runs" >&2
    # shellcheck disable=SC2086
    (cd "$dir" && for p in $out_globs; do find . -maxdepth 1 -name "$p" -delete; done)
    convert "$dir" "$@"
    if [ "$unavailable" = 1 ]; then
      not_available_row "$name"
      return
    fi
    "$check" "$dir"
    # shellcheck disable=SC2086
    bench_sizes "$dir" $out_globs >"$size_list"
    bench_floor "$in_list" "$size_list" "$work/floor"
    bench_min best_conv "$run_us"
    bench_min best_floor "$floor_us"
    bench_max peak_kb "$run_kb"
  done
  local out_bytes
  out_bytes=$(bench_sum "$size_list")
  add_row "$name" "$in_bytes" "$out_bytes" "$best_conv" "$best_floor" "$peak_kb" "$in_files"
}

# Expected outputs, so a fast but wrong run is not reported as a result.
# (Called through measure's CHECK argument.)
# shellcheck disable=SC2317
check_s100() {
  local channels lines
  channels=$((((mb << 20) - 128) / 4))
  lines=$(wc -l <"$1/big.odf")
  [ "$lines" -eq "$channels" ] || bench_fail "big.odf has $lines lines, expected $channels"
  head -c 16 "$1/big.dat" | grep -qx '     300     310' || bench_fail "big.dat does not start with the times"
}

# shellcheck disable=SC2317
check_cnf() {
  local spe odf
  spe=$(find "$1" -maxdepth 1 -name '*.spe' | wc -l)
  odf=$(find "$1" -maxdepth 1 -name '*.odf' | wc -l)
  if [ "$spe" -ne "$cnf_files" ] || [ "$odf" -ne "$cnf_files" ]; then
    bench_fail "$spe .spe and $odf .odf files written, expected $cnf_files of each"
  fi
  tail -n 1 "$work/.stdout" | grep -qx "Finished $cnf_files files" || bench_fail "the batch did not finish"
}

if [ "$part" != cnf ]; then
  echo "Generating a $mb MB S-100 dump in $work ..." >&2
  mkdir -p "$work/s100"
  make_s100 "$work/s100/big.mca" "$mb"
  measure S-100 "$work/s100" 'big.mca' '*.dat *.odf' check_s100 --format 6 big.mca
fi

if [ "$part" != s100 ]; then
  echo "Generating $cnf_files CNF files of 16384 channels in $work ..." >&2
  rm -rf "$work/cnf"
  mkdir -p "$work/cnf"
  make_cnf "$work/cnf" "$cnf_files"
  names=()
  for ((i = 0; i < cnf_files; i++)); do names+=("$(printf 's%05d.cnf' "$i")"); done
  measure CNF "$work/cnf" '*.cnf' '*.spe *.odf' check_cnf --spe "${names[@]}"
fi

echo
bench_table '%-12s %6s %9s %9s %9s %9s %7s %9s %8s %-4s\n' \
  input files "in MB" "out MB" "convert s" "floor s" ratio "files/s" "peak MB" "ratio<=4"
echo
echo "Times: best of $runs runs; peak MB: the highest of them (maximum resident set)."
echo "Floor: reading every input and writing files of the outputs' sizes, page cache warm."
echo "MB = 2^20 bytes. Converter: $conv"
[ $failed = 0 ] || exit 1
[ $missing = 0 ] || exit 3
exit 0
