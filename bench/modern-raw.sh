#!/usr/bin/env bash
# The modern RAW reader against the classic one on the same batch, and
# against xyconv (Debian package libxy-bin, installed here when missing).
#
# Usage: bench/modern-raw.sh [-f FILES] [-n STEPS] [CONVERTER]
#
#   -f  files in the batch (default 2000): RAW1.01 scans of one range, which
#       both readers read alike
#   -n  steps per scan (default 4000)
#
# Prints the batch's wall-clock and CPU (user + sys) seconds with the
# classic reader, with --modern and with xyconv, each the best of three runs
# with the page cache warm, and the ratios classic / modern (at least 1 is
# the target) and xyconv / modern (at least 5 is the target).
set -euo pipefail
# shellcheck source=bench/lib.sh
. "$(dirname "$0")/lib.sh"
files=2000
steps=4000
while getopts ':f:n:h' opt; do
  case $opt in
    f) files=$OPTARG ;;
    n) steps=$OPTARG ;;
    *) bench_usage 4,14; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
bench_need_tools
bench_converter "${1:-}"
bench_need_xyconv
bench_workdir modern-raw
mkdir -p "$work/raw" "$work/xy"

# RAW1.01: the range count (1) at 12, the 304-byte range header at 712 with
# the step count at +4, start 2-theta at +16, step at +176 and the bytes a
# step takes (4) at +252, then the intensities as Singles. Four scans, repeated.
python3 - "$work/raw" "$files" "$steps" <<'PY'
import random, struct, sys
folder, count, steps = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
rng = random.Random(2027)
head = bytearray(712 + 304)
head[0:7] = b'RAW1.01'
struct.pack_into('<i', head, 12, 1)
struct.pack_into('<ii', head, 712, 304, steps)
struct.pack_into('<d', head, 712 + 16, 10.0)
struct.pack_into('<d', head, 712 + 176, 0.02)
struct.pack_into('<i', head, 712 + 252, 4)
scans = [struct.pack('<%df' % steps, *(rng.randrange(30000) for _ in range(steps))) for _ in range(4)]
for i in range(count):
    with open('%s/s%05d.raw' % (folder, i), 'wb') as f:
        f.write(head + scans[i % 4])
PY

# "wall cpu" seconds of a command run in DIR, each the best of three runs.
clean() { rm -f "$work"/raw/*.odf "$work"/xy/*; }
seconds() {
  bench_before_run=clean bench_best 3 "$@"
  awk -v w="$best_wall_us" -v c="$best_cpu_us" 'BEGIN { print w / 1e6, c / 1e6 }'
}
ratio() { bench_ratio "$@"; }

read -r classic_wall classic_cpu < <(seconds "$work/raw" "$conv" "$work"/raw/*.raw)
read -r modern_wall modern_cpu < <(seconds "$work/raw" "$conv" --modern "$work"/raw/*.raw)
[ "$(find "$work/raw" -name '*.odf' | wc -l)" -eq "$files" ] || bench_fail "not every scan converted"
read -r xy_wall xy_cpu < <(seconds "$work/raw" xyconv -s -t bruker_raw -m "$work/xy" "$work"/raw/*.raw)

printf '%-26s %-5s %9s %9s %9s %15s %14s\n' batch time classic modern xyconv classic/modern xyconv/modern
for kind in wall cpu; do
  c=${kind/#/classic_}; m=${kind/#/modern_}; x=${kind/#/xy_}
  printf '%-26s %-5s %9.2f %9.2f %9.2f %15s %14s\n' "$files RAW1.01 x $steps steps" "$kind" \
    "${!c}" "${!m}" "${!x}" "$(ratio "${!c}" "${!m}")" "$(ratio "${!x}" "${!m}")"
done
