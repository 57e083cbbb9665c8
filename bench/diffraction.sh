#!/usr/bin/env bash
# Benchmark of kestro-convert on diffraction scans: a batch of Bruker/AXS
# RAW1.01 files (one range each) and a batch of PANalytical RD files, each
# batch converted in one kestro-convert run.
#
# Usage: bench/diffraction.sh [-f FILES] [-n STEPS] [-r RUNS] [CONVERTER [WORKDIR]]
#
#   CONVERTER  the kestro-convert to measure (default: build/bin/kestro-convert
#              under the repository root)
#   WORKDIR    where the inputs and outputs go; created if missing and left in
#              place (default: a fresh temporary folder, removed afterwards)
#   -f         files per batch (default 2000)
#   -n         steps (points) per scan (default 4000)
#   -r         runs per timing; the best one counts (default 3)
#
# Each batch is timed against the I/O floor taken in the same run (reading
# every input and writing files of the outputs' sizes, page cache warm) and
# against xyconv (Debian package libxy-bin, installed when missing) in its
# batch mode on the same files: "xyconv -t bruker_raw -m DIR ..." and
# "xyconv -t philips_rd -m DIR ...". Targets: conversion at most 3 x the
# floor, and at least 5 x faster than xyconv, both by wall-clock time; the
# CPU times (user + sys) are shown beside, as wall clocks are noisy on a busy
# machine.
# Exit status: 0 every target met, 1 a target missed, 2 usage or setup error
# or a failed conversion.
set -euo pipefail
# shellcheck source=bench/lib.sh
. "$(dirname "$0")/lib.sh"

files=2000
steps=4000
runs=3
while getopts ':f:n:r:h' opt; do
  case $opt in
    f) files=$OPTARG ;;
    n) steps=$OPTARG ;;
    r) runs=$OPTARG ;;
    h) bench_usage 6,15; exit 0 ;;
    *) bench_usage 6,15 >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -le 2 ] || { bench_usage 6,15 >&2; exit 2; }
for v in "$files" "$steps" "$runs"; do
  [[ $v =~ ^[1-9][0-9]*$ ]] || bench_fail "-f, -n and -r need whole numbers of at least 1"
done
[ "$steps" -le 32000 ] || bench_fail "-n is at most 32000"
bench_need_tools
command -v python3 >/dev/null || bench_fail "python3 is needed to generate the inputs"
bench_converter "${1:-}"
bench_need_xyconv
bench_workdir diffraction "${2:-}"

# ---- inputs ----

# RAW1.01: signature, range count 1 at 12, the range header (304 bytes) at 712 with the step count
# at 716, start 2-theta at 728 and step at 888, no supplement, then the
# intensities as Singles. RD: wavelengths at 94, step, start and stop at 214,
# then 16-bit intensities from 250. Four different scans, repeated.
make_inputs() {
  python3 - "$1" "$2" "$3" <<'EOF'
import random, struct, sys
folder, count, steps = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
rng = random.Random(2026)
scans = [[rng.randrange(30000) for _ in range(steps)] for _ in range(4)]
raw = bytearray(712 + 304)
raw[0:7] = b'RAW1.01'
struct.pack_into('<i', raw, 12, 1)  # one range, for readers that count them
struct.pack_into('<ii', raw, 712, 304, steps)
struct.pack_into('<d', raw, 728, 10.0)
struct.pack_into('<d', raw, 888, 0.02)
rd = bytearray(250)
rd[0:4] = b'V3RD'
struct.pack_into('<ddd', rd, 94, 1.5406, 1.54439, 0.5)
struct.pack_into('<ddd', rd, 214, 0.02, 10.0, 10.0 + 0.02 * (steps - 1))
raw_data = [struct.pack('<%df' % steps, *s) for s in scans]
rd_data = [struct.pack('<%dh' % steps, *s) for s in scans]
for i in range(count):
    with open('%s/raw/s%05d.raw' % (folder, i), 'wb') as f:
        f.write(raw + raw_data[i % 4])
    with open('%s/rd/s%05d.rd' % (folder, i), 'wb') as f:
        f.write(rd + rd_data[i % 4])
EOF
}

# ---- measuring ----

failed=0

# One batch: RUNS conversions by kestro-convert and by xyconv, the floor
# after each; the best times count.
#   measure NAME DIR EXT XYTYPE OUT_GLOBS
measure() {
  local name=$1 dir=$2 ext=$3 xytype=$4 out_globs=$5 r
  local best_conv='' best_floor='' best_xy='' cpu_conv='' cpu_xy='' peak_kb=0 in_list=$work/.inputs size_list=$work/.sizes
  bench_inputs "$dir" "*.$ext" "$in_list"
  mapfile -t names < <(cd "$dir" && ls -- *."$ext")
  for ((r = 1; r <= runs; r++)); do
    echo "  $name: run $r of $runs" >&2
    # shellcheck disable=SC2086
    (cd "$dir" && for p in $out_globs; do find . -maxdepth 1 -name "$p" -delete; done)
    bench_timed "$dir" "$conv" "${names[@]}"
    tail -n 1 "$work/.stdout" | grep -qx "Finished $files files" || bench_fail "the $name batch did not finish"
    local odf
    odf=$(find "$dir" -maxdepth 1 -name '*.odf' | wc -l)
    [ "$odf" -eq "$files" ] || bench_fail "$odf .odf files written, expected $files"
    [ "$(wc -l <"$dir/s00000.odf")" -eq "$steps" ] || bench_fail "s00000.odf does not hold $steps lines"
    bench_min best_conv "$run_us"
    bench_min cpu_conv "$cpu_us"
    bench_max peak_kb "$run_kb"
    # shellcheck disable=SC2086
    bench_sizes "$dir" $out_globs >"$size_list"
    bench_floor "$in_list" "$size_list" "$work/floor"
    bench_min best_floor "$floor_us"

    rm -rf "$work/xy"
    mkdir -p "$work/xy"
    bench_timed "$dir" xyconv -s -t "$xytype" -m "$work/xy" "${names[@]}"
    [ "$(find "$work/xy" -name '*.xy' | wc -l)" -eq "$files" ] || bench_fail "xyconv did not write $files files"
    bench_min best_xy "$run_us"
    bench_min cpu_xy "$cpu_us"
  done
  local out_bytes row
  out_bytes=$(bench_sum "$size_list")
  row=$(awk -v name="$name" -v n="$files" -v ib="$in_bytes" -v ob="$out_bytes" -v c="$best_conv" -v f="$best_floor" \
            -v x="$best_xy" -v cc="$cpu_conv" -v cx="$cpu_xy" -v kb="$peak_kb" 'BEGIN {
    mb = 1048576
    ratio = c / f
    speedup = x / c
    printf "%-6s %6d %8.2f %8.2f %9.3f %7.3f %9.3f %6.2f %9.3f %7.3f %8.1f %8.2f %-4s\n", name, n, ib / mb, ob / mb,
      c / 1e6, cc / 1e6, f / 1e6, ratio, x / 1e6, cx / 1e6, speedup, kb / 1024,
      (ratio <= 3 && speedup >= 5) ? "PASS" : "FAIL"
  }')
  rows+=("$row")
  [[ $row == *FAIL* ]] && failed=1
  return 0
}

echo "Generating $files RAW1.01 and $files RD files of $steps steps in $work ..." >&2
rm -rf "$work/raw" "$work/rd"
mkdir -p "$work/raw" "$work/rd"
make_inputs "$work" "$files" "$steps"
measure RAW "$work/raw" raw bruker_raw '*.odf *.log'
measure RD "$work/rd" rd philips_rd '*.odf *.hdr'

echo
bench_table '%-6s %6s %8s %8s %9s %7s %9s %6s %9s %7s %8s %8s %-4s\n' \
  input files "in MB" "out MB" "convert s" "cpu s" "floor s" ratio "xyconv s" "cpu s" "x faster" "peak MB" "ok"
echo
echo "Times: best of $runs runs (wall clock; ratio and x faster are of these); cpu s: user + sys, the"
echo "best of the runs. Peak MB: the highest of them (maximum resident set)."
echo "Floor: reading every input and writing files of the outputs' sizes, page cache warm."
echo "Targets: ratio <= 3 and xyconv at least 5 x slower. MB = 2^20 bytes. Converter: $conv"
exit $failed
