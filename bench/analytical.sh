#!/usr/bin/env bash
# Benchmark of kestro-convert on infrared and UV spectra read by the classic
# readers: a batch of Thermo SPA files, a batch of Galactic SPC files with
# one X array, each batch converted in one kestro-convert run, and one large
# GAML file.
#
# Usage: bench/analytical.sh [-f FILES] [-n POINTS] [-g POINTS] [-r RUNS] [CONVERTER [WORKDIR]]
#
#   CONVERTER  the kestro-convert to measure (default: build/bin/kestro-convert
#              under the repository root)
#   WORKDIR    where the inputs and outputs go; created if missing and left in
#              place (default: a fresh temporary folder, removed afterwards)
#   -f         files per batch (default 2000)
#   -n         points per SPA and SPC file (default 8000)
#   -g         points of the GAML file (default 2000000)
#   -r         runs per timing; the best one counts (default 1)
#
# Each input is timed against the I/O floor taken in the same run (reading
# every input and writing files of the outputs' sizes, page cache warm, no
# dirty pages left from the timing before). The
# SPC batch is also converted by spc-parser (npm, installed into WORKDIR/node)
# in one Node process that reads every file and writes X,Y text. Targets:
# conversion at most 3 x the floor for the batches and 4 x for the GAML file;
# peak memory under 3 x the largest input + 20 MB; at least 3 x faster than
# spc-parser. CPU time (user + system) is shown beside every wall-clock time.
# Exit status: 0 every target met, 1 a target missed, 2 usage or setup error
# or a failed conversion.
set -euo pipefail
# shellcheck source=bench/lib.sh
. "$(dirname "$0")/lib.sh"

files=2000
points=8000
gaml_points=2000000
runs=1
while getopts ':f:n:g:r:h' opt; do
  case $opt in
    f) files=$OPTARG ;;
    n) points=$OPTARG ;;
    g) gaml_points=$OPTARG ;;
    r) runs=$OPTARG ;;
    h) bench_usage 7,17; exit 0 ;;
    *) bench_usage 7,17 >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -le 2 ] || { bench_usage 7,17 >&2; exit 2; }
for v in "$files" "$points" "$gaml_points" "$runs"; do
  [[ $v =~ ^[1-9][0-9]*$ ]] || bench_fail "-f, -n, -g and -r need whole numbers of at least 1"
done
[ "$points" -ge 2 ] && [ "$gaml_points" -ge 2 ] || bench_fail "-n and -g are at least 2"
bench_need_tools
command -v python3 >/dev/null || bench_fail "python3 is needed to generate the inputs"
command -v npm >/dev/null && command -v node >/dev/null || bench_fail "node and npm are needed for spc-parser"
bench_converter "${1:-}"
bench_workdir analytical "${2:-}"

# ---- spc-parser, in a folder of its own ----

node_dir=$work/node
if [ ! -d "$node_dir/node_modules/spc-parser" ]; then
  echo "Installing spc-parser into $node_dir ..." >&2
  mkdir -p "$node_dir"
  (cd "$node_dir" && npm install --no-audit --no-fund --silent --prefix "$node_dir" spc-parser@1.0.0 >/dev/null) ||
    bench_fail "could not install spc-parser"
fi
cat >"$node_dir/convert.js" <<'EOF'
// Every .spc file of a folder to X,Y text in another, in one process.
const fs = require('fs');
const path = require('path');
const { parse } = require('spc-parser');
const [from, to] = process.argv.slice(2);
for (const name of fs.readdirSync(from).filter((n) => n.endsWith('.spc'))) {
  const { x, y } = parse(fs.readFileSync(path.join(from, name))).spectra[0].variables;
  const lines = new Array(y.data.length);
  for (let i = 0; i < y.data.length; i++) lines[i] = x.data[i] + ',' + y.data[i];
  fs.writeFileSync(path.join(to, name.replace(/\.spc$/, '.txt')), lines.join('\r\n') + '\r\n');
}
EOF

# ---- inputs ----

# SPA: the fixed fields, CR LF CR LF and three zeros ending at 1024, then the
# Y values. SPC: flags 80h (one X array), float Y (exponent 80h), a valid
# date. GAML: one trace, base64 in lines of 76 characters, CR LF line ends.
# Four different spectra, repeated.
make_inputs() {
  python3 - "$work" "$files" "$points" "$gaml_points" <<'EOF'
import base64, math, random, struct, sys
work, count, n, gn = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4])
rng = random.Random(2026)
xs = [4000.0 - 3600.0 * i / (n - 1) for i in range(n)]
spectra = [[rng.uniform(0, 2) for _ in range(n)] for _ in range(4)]
spa = bytearray(1024)
struct.pack_into('<i', spa, 386, 1024)
struct.pack_into('<i', spa, 564, n)
struct.pack_into('<fffi', spa, 576, xs[0], xs[-1], 0.001, n)
spa[1017:1024] = b'\r\n\r\n\0\0\0'
spc = bytearray(512)
struct.pack_into('<BBBBidd', spc, 0, 0x80, 0x4B, 0, 0x80, n, xs[0], xs[-1])
struct.pack_into('<i', spc, 24, 1)
struct.pack_into('<I', spc, 32, (2026 << 20) | (11 << 16) | (21 << 11) | (9 << 6) | 30)
spc += struct.pack('<%df' % n, *xs) + bytes(32)
spa_data = [struct.pack('<%df' % n, *s) for s in spectra]
for i in range(count):
    with open('%s/spa/s%05d.spa' % (work, i), 'wb') as f:
        f.write(spa + spa_data[i % 4])
    with open('%s/spc/s%05d.spc' % (work, i), 'wb') as f:
        f.write(spc + spa_data[i % 4])

def b64(values):
    text = base64.b64encode(struct.pack('<%df' % len(values), *values)).decode()
    return '\r\n'.join(text[i:i + 76] for i in range(0, len(text), 76))
gx = [4000.0 - 3600.0 * i / (gn - 1) for i in range(gn)]
gy = [1.5 + math.sin(i / 500.0) for i in range(gn)]
with open('%s/gaml/large.gaml' % work, 'w', newline='') as f:
    f.write('<?xml version="1.0" encoding="UTF-8"?>\r\n<GAML version="1.20" name="bench">\r\n'
            '<experiment name="e">\r\n<trace name="t" technique="IR">\r\n<Xdata label="x" units="WAVENUMBER">\r\n'
            '<values byteorder="INTEL" format="FLOAT32" numvalues="%d">%s\r\n</values>\r\n'
            '<Ydata label="y" units="ABSORBANCE">\r\n<values byteorder="INTEL" format="FLOAT32" numvalues="%d">%s\r\n'
            '</values>\r\n</Ydata>\r\n</Xdata>\r\n</trace>\r\n</experiment>\r\n</GAML>\r\n' % (gn, b64(gx), gn, b64(gy)))
EOF
}

# ---- measuring ----

failed=0
parser_row=''

# One input folder: RUNS conversions, the floor after each; the best times
# count. For the SPC batch, spc-parser too.
#   measure NAME DIR EXT LIMIT_RATIO EXPECTED_LINES
measure() {
  local name=$1 dir=$2 ext=$3 limit=$4 lines=$5 r count
  local best_conv='' best_cpu='' best_floor='' best_parser='' parser_cpu='' peak_kb=0
  local in_list=$work/.inputs size_list=$work/.sizes
  bench_inputs "$dir" "*.$ext" "$in_list"
  mapfile -t names < <(cd "$dir" && ls -- *."$ext")
  count=${#names[@]}
  for ((r = 1; r <= runs; r++)); do
    echo "  $name: run $r of $runs" >&2
    find "$dir" -maxdepth 1 -type f ! -name "*.$ext" -delete
    sync  # each timing starts with no dirty pages from the one before
    bench_timed "$dir" "$conv" "${names[@]}"
    tail -n 1 "$work/.stdout" | grep -qx "Finished $count files" || bench_fail "the $name run did not finish"
    [ "$(find "$dir" -maxdepth 1 -name '*.odf' | wc -l)" -eq "$count" ] || bench_fail "not every $name input gave its .odf"
    local first=$dir/${names[0]%.*}.odf
    [ "$(wc -l <"$first")" -eq "$lines" ] || bench_fail "$first does not hold $lines lines"
    if [ -z "$best_conv" ] || [ "$run_us" -lt "$best_conv" ]; then best_conv=$run_us; best_cpu=$cpu_us; fi
    bench_max peak_kb "$run_kb"
    find "$dir" -maxdepth 1 -type f ! -name "*.$ext" -printf '%s\n' >"$size_list"
    sync
    bench_floor "$in_list" "$size_list" "$work/floor"
    bench_min best_floor "$floor_us"
    if [ "$ext" = spc ]; then
      rm -rf "$work/parser-out"
      mkdir -p "$work/parser-out"
      sync
      bench_timed "$dir" node "$node_dir/convert.js" "$dir" "$work/parser-out"
      [ "$(find "$work/parser-out" -name '*.txt' | wc -l)" -eq "$count" ] || bench_fail "spc-parser did not write $count files"
      if [ -z "$best_parser" ] || [ "$run_us" -lt "$best_parser" ]; then best_parser=$run_us; parser_cpu=$cpu_us; fi
      rm -rf "$work/parser-out"
    fi
  done
  local out_bytes largest row
  largest=$(xargs -d '\n' stat -c %s <"$in_list" | sort -n | tail -n 1)
  out_bytes=$(bench_sum "$size_list")
  row=$(awk -v name="$name" -v n="$count" -v ib="$in_bytes" -v ob="$out_bytes" -v c="$best_conv" -v cpu="$best_cpu" \
            -v f="$best_floor" -v kb="$peak_kb" -v big="$largest" -v limit="$limit" 'BEGIN {
    mb = 1048576
    ratio = c / f
    mem = 3 * big / mb + 20
    printf "%-5s %5d %8.2f %8.2f %9.3f %8.3f %8.3f %6.2f %6.1f %8.2f %8.2f %-4s\n", name, n, ib / mb, ob / mb, c / 1e6,
      cpu / 1e6, f / 1e6, ratio, limit, kb / 1024, mem, (ratio <= limit && kb / 1024 < mem) ? "PASS" : "FAIL"
  }')
  rows+=("$row")
  [[ $row == *FAIL* ]] && failed=1
  if [ -n "$best_parser" ]; then
    parser_row=$(awk -v p="$best_parser" -v pc="$parser_cpu" -v c="$best_conv" -v cc="$best_cpu" 'BEGIN {
      printf "spc-parser: %.3f s (CPU %.3f s); kestro-convert %.3f s (CPU %.3f s): %.1f x faster (CPU %.1f x) %s",
        p / 1e6, pc / 1e6, c / 1e6, cc / 1e6, p / c, pc / cc, (p / c >= 3 ? "PASS" : "FAIL")
    }')
    [[ $parser_row == *FAIL ]] && failed=1
  fi
  find "$dir" -maxdepth 1 -type f ! -name "*.$ext" -delete
  return 0
}

echo "Generating $files SPA and $files SPC files of $points points and a GAML file of $gaml_points points in $work ..." >&2
rm -rf "$work/spa" "$work/spc" "$work/gaml"
mkdir -p "$work/spa" "$work/spc" "$work/gaml"
make_inputs
measure SPA "$work/spa" spa 3 "$points"
measure SPC "$work/spc" spc 3 "$points"
measure GAML "$work/gaml" gaml 4 "$gaml_points"

echo
bench_table '%-5s %5s %8s %8s %9s %8s %8s %6s %6s %8s %8s %-4s\n' \
  input files "in MB" "out MB" "convert s" "CPU s" "floor s" ratio limit "peak MB" "mem lim" ok
echo "$parser_row"
echo
echo "Times: best of $runs runs (wall clock; CPU = user + system of that run); peak MB: the highest"
echo "resident set of them. Floor: reading every input and writing files of the outputs' sizes,"
echo "page cache warm. Memory limit: 3 x the largest input + 20 MB. MB = 2^20 bytes. Converter: $conv"
exit $failed
