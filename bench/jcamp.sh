#!/usr/bin/env bash
# Benchmark of kestro-convert on JCAMP-DX spectra: a batch of ASDF files
# (SQZ, DIF and DUP forms) converted in one kestro-convert run, by the
# classic reader and by the modern one (--modern).
#
# Usage: bench/jcamp.sh [-f FILES] [-n POINTS] [-r RUNS] [CONVERTER [WORKDIR]]
#
#   CONVERTER  the kestro-convert to measure (default: build/bin/kestro-convert
#              under the repository root)
#   WORKDIR    where the inputs, outputs and the npm peer go; created if
#              missing and left in place (default: a fresh temporary folder,
#              removed afterwards)
#   -f         files in the batch (default 1000)
#   -n         points per spectrum (default 32000, at most 32767)
#   -r         runs per timing; the best one counts (default 3)
#
# The batch is timed against the I/O floor taken in the same run (reading
# every input and writing files of the outputs' sizes, page cache warm) and
# against jcampconverter (npm package, installed with npm into WORKDIR/npm,
# never into the repository): one Node process that reads every file and
# writes its X,Y pairs as text. Wall-clock and CPU time (user + system) are
# both reported. Targets: conversion at most 3 x the floor, and at least
# 3 x faster than jcampconverter; the modern reader at least as fast as the
# classic one and at least 3 x faster than jcampconverter, in CPU time.
# Exit status: 0 every target met, 1 a target missed, 2 usage or setup error
# or a failed conversion.
set -euo pipefail
# shellcheck source=bench/lib.sh
. "$(dirname "$0")/lib.sh"

files=1000
points=32000
runs=3
while getopts ':f:n:r:h' opt; do
  case $opt in
    f) files=$OPTARG ;;
    n) points=$OPTARG ;;
    r) runs=$OPTARG ;;
    h) bench_usage 6,16; exit 0 ;;
    *) bench_usage 6,16 >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -le 2 ] || { bench_usage 6,16 >&2; exit 2; }
for v in "$files" "$points" "$runs"; do
  [[ $v =~ ^[1-9][0-9]*$ ]] || bench_fail "-f, -n and -r need whole numbers of at least 1"
done
[ "$points" -ge 2 ] && [ "$points" -le 32767 ] || bench_fail "-n is 2 to 32767"
bench_need_tools
command -v python3 >/dev/null || bench_fail "python3 is needed to generate the inputs"
command -v node >/dev/null && command -v npm >/dev/null || bench_fail "node and npm are needed"
bench_converter "${1:-}"
# No "." in the folder's path: a JCAMP output is named by the path up to its first ".".
[ -z "${2:-}" ] || [[ $(realpath -m "$2") != *.* ]] ||
  bench_fail "WORKDIR must have no \".\" in its path (outputs are named up to the first \".\")"
bench_workdir jcamp "${2:-}"
[[ $work != *.* ]] || bench_fail "the work folder $work has a \".\" in its path; set TMPDIR or WORKDIR"

if [ ! -d "$work/npm/node_modules/jcampconverter" ]; then
  echo "Installing jcampconverter into $work/npm ..." >&2
  mkdir -p "$work/npm"
  npm install --prefix "$work/npm" --no-audit --no-fund --silent jcampconverter >/dev/null ||
    bench_fail "could not install jcampconverter"
fi
cat >"$work/npm/convert.mjs" <<'EOF'
// Reads every file named on the command line and writes its X,Y pairs as
// text to OUTDIR/<name>.xy.
import { convert } from 'jcampconverter';
import { readFileSync, writeFileSync } from 'fs';
import { basename } from 'path';
const [outDir, ...inputs] = process.argv.slice(2);
for (const path of inputs) {
  const { x, y } = convert(readFileSync(path, 'latin1')).flatten[0].spectra[0].data;
  const lines = new Array(x.length);
  for (let i = 0; i < x.length; i++) lines[i] = x[i] + ' ' + y[i];
  writeFileSync(`${outDir}/${basename(path)}.xy`, lines.join('\n') + '\n');
}
EOF

# ---- inputs ----

# Four noisy spectra (a random walk of absorbance in 1/10000), repeated:
# each line holds X, the first value in SQZ, differences in DIF (runs of
# equal differences in DUP) up to the next line's first value, which is the
# line's check; the last line holds the last value alone.
make_inputs() {
  python3 - "$1" "$2" "$3" <<'EOF'
import random, sys
folder, count, points = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
rng = random.Random(2026)
def code(v, pos, neg):
    d = str(abs(v))
    return (neg if v < 0 else pos)[int(d[0])] + d[1:]
sqz = lambda v: code(v, '@ABCDEFGHI', '@abcdefghi')
dif = lambda v: code(v, '%JKLMNOPQR', '%jklmnopqr')
dup = lambda n: code(n, '?STUVWXYZs', '')
first_x, step, per_line = 400.0, 0.125, 16
def spectrum():
    y, v, slope = [], 5000, 0
    for _ in range(points):
        slope = max(-40, min(40, slope + rng.choice((-2, -1, 0, 0, 0, 1, 2))))
        v = max(0, min(30000, v + slope + rng.randint(-3, 3)))
        y.append(v)
    return y
def encode(y):
    out = ['##TITLE=bench', '##JCAMP-DX=4.24', '##DATA TYPE=INFRARED SPECTRUM', '##XUNITS=1/CM',
           '##YUNITS=ABSORBANCE', '##XFACTOR=1', '##YFACTOR=0.0001', '##FIRSTX=%g' % first_x,
           '##LASTX=%g' % (first_x + step * (points - 1)), '##DELTAX=%g' % step, '##NPOINTS=%d' % points,
           '##XYDATA=(X++(Y..Y))']
    k = 0
    while k + 1 < points:
        end = min(k + per_line, points - 1)
        line = ['%g' % (first_x + step * k), sqz(y[k])]
        i = k + 1
        while i <= end:
            same = 1
            while i + same <= end and y[i + same] - y[i + same - 1] == y[i] - y[i - 1]:
                same += 1
            line.append(dif(y[i] - y[i - 1]) + (dup(same) if same > 1 else ''))
            i += same
        out.append(''.join(line))
        k += per_line
    out += ['%g%s' % (first_x + step * (points - 1), sqz(y[-1])), '##END=', '']
    return '\r\n'.join(out).encode()
texts = [encode(spectrum()) for _ in range(4)]
for i in range(count):
    with open('%s/s%05d.jdx' % (folder, i), 'wb') as f:
        f.write(texts[i % 4])
EOF
}

dir=$work/jdx
echo "Generating $files ASDF JCAMP-DX files of $points points in $dir ..." >&2
rm -rf "$dir"
mkdir -p "$dir"
make_inputs "$dir" "$files" "$points"
mapfile -t names < <(cd "$dir" && ls -- *.jdx)
in_list=$work/.inputs size_list=$work/.sizes
bench_inputs "$dir" '*.jdx' "$in_list"

conv_wall='' conv_cpu='' floor_wall='' floor_cpu='' peer_wall='' peer_cpu='' peak_kb=0 modern_wall='' modern_cpu=
for ((r = 1; r <= runs; r++)); do
  echo "  run $r of $runs" >&2
  find "$dir" -maxdepth 1 \( -name '*.odf' -o -name '*.hdrx' \) -delete
  bench_timed "$dir" "$conv" "${names[@]}"
  tail -n 1 "$work/.stdout" | grep -qx "Finished $files files" || bench_fail "the batch did not finish"
  [ "$(find "$dir" -maxdepth 1 -name '*.odf' | wc -l)" -eq "$files" ] || bench_fail "not every .odf written"
  [ "$(wc -l <"$dir/s00000.odf")" -eq "$points" ] || bench_fail "s00000.odf does not hold $points lines"
  bench_min conv_wall "$run_us"
  bench_min conv_cpu "$cpu_us"
  bench_max peak_kb "$run_kb"
  find "$dir" -maxdepth 1 \( -name '*.odf' -o -name '*.hdrx' \) -printf '%s\n' >"$size_list"
  bench_floor "$in_list" "$size_list" "$work/floor"
  bench_min floor_wall "$floor_us"
  bench_min floor_cpu "$floor_cpu_us"

  find "$dir" -maxdepth 1 \( -name '*.odf' -o -name '*.hdrx' \) -delete
  bench_timed "$dir" "$conv" --modern "${names[@]}"
  tail -n 1 "$work/.stdout" | grep -qx "Finished $files files" || bench_fail "the modern batch did not finish"
  [ "$(wc -l <"$dir/s00000.odf")" -eq "$points" ] || bench_fail "the modern s00000.odf does not hold $points lines"
  bench_min modern_wall "$run_us"
  bench_min modern_cpu "$cpu_us"
  bench_max peak_kb "$run_kb"

  rm -rf "$work/xy"
  mkdir -p "$work/xy"
  bench_timed "$dir" env NODE_PATH="$work/npm/node_modules" node "$work/npm/convert.mjs" "$work/xy" "${names[@]}"
  [ "$(find "$work/xy" -name '*.xy' | wc -l)" -eq "$files" ] || bench_fail "jcampconverter did not write $files files"
  [ "$(wc -l <"$work/xy/s00000.jdx.xy")" -eq "$points" ] || bench_fail "jcampconverter read another point count"
  bench_min peer_wall "$run_us"
  bench_min peer_cpu "$cpu_us"
done

out_bytes=$(bench_sum "$size_list")
echo
awk -v n="$files" -v p="$points" -v ib="$in_bytes" -v ob="$out_bytes" -v cw="$conv_wall" -v cc="$conv_cpu" \
    -v fw="$floor_wall" -v fc="$floor_cpu" -v pw="$peer_wall" -v pc="$peer_cpu" -v kb="$peak_kb" -v c="$conv" \
    -v mw="$modern_wall" -v mc="$modern_cpu" 'BEGIN {
  mb = 1048576
  printf "%d files of %d points: %.1f MB in, %.1f MB out (.odf + .hdrx); peak memory %.1f MB\n", n, p, ib / mb, ob / mb, kb / 1024
  printf "%-16s %10s %10s\n", "", "wall s", "cpu s"
  printf "%-16s %10.3f %10.3f\n", "kestro-convert", cw / 1e6, cc / 1e6
  printf "%-16s %10.3f %10.3f\n", "  --modern", mw / 1e6, mc / 1e6
  printf "%-16s %10.3f %10.3f\n", "I/O floor", fw / 1e6, fc / 1e6
  printf "%-16s %10.3f %10.3f\n", "jcampconverter", pw / 1e6, pc / 1e6
  printf "ratio to the floor: %.2f (wall)   jcampconverter / kestro: %.2f (wall), %.2f (cpu)\n", cw / fw, pw / cw, pc / cc
  printf "modern: classic / modern %.2f (cpu), jcampconverter / modern %.2f (cpu)\n", cc / mc, pc / mc
  ok = cw / fw <= 3 && pw / cw >= 3 && mc <= cc && pc / mc >= 3
  printf "Targets: ratio <= 3, at least 3 x faster; modern no slower than classic, 3 x faster than jcampconverter (cpu): %s\n", ok ? "PASS" : "FAIL"
  printf "Times: best of the runs; floor: reading every input and writing files of the outputs sizes, page cache warm. Converter: %s\n", c
  exit ok ? 0 : 1
}' && exit 0 || exit 1
