#!/usr/bin/env bash
# Benchmark of kestro-convert on ion-beam inputs: a batch of OMDAQ files, an
# EVT event list (and one ten times larger, for memory), and a CSV table.
#
# Usage: bench/ionbeam.sh [-p PART] [-r RUNS] [CONVERTER [WORKDIR]]
#
#   CONVERTER  the kestro-convert to measure (default: build/bin/kestro-convert
#              under the repository root)
#   WORKDIR    where the inputs and outputs go; created if missing and left in
#              place (default: a fresh temporary folder, removed afterwards)
#   -p         omdaq, evt, csv or all (default all)
#   -r         runs per timing; the best one counts (default 1)
#
# OMDAQ: 2,000 version-13 files of 8,192 channels, half of them compressed,
#        "kestro-convert --spe" in one run (".spe", ".hdr", ".odf" per file).
#        Target: at most 3 x the I/O floor.
# EVT:   an 80 MB list of event values (whole ADC channels as 8-byte reals)
#        and one of 800 MB, to ".dat" and ".odf"; and an 80 MB list of
#        arbitrary reals, for the cost of 15-digit values. Target: at most
#        4 x the floor, peak memory under 64 MB for both sizes.
# CSV:   a 100 MB table of 10 columns (a header ending in a comma, so that
#        each line is read whole), to 9 column files. Target: at most 4 x.
# The floor, measured in the same run with the page cache warm: reading every
# input and writing files of the same sizes as the outputs.
# Exit status: 0 every target met, 1 a target missed, 2 usage or setup error.
set -euo pipefail
# shellcheck source=bench/lib.sh
. "$(dirname "$0")/lib.sh"

part=all
runs=1
while getopts ':p:r:h' opt; do
  case $opt in
    p) part=$OPTARG ;;
    r) runs=$OPTARG ;;
    h) bench_usage 4,12; exit 0 ;;
    *) bench_usage 4,12 >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -le 2 ] || { bench_usage 4,12 >&2; exit 2; }
[[ $part =~ ^(omdaq|evt|csv|all)$ ]] || bench_fail "-p takes omdaq, evt, csv or all"
[[ $runs =~ ^[1-9][0-9]*$ ]] || bench_fail "-r needs a whole number of at least 1"
bench_need_tools
command -v python3 >/dev/null || bench_fail "python3 is needed"
bench_converter "${1:-}"
bench_workdir ionbeam "${2:-}"

# ---- inputs ----

make_omdaq() {
  python3 - "$1" <<'EOF'
import random, struct, sys
folder = sys.argv[1]
channels, E, S, data = 8192, 3095, 3891, 4211
rng = random.Random(2026)

def header(compressed):
    h = bytearray(data)
    h[0], h[1] = 13, 0x42
    struct.pack_into('<h', h, 4, channels)
    h[35:54] = b'21/11/2026 09:30:00'
    h[54:80] = b'Benchmark target: Au on Si'
    struct.pack_into('<fhhh', h, E - 10, 2.0, 2, 4, 1)
    struct.pack_into('<iiiiiff', h, E, 600, 100000, 60000000, 59000000, 59000000, 1.0, 1e-12)
    struct.pack_into('<hhii', h, S, 1, compressed, 5000, 10000000)
    struct.pack_into('<fff', h, S + 64 + 34, 3.0, 2.5, 0.0)
    struct.pack_into('<h5f', h, S + 64 + 139, 1, 50, 80, 170, 0, 0)
    return bytes(h)

def compress(counts):
    out = bytearray()
    for v in counts:
        if v < 32:
            out.append(0xE0 | v)
            continue
        digits = []
        while v:
            digits.insert(0, v % 32)
            v //= 32
        out += bytes(0xA0 | d for d in digits[:-1])
        out.append(digits[-1])
    return bytes(out)

spectra = [[rng.choice((0, 3, 40, 700, 5000)) + rng.randrange(30) for _ in range(channels)] for _ in range(4)]
plain = [header(0) + struct.pack('<%di' % channels, *s) for s in spectra]
packed = [header(1) + compress(s) for s in spectra]
for i in range(2000):
    with open('%s/r%04d._' % (folder, i), 'wb') as f:
        f.write((packed if i % 2 else plain)[i // 2 % 4])
EOF
}

# Event values: whole ADC channels, or arbitrary reals.
make_evt() {
  python3 - "$1" "$2" "$3" <<'EOF'
import array, random, sys
path, size, kind = sys.argv[1], int(sys.argv[2]) << 20, sys.argv[3]
rng = random.Random(8)
n = 1 << 17
if kind == 'adc':
    chunk = array.array('d', (float(rng.randrange(8192)) for _ in range(n))).tobytes()
else:
    chunk = array.array('d', (rng.random() * 10000 for _ in range(n))).tobytes()
with open(path, 'wb') as f:
    left = size
    while left > 0:
        piece = chunk[:left]
        f.write(piece)
        left -= len(piece)
EOF
}

make_csv() {
  python3 - "$1" "$2" <<'EOF'
import random, sys
path, size = sys.argv[1], int(sys.argv[2]) << 20
rng = random.Random(10)
lines = []
for i in range(20000):
    lines.append(','.join([str(i)] + ['%.2f' % (rng.random() * 1000) for _ in range(4)] +
                          [str(rng.randrange(100000)) for _ in range(5)]) + '\r\n')
block = ''.join(lines).encode()
with open(path, 'wb') as f:
    f.write(b'time,e1,e2,e3,e4,c1,c2,c3,c4,c5,\r\n')
    left = size
    while left > 0:
        f.write(block)
        left -= len(block)
EOF
}

# ---- measuring ----

# Runs the converter in DIR; sets conv_s and peak_kb, and keeps its words.
# A CSV run says "Found N arguments" on standard error: only the exit status
# tells a failure.
convert() {
  local dir=$1
  shift
  bench_tolerant=1 bench_timed "$dir" "$conv" "$@"
  if [ "$run_rc" -ne 0 ]; then
    echo "$bench_name: kestro-convert failed in $dir (exit $run_rc):" >&2
    tail -n 5 "$work/.stdout" "$work/.stderr" >&2
    exit 2
  fi
  conv_s=$(awk -v u="$run_us" 'BEGIN { printf "%.3f", u / 1e6 }')
  peak_kb=$run_kb
}

# Reading the inputs and writing files of the outputs' sizes; sets floor_s.
#   floor_io INPUT_LIST OUTPUT_LIST
floor_io() {
  xargs -r -d '\n' stat -c %s <"$2" >"$work/.sizes"
  bench_floor "$1" "$work/.sizes" "$work/floor"
  floor_s=$(awk -v u="$floor_us" 'BEGIN { printf "%.3f", u / 1e6 }')
}

failed=0

# measure NAME DIR IN_GLOB "OUT_GLOBS" MAX_RATIO MAX_PEAK_MB ARGS...
measure() {
  local name=$1 dir=$2 in_glob=$3 out_globs=$4 max_ratio=$5 max_mb=$6 r best_c='' best_f='' peak=0
  shift 6
  find "$dir" -maxdepth 1 -name "$in_glob" | sort >"$work/.in"
  xargs -d '\n' cat <"$work/.in" >/dev/null  # page cache warm
  for ((r = 1; r <= runs; r++)); do
    echo "  $name: run $r of $runs" >&2
    # shellcheck disable=SC2086
    (cd "$dir" && for p in $out_globs; do find . -maxdepth 1 -name "$p" -delete; done)
    convert "$dir" "$@"
    # shellcheck disable=SC2086
    (cd "$dir" && for p in $out_globs; do find "$dir" -maxdepth 1 -name "$p"; done) >"$work/.out"
    floor_io "$work/.in" "$work/.out"
    bench_min best_c "$conv_s"
    bench_min best_f "$floor_s"
    bench_max peak "$peak_kb"
  done
  local in_b out_b row
  in_b=$(xargs -d '\n' stat -c %s <"$work/.in" | awk '{ s += $1 } END { print s }')
  out_b=$(xargs -d '\n' stat -c %s <"$work/.out" | awk '{ s += $1 } END { print s }')
  row=$(awk -v n="$name" -v ib="$in_b" -v ob="$out_b" -v c="$best_c" -v f="$best_f" -v kb="$peak" \
            -v mr="$max_ratio" -v mm="$max_mb" 'BEGIN {
    ratio = f > 0 ? c / f : 0
    ok = (mr == 0 || ratio <= mr) && (mm == 0 || kb / 1024 < mm)
    target = (mr ? "ratio<=" mr : "") (mr && mm ? ", " : "") (mm ? "peak<" mm "MB" : "")
    printf "%-18s %9.1f %9.1f %9.2f %8.2f %6.2f %8.1f  %-22s %s\n", n, ib / 1048576, ob / 1048576, c, f, ratio,
      kb / 1024, target == "" ? "(none)" : target, target == "" ? "" : (ok ? "PASS" : "FAIL")
  }')
  rows+=("$row")
  [[ $row == *FAIL* ]] && failed=1
  return 0
}

check_finished() {
  tail -n 1 "$work/.stdout" | grep -qx "Finished $1 files" || bench_fail "the batch did not finish"
}

if [ "$part" = omdaq ] || [ "$part" = all ]; then
  echo "Generating 2,000 OMDAQ files in $work ..." >&2
  rm -rf "$work/omdaq"
  mkdir -p "$work/omdaq"
  make_omdaq "$work/omdaq"
  names=()
  for ((i = 0; i < 2000; i++)); do names+=("$(printf 'r%04d._' "$i")"); done
  measure "OMDAQ 2000 files" "$work/omdaq" '*._' '*.spe *.hdr *.odf' 3 0 --spe "${names[@]}"
  check_finished 2000
fi

if [ "$part" = evt ] || [ "$part" = all ]; then
  mkdir -p "$work/evt"
  for spec in "80 adc" "800 adc" "80 real"; do
    read -r mb kind <<<"$spec"
    echo "Generating a $mb MB EVT list ($kind) ..." >&2
    rm -f "$work"/evt/*
    make_evt "$work/evt/list.evt" "$mb" "$kind"
    ratio=4
    [ "$kind" = real ] && ratio=0  # reported, not a target
    measure "EVT $mb MB $kind" "$work/evt" 'list.evt' 'list.dat list.odf' "$ratio" 64 list.evt
    check_finished 1
  done
  rm -f "$work"/evt/*
fi

if [ "$part" = csv ] || [ "$part" = all ]; then
  echo "Generating a 100 MB CSV table ..." >&2
  rm -rf "$work/csv"
  mkdir -p "$work/csv"
  make_csv "$work/csv/table.csv" 100
  measure "CSV 100 MB" "$work/csv" 'table.csv' 'table-*.dat' 4 0 table.csv
  [ "$(find "$work/csv" -name 'table-*.dat' | wc -l)" -eq 9 ] || bench_fail "expected 9 column files"
fi

echo
bench_table '%-18s %9s %9s %9s %8s %6s %8s  %-22s\n' input "in MB" "out MB" "convert s" "floor s" ratio "peak MB" target
echo
echo "Times: best of $runs run(s); floor: reading the inputs and writing files of the outputs' sizes."
echo "MB = 2^20 bytes. Converter: $conv"
[ $failed = 0 ] || exit 1
exit 0
