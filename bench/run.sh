#!/usr/bin/env bash
# Throughput and memory benchmark for kestro-convert on large text inputs.
#
# Usage: bench/run.sh [-n CHANNELS] [-r RUNS] [CONVERTER [WORKDIR]]
#
#   CONVERTER  the kestro-convert to measure (default: build/bin/kestro-convert
#              under the repository root)
#   WORKDIR    where the inputs and outputs go; created if missing and left in
#              place (default: a fresh temporary folder, removed afterwards)
#   -n         channels per input (default 1000000)
#   -r         runs per timing; the best one counts (default 3)
#
# Two inputs are generated: a two-column ".odf" and a ".dat" data block. Each is
# converted with SPE ticked, and the time is set against an I/O floor taken in
# the same run: reading the input and writing files as large as everything
# the conversion wrote. Targets: peak memory at most 3 x input + 20 MB, and
# conversion time at most 4 x the floor.
# Exit status: 0 every target met, 1 a target missed, 2 usage or setup error.
set -euo pipefail
# shellcheck source=bench/lib.sh
. "$(dirname "$0")/lib.sh"

channels=1000000
runs=3
while getopts ':n:r:h' opt; do
  case $opt in
    n) channels=$OPTARG ;;
    r) runs=$OPTARG ;;
    h) bench_usage 4,11; exit 0 ;;
    *) bench_usage 4,11 >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -le 2 ] || { bench_usage 4,11 >&2; exit 2; }
[[ $channels =~ ^[1-9][0-9]*$ && $channels -ge 2 ]] || bench_fail "-n needs a whole number of at least 2"
[[ $runs =~ ^[1-9][0-9]*$ ]] || bench_fail "-r needs a whole number of at least 1"
bench_need_tools
bench_converter "${1:-}"
bench_workdir bench "${2:-}"

# Counts come from a Park-Miller generator: deterministic, and its products stay
# below 2^53, so every awk computes the same sequence.
echo "Generating $channels-channel inputs in $work ..." >&2
awk -v n="$channels" 'BEGIN {
  x = 12345
  for (i = 0; i < n; i++) {
    x = (x * 16807) % 2147483647
    printf " %d  %d \r\n", i, x % 100000
  }
}' >"$work/two-column.odf"

awk -v n="$channels" 'BEGIN {
  x = 54321
  line = ""
  for (i = 0; i < n; i++) {
    if (i == 0) v = 1000
    else if (i == 1) v = 1010
    else { x = (x * 16807) % 2147483647; v = x % 100000 }
    line = line sprintf("%8d", v)
    if (i % 8 == 7) { printf "%s\r\n", line; line = "" }
  }
  if (line != "") printf "%s\r\n", line
}' >"$work/block.dat"

# One conversion in a fresh folder holding only a copy of the input; sets
# run_us and run_kb (bench_timed) and out_bytes.
#   convert INPUT DIR
convert() {
  local src=$1 dir=$2 name
  name=$(basename "$src")
  rm -rf "$dir"
  mkdir -p "$dir"
  cp "$src" "$dir/$name"
  bench_timed "$dir" "$conv" --spe "$name"
  out_bytes=$(find "$dir" -maxdepth 1 -type f ! -name "$name" ! -name '.*' -printf '%s\n' | awk '{ s += $1 } END { print s + 0 }')
  find "$dir" -maxdepth 1 -type f ! -name "$name" ! -name '.*' -printf '%s\n' >"$work/.sizes"
}

# Expected outputs, so a fast but wrong run is not reported as a result.
check_outputs() {
  local dir=$1 stem=$2 want
  for want in "${@:3}"; do
    [ -s "$dir/$stem.$want" ] || bench_fail "$stem.$want was not written"
  done
  if [ "$stem" = block ]; then
    local lines
    lines=$(wc -l <"$dir/block.odf")
    [ "$lines" -eq "$channels" ] || bench_fail "block.odf has $lines lines, expected $channels"
  fi
}

failed=0
for input in two-column.odf block.dat; do
  src=$work/$input
  stem=${input%.*}
  echo "$src" >"$work/.inputs"
  cat "$src" >/dev/null  # warm the page cache before any timing
  best_conv='' best_floor='' peak_kb=0
  for ((r = 1; r <= runs; r++)); do
    echo "  $input: run $r of $runs" >&2
    convert "$src" "$work/run-$stem"
    if [ "$input" = block.dat ]; then check_outputs "$work/run-$stem" "$stem" odf spe
    else check_outputs "$work/run-$stem" "$stem" spe; fi
    bench_floor "$work/.inputs" "$work/.sizes" "$work/floor-$stem"
    bench_min best_conv "$run_us"
    bench_min best_floor "$floor_us"
    bench_max peak_kb "$run_kb"
  done
  rm -rf "$work/run-$stem"
  in_bytes=$(stat -c %s "$src")
  row=$(awk -v c="$best_conv" -v f="$best_floor" -v kb="$peak_kb" -v ib="$in_bytes" -v ob="$out_bytes" -v name="$input" 'BEGIN {
    mb = 1048576
    ratio = c / f
    peak = kb / 1024
    in_mb = ib / mb
    target = 3 * in_mb + 20
    mem = peak <= target ? "PASS" : "FAIL"
    rat = ratio <= 4 ? "PASS" : "FAIL"
    printf "%-15s %8.2f %8.2f %9.3f %9.3f %7.2f %8.2f %8.2f %-6s  %-4s\n", name, in_mb, ob / mb, c / 1e6, f / 1e6, ratio, peak, target, mem, rat
  }')
  rows+=("$row")
  [[ $row == *FAIL* ]] && failed=1
done

echo
bench_table '%-15s %8s %8s %9s %9s %7s %8s %8s %-6s  %-4s\n' \
  input "in MB" "out MB" "convert s" "floor s" ratio "peak MB" "limit MB" memory "ratio<=4"
echo
echo "Times: best of $runs runs; peak MB: the highest of them. Floor: reading the input"
echo "and writing files of the outputs' sizes, with the input already in the page cache."
echo "limit = 3 x input + 20 MB (MB = 2^20 bytes). Converter: $conv"
exit $failed
