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
# the same run: copying the input plus writing one file as large as everything
# the conversion wrote. Targets: peak memory at most 3 x input + 20 MB, and
# conversion time at most 4 x the floor.
# Exit status: 0 every target met, 1 a target missed, 2 usage or setup error.
set -euo pipefail

channels=1000000
runs=3
usage() { sed -n '4,11s/^# \{0,1\}//p' "$0"; }
while getopts ':n:r:h' opt; do
  case $opt in
    n) channels=$OPTARG ;;
    r) runs=$OPTARG ;;
    h) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -le 2 ] || { usage >&2; exit 2; }
[[ $channels =~ ^[1-9][0-9]*$ && $channels -ge 2 ]] || { echo "run.sh: -n needs a whole number of at least 2" >&2; exit 2; }
[[ $runs =~ ^[1-9][0-9]*$ ]] || { echo "run.sh: -r needs a whole number of at least 1" >&2; exit 2; }

root=$(cd "$(dirname "$0")/.." && pwd)
conv=${1:-$root/build/bin/kestro-convert}
[ -x "$conv" ] || { echo "run.sh: no executable converter at $conv (build it first)" >&2; exit 2; }
conv=$(cd "$(dirname "$conv")" && pwd)/$(basename "$conv")
# Timings read bash's own microsecond clock, so taking one starts no process.
[ -n "${EPOCHREALTIME:-}" ] || { echo "run.sh: bash 5 or later is needed" >&2; exit 2; }
[ -x /usr/bin/time ] || { echo "run.sh: /usr/bin/time is needed (Debian package 'time')" >&2; exit 2; }

if [ $# -ge 2 ]; then
  work=$2
  mkdir -p "$work"
else
  work=$(mktemp -d "${TMPDIR:-/tmp}/kestro-bench.XXXXXX")
  trap 'rm -rf "$work"' EXIT
  trap 'exit 130' INT TERM
fi
work=$(cd "$work" && pwd)

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

# One conversion in a fresh folder holding only a copy of the input; the
# converter's measurements go to the named variables.
#   convert INPUT DIR -> sets conv_us, conv_kb, out_bytes
convert() {
  local src=$1 dir=$2 name t0 t1 rc
  name=$(basename "$src")
  rm -rf "$dir"
  mkdir -p "$dir"
  cp "$src" "$dir/$name"
  t0=${EPOCHREALTIME//[!0-9]/}
  rc=0
  /usr/bin/time -v -o "$dir/.time" "$conv" --spe "$dir/$name" >"$dir/.stdout" 2>"$dir/.stderr" || rc=$?
  t1=${EPOCHREALTIME//[!0-9]/}
  if [ $rc -ne 0 ] || [ -s "$dir/.stderr" ]; then
    echo "run.sh: kestro-convert failed on $name (exit $rc):" >&2
    cat "$dir/.stdout" "$dir/.stderr" >&2
    exit 2
  fi
  conv_us=$((t1 - t0))
  conv_kb=$(awk -F': *' '/Maximum resident set size/ { print $2 }' "$dir/.time")
  out_bytes=$(find "$dir" -maxdepth 1 -type f ! -name "$name" ! -name '.*' -printf '%s\n' | awk '{ s += $1 } END { print s + 0 }')
}

# The least any conversion must do: read the input and write its output bytes.
#   floor_io INPUT DIR BYTES -> sets floor_us
floor_io() {
  local src=$1 dir=$2 bytes=$3 t0 t1
  rm -rf "$dir"
  mkdir -p "$dir"
  t0=${EPOCHREALTIME//[!0-9]/}
  cp "$src" "$dir/copy"
  dd if=/dev/zero of="$dir/out" bs=1M count="$bytes" iflag=count_bytes status=none
  t1=${EPOCHREALTIME//[!0-9]/}
  floor_us=$((t1 - t0))
}

# Expected outputs, so a fast but wrong run is not reported as a result.
check_outputs() {
  local dir=$1 stem=$2 want
  for want in "${@:3}"; do
    [ -s "$dir/$stem.$want" ] || { echo "run.sh: $stem.$want was not written" >&2; exit 2; }
  done
  if [ "$stem" = block ]; then
    local lines
    lines=$(wc -l <"$dir/block.odf")
    [ "$lines" -eq "$channels" ] || { echo "run.sh: block.odf has $lines lines, expected $channels" >&2; exit 2; }
  fi
}

rows=()
failed=0
for input in two-column.odf block.dat; do
  src=$work/$input
  stem=${input%.*}
  cat "$src" >/dev/null  # warm the page cache before any timing
  best_conv='' best_floor='' peak_kb=0
  for ((r = 1; r <= runs; r++)); do
    echo "  $input: run $r of $runs" >&2
    convert "$src" "$work/run-$stem"
    if [ "$input" = block.dat ]; then check_outputs "$work/run-$stem" "$stem" odf spe
    else check_outputs "$work/run-$stem" "$stem" spe; fi
    floor_io "$src" "$work/floor-$stem" "$out_bytes"
    [ -z "$best_conv" ] || [ "$conv_us" -lt "$best_conv" ] && best_conv=$conv_us
    [ -z "$best_floor" ] || [ "$floor_us" -lt "$best_floor" ] && best_floor=$floor_us
    [ "$conv_kb" -gt "$peak_kb" ] && peak_kb=$conv_kb
  done
  rm -rf "$work/run-$stem" "$work/floor-$stem"
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
printf '%-15s %8s %8s %9s %9s %7s %8s %8s %-6s  %-4s\n' \
  input "in MB" "out MB" "convert s" "floor s" ratio "peak MB" "limit MB" memory "ratio<=4"
printf '%s\n' "${rows[@]}"
echo
echo "Times: best of $runs runs; peak MB: the highest of them. Floor: cp of the input"
echo "plus one write of the output's size, with the input already in the page cache."
echo "limit = 3 x input + 20 MB (MB = 2^20 bytes). Converter: $conv"
exit $failed
