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

mb=50
cnf_files=2000
runs=3
part=all
usage() { sed -n '4,14s/^# \{0,1\}//p' "$0"; }
while getopts ':m:f:r:p:h' opt; do
  case $opt in
    m) mb=$OPTARG ;;
    f) cnf_files=$OPTARG ;;
    r) runs=$OPTARG ;;
    p) part=$OPTARG ;;
    h) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -le 2 ] || { usage >&2; exit 2; }
[[ $mb =~ ^[1-9][0-9]*$ ]] || { echo "nuclear.sh: -m needs a whole number of at least 1" >&2; exit 2; }
[[ $cnf_files =~ ^[1-9][0-9]*$ ]] || { echo "nuclear.sh: -f needs a whole number of at least 1" >&2; exit 2; }
[[ $runs =~ ^[1-9][0-9]*$ ]] || { echo "nuclear.sh: -r needs a whole number of at least 1" >&2; exit 2; }
[[ $part =~ ^(s100|cnf|all)$ ]] || { echo "nuclear.sh: -p takes s100, cnf or all" >&2; exit 2; }

root=$(cd "$(dirname "$0")/.." && pwd)
conv=${1:-$root/build/bin/kestro-convert}
[ -x "$conv" ] || { echo "nuclear.sh: no executable converter at $conv (build it first)" >&2; exit 2; }
conv=$(cd "$(dirname "$conv")" && pwd)/$(basename "$conv")
[ -n "${EPOCHREALTIME:-}" ] || { echo "nuclear.sh: bash 5 or later is needed" >&2; exit 2; }
[ -x /usr/bin/time ] || { echo "nuclear.sh: /usr/bin/time is needed (Debian package 'time')" >&2; exit 2; }
command -v python3 >/dev/null || { echo "nuclear.sh: python3 is needed to generate the inputs" >&2; exit 2; }

if [ $# -ge 2 ]; then
  work=$2
  mkdir -p "$work"
else
  work=$(mktemp -d "${TMPDIR:-/tmp}/kestro-nuclear.XXXXXX")
  trap 'rm -rf "$work"' EXIT
  trap 'exit 130' INT TERM
fi
work=$(cd "$work" && pwd)

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
  python3 "$root/scripts/make-cnf.py" "$1" "$2"
}

# ---- measuring ----

# Runs the converter in DIR on the given arguments; sets conv_us and conv_kb.
# A format the converter does not offer yet sets unavailable=1 instead.
#   convert DIR ARGS...
convert() {
  local dir=$1 t0 t1 rc=0
  shift
  t0=${EPOCHREALTIME//[!0-9]/}
  (cd "$dir" && /usr/bin/time -v -o "$work/.time" "$conv" "$@" >"$work/.stdout" 2>"$work/.stderr") || rc=$?
  t1=${EPOCHREALTIME//[!0-9]/}
  unavailable=0
  if grep -q 'not available yet' "$work/.stderr"; then
    unavailable=1
    return
  fi
  if [ $rc -ne 0 ] || [ -s "$work/.stderr" ]; then
    echo "nuclear.sh: kestro-convert failed in $dir (exit $rc):" >&2
    cat "$work/.stdout" "$work/.stderr" >&2
    exit 2
  fi
  conv_us=$((t1 - t0))
  conv_kb=$(awk -F': *' '/Maximum resident set size/ { print $2 }' "$work/.time")
}

# The least any conversion must do: read every input and write files of the
# output sizes, timed inside one process. Sets floor_us.
#   floor_io INPUT_LIST SIZE_LIST DIR
floor_io() {
  rm -rf "$3"
  mkdir -p "$3"
  floor_us=$(python3 - "$1" "$2" "$3" <<'EOF'
import sys, time
inputs = open(sys.argv[1]).read().split('\n')[:-1]
sizes = [int(s) for s in open(sys.argv[2]).read().split()]
folder = sys.argv[3]
buf = bytearray(1 << 20)
zeros = bytes(1 << 20)
t0 = time.perf_counter()
for path in inputs:
    with open(path, 'rb', buffering=0) as f:
        while f.readinto(buf):
            pass
for i, size in enumerate(sizes):
    with open('%s/%d' % (folder, i), 'wb', buffering=0) as f:
        while size > 0:
            size -= f.write(zeros[:min(size, len(zeros))])
print(int((time.perf_counter() - t0) * 1e6))
EOF
)
  rm -rf "$3"
}

# Output sizes, one a line, of the files in DIR matching the patterns.
output_sizes() {
  local dir=$1
  shift
  (cd "$dir" && for p in "$@"; do find . -maxdepth 1 -type f -name "$p" -printf '%s\n'; done)
}

rows=()
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
  echo "nuclear.sh: $1 not measured: $said" >&2
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
  find "$dir" -maxdepth 1 -type f -name "$in_glob" | sort >"$in_list"
  local files in_bytes
  files=$(wc -l <"$in_list")
  in_bytes=$(xargs -d '\n' stat -c %s <"$in_list" | awk '{ s += $1 } END { print s + 0 }')
  xargs -d '\n' cat <"$in_list" >/dev/null  # warm the page cache before any timing
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
    output_sizes "$dir" $out_globs >"$size_list"
    floor_io "$in_list" "$size_list" "$work/floor"
    [ -z "$best_conv" ] || [ "$conv_us" -lt "$best_conv" ] && best_conv=$conv_us
    [ -z "$best_floor" ] || [ "$floor_us" -lt "$best_floor" ] && best_floor=$floor_us
    [ "$conv_kb" -gt "$peak_kb" ] && peak_kb=$conv_kb
  done
  local out_bytes
  out_bytes=$(awk '{ s += $1 } END { print s + 0 }' "$size_list")
  add_row "$name" "$in_bytes" "$out_bytes" "$best_conv" "$best_floor" "$peak_kb" "$files"
}

# Expected outputs, so a fast but wrong run is not reported as a result.
# (Called through measure's CHECK argument.)
# shellcheck disable=SC2317
check_s100() {
  local channels lines
  channels=$((((mb << 20) - 128) / 4))
  lines=$(wc -l <"$1/big.odf")
  [ "$lines" -eq "$channels" ] || { echo "nuclear.sh: big.odf has $lines lines, expected $channels" >&2; exit 2; }
  head -c 16 "$1/big.dat" | grep -qx '     300     310' || { echo "nuclear.sh: big.dat does not start with the times" >&2; exit 2; }
}

# shellcheck disable=SC2317
check_cnf() {
  local spe odf
  spe=$(find "$1" -maxdepth 1 -name '*.spe' | wc -l)
  odf=$(find "$1" -maxdepth 1 -name '*.odf' | wc -l)
  if [ "$spe" -ne "$cnf_files" ] || [ "$odf" -ne "$cnf_files" ]; then
    echo "nuclear.sh: $spe .spe and $odf .odf files written, expected $cnf_files of each" >&2
    exit 2
  fi
  tail -n 1 "$work/.stdout" | grep -qx "Finished $cnf_files files" || { echo "nuclear.sh: the batch did not finish" >&2; exit 2; }
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
printf '%-12s %6s %9s %9s %9s %9s %7s %9s %8s %-4s\n' \
  input files "in MB" "out MB" "convert s" "floor s" ratio "files/s" "peak MB" "ratio<=4"
printf '%s\n' "${rows[@]}"
echo
echo "Times: best of $runs runs; peak MB: the highest of them (maximum resident set)."
echo "Floor: reading every input and writing files of the outputs' sizes, page cache warm."
echo "MB = 2^20 bytes. Converter: $conv"
[ $failed = 0 ] || exit 1
[ $missing = 0 ] || exit 3
exit 0
