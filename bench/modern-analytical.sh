#!/usr/bin/env bash
# Benchmark of the modern GAML, Thermo SPA and Galactic SPC readers against
# the classic ones, on the same batch: CPU time (user + system), best of two
# runs each.
#
# Usage: bench/modern-analytical.sh [-f FILES] [-n POINTS] [CONVERTER [WORKDIR]]
#
#   CONVERTER  the kestro-convert to measure (default: build/bin/kestro-convert
#              under the repository root)
#   WORKDIR    where the inputs and outputs go; created if missing and left in
#              place (default: a fresh temporary folder, removed afterwards)
#   -f         files per format (default 200)
#   -n         points per file (default 20000)
#
# The generated files are laid out so that both readers read them whole: a
# GAML file with its tags at the line starts and CR LF line ends, an SPA file
# whose directory and data signature agree, a Y-only SPC file with a date.
# Each batch is converted with "--modern" and without it; the ratio is the
# classic CPU time over the modern CPU time. Target: ratio at least 1.
# Exit status: 0 every target met, 1 a target missed, 2 usage or setup error,
# 3 a classic reader is not available yet (its row says so).
set -euo pipefail
# shellcheck source=bench/lib.sh
. "$(dirname "$0")/lib.sh"

files=200
points=20000
while getopts ':f:n:h' opt; do
  case $opt in
    f) files=$OPTARG ;;
    n) points=$OPTARG ;;
    h) bench_usage 4,12; exit 0 ;;
    *) bench_usage 4,12 >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -le 2 ] || { bench_usage 4,12 >&2; exit 2; }
[[ $files =~ ^[1-9][0-9]*$ ]] || bench_fail "-f needs a whole number of at least 1"
[[ $points =~ ^[1-9][0-9]*$ ]] && [ "$points" -ge 2 ] || bench_fail "-n needs a whole number of at least 2"
bench_need_tools
command -v python3 >/dev/null || bench_fail "python3 is needed to generate the inputs"
bench_converter "${1:-}"
bench_workdir modern "${2:-}"

# One folder per format, FILES inputs of POINTS points each.
generate() {
  python3 - "$work" "$files" "$points" <<'EOF'
import base64, math, os, struct, sys
work, files, points = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
ys = [1000 * (1.5 + math.sin(i / 50.0)) for i in range(points)]
xs = [4000.0 - 3600.0 * i / (points - 1) for i in range(points)]

def b64lines(values):
    text = base64.b64encode(struct.pack('<%df' % len(values), *values)).decode()
    return '\r\n'.join(text[i:i + 76] for i in range(0, len(text), 76))

gaml = ('<?xml version="1.0" encoding="UTF-8"?>\r\n<GAML version="1.20" name="bench">\r\n'
        '<experiment name="e">\r\n<trace name="t" technique="IR">\r\n'
        '<Xdata label="x" units="WAVENUMBER">\r\n<values byteorder="INTEL" format="FLOAT32" numvalues="%d">%s\r\n'
        '</values>\r\n<Ydata label="y" units="ABSORBANCE">\r\n'
        '<values byteorder="INTEL" format="FLOAT32" numvalues="%d">%s\r\n</values>\r\n'
        '</Ydata>\r\n</Xdata>\r\n</trace>\r\n</experiment>\r\n</GAML>\r\n'
        % (points, b64lines(xs), points, b64lines(ys))).encode()

# SPA: directory of a header block (type 2) and the data (type 3); the data
# follows CR LF CR LF and three zeros, as the classic search expects.
spa = bytearray(1024)
spa[0:18] = b'Spectral Data File'
struct.pack_into('<H', spa, 294, 2)
struct.pack_into('<BBII', spa, 304, 2, 0, 560, 140)
struct.pack_into('<BBII', spa, 320, 3, 0, 1024, 4 * points)
struct.pack_into('<IIII', spa, 560, 3, points, 1, 17)
struct.pack_into('<fffI', spa, 576, xs[0], xs[-1], 0.001, points)
spa[1017:1024] = b'\r\n\r\n\0\0\0'
spa += struct.pack('<%df' % points, *ys)

# SPC: Y-only, 32-bit integers with exponent 16, a valid date word.
spc = bytearray(512)
struct.pack_into('<BBBBidd', spc, 0, 0, 0x4B, 0, 16, points, xs[0], xs[-1])
struct.pack_into('<i', spc, 24, 1)
struct.pack_into('<I', spc, 32, (2024 << 20) | (5 << 16) | (17 << 11) | (9 << 6) | 30)
spc += bytes(32) + struct.pack('<%di' % points, *(int(y * 65536) for y in ys))

for ext, data in (('gaml', gaml), ('spa', bytes(spa)), ('spc', bytes(spc))):
    folder = os.path.join(work, ext)
    os.makedirs(folder, exist_ok=True)
    for i in range(files):
        with open(os.path.join(folder, 'f%05d.%s' % (i, ext)), 'wb') as f:
            f.write(data)
EOF
}

# Converts every input of a folder in one run, twice (the page cache warm);
# prints the CPU seconds (user + system) of the better run, or "n/a" when the
# converter says the reader is not available yet. CPU time, not wall time, is
# compared: on a shared machine the wall clock swings with the other work and
# the disk's write-back, while the work a reader does stays put.
#   timed DIR EXT [--modern]
timed() {
  local dir=$1 ext=$2 best=""
  shift 2
  for _ in 1 2; do
    find "$dir" -maxdepth 1 -type f ! -name "*.$ext" -delete
    bench_tolerant=1 bench_timed "$dir" "$conv" "$@" "$dir"/*."$ext"
    if grep -q 'not available yet' "$work/.stderr"; then
      echo n/a
      return
    fi
    if [ "$run_rc" -ne 0 ] || [ -s "$work/.stderr" ] || ! tail -n 1 "$work/.stdout" | grep -qx "Finished $files files"; then
      echo "$bench_name: the $ext batch failed (exit $run_rc):" >&2
      tail -n 3 "$work/.stdout" "$work/.stderr" >&2
      exit 2
    fi
    bench_min best "$cpu_us"
  done
  local lines
  lines=$(wc -l <"$dir/f00000.odf")
  [ "$lines" -eq "$points" ] || bench_fail "$ext: $lines points written, expected $points"
  awk -v s="$best" 'BEGIN { printf "%.3f", s / 1e6 }'
}

echo "Generating $files files of $points points per format in $work ..." >&2
generate

failed=0
missing=0
for ext in gaml spa spc; do
  echo "  $ext: modern, then classic" >&2
  modern=$(timed "$work/$ext" "$ext" --modern)
  classic=$(timed "$work/$ext" "$ext")
  if [ "$classic" = n/a ]; then
    rows+=("$(printf '%-6s %6d %8d %10s %10s %7s %s' "$ext" "$files" "$points" "$modern" n/a - 'classic reader not available yet')")
    missing=1
    continue
  fi
  row=$(awk -v e="$ext" -v f="$files" -v p="$points" -v m="$modern" -v c="$classic" 'BEGIN {
    r = c / m
    printf "%-6s %6d %8d %10.3f %10.3f %7.2f %s", e, f, p, m, c, r, (r >= 1 ? "PASS" : "FAIL")
  }')
  rows+=("$row")
  [[ $row == *FAIL ]] && failed=1
done

echo
bench_table '%-6s %6s %8s %10s %10s %7s %s\n' format files points "modern s" "classic s" ratio "ratio>=1"
echo
echo "CPU seconds (user + system), best of two runs each; ratio = classic / modern."
echo "Converter: $conv"
[ $failed = 0 ] || exit 1
[ $missing = 0 ] || exit 3
exit 0
