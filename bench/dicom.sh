#!/usr/bin/env bash
# Benchmark of kestro-convert on DICOM files: copies of the real CT sample
# (tests/samples/dcm/CT_small.dcm) converted in one kestro-convert run,
# each to its ".hdr" listing and ".odf" histogram, timed in the same run
# against dcmdump (Debian package dcmtk, installed when missing) listing the
# same files in one process into one text file.
#
# Usage: bench/dicom.sh [-f FILES] [-r RUNS] [CONVERTER [WORKDIR]]
#
#   CONVERTER  the kestro-convert to measure (default: build/bin/kestro-convert
#              under the repository root)
#   WORKDIR    where the inputs and outputs go; created if missing and left in
#              place (default: a fresh temporary folder, removed afterwards)
#   -f         copies of the CT sample (default 1000)
#   -r         runs per timing; the best one counts (default 5)
#
# Target: Kestro no slower than dcmdump (wall clock). CPU time (user + sys,
# from /usr/bin/time) is reported too, as wall clock is noisy on a shared
# machine, and so is the I/O floor: creating files of the sizes Kestro wrote. Exit status: 0 target met, 1 missed, 2 usage or setup error or a
# failed conversion.
set -euo pipefail

files=1000
runs=5
usage() { sed -n '8,15s/^# \{0,1\}//p' "$0"; }
while getopts ':f:r:h' opt; do
  case $opt in
    f) files=$OPTARG ;;
    r) runs=$OPTARG ;;
    h) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -le 2 ] || { usage >&2; exit 2; }
for v in "$files" "$runs"; do
  [[ $v =~ ^[1-9][0-9]*$ ]] || { echo "dicom.sh: -f and -r need whole numbers of at least 1" >&2; exit 2; }
done

root=$(cd "$(dirname "$0")/.." && pwd)
sample=$root/tests/samples/dcm/CT_small.dcm
conv=${1:-$root/build/bin/kestro-convert}
[ -x "$conv" ] || { echo "dicom.sh: no executable converter at $conv (build it first)" >&2; exit 2; }
conv=$(cd "$(dirname "$conv")" && pwd)/$(basename "$conv")
[ -f "$sample" ] || { echo "dicom.sh: the CT sample is missing: $sample" >&2; exit 2; }
[ -n "${EPOCHREALTIME:-}" ] || { echo "dicom.sh: bash 5 or later is needed" >&2; exit 2; }
[ -x /usr/bin/time ] || { echo "dicom.sh: /usr/bin/time is needed (Debian package 'time')" >&2; exit 2; }

if ! command -v dcmdump >/dev/null; then
  echo "Installing dcmdump (dcmtk) ..." >&2
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq dcmtk >/dev/null ||
    { $sudo apt-get update -qq && DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq dcmtk >/dev/null; } ||
    { echo "dicom.sh: could not install dcmtk" >&2; exit 2; }
fi

if [ $# -ge 2 ]; then
  work=$2
  mkdir -p "$work"
else
  work=$(mktemp -d "${TMPDIR:-/tmp}/kestro-dicom.XXXXXX")
  trap 'rm -rf "$work"' EXIT
  trap 'exit 130' INT TERM
fi
work=$(cd "$work" && pwd)
dir=$work/ct
rm -rf "$dir"
mkdir -p "$dir"
echo "Copying the CT sample $files times into $dir ..." >&2
for ((i = 0; i < files; i++)); do cp "$sample" "$(printf '%s/ct%05d.dcm' "$dir" "$i")"; done
mapfile -t names < <(cd "$dir" && ls -- *.dcm)
cat "$dir"/*.dcm >/dev/null

# Runs a command in the CT folder; sets wall_us and cpu_s.
#   timed COMMAND...
timed() {
  local t0 t1 rc=0
  t0=${EPOCHREALTIME//[!0-9]/}
  (cd "$dir" && /usr/bin/time -f '%U %S' -o "$work/.time" "$@" >"$work/.stdout" 2>"$work/.stderr") || rc=$?
  t1=${EPOCHREALTIME//[!0-9]/}
  if [ $rc -ne 0 ] || [ -s "$work/.stderr" ]; then
    echo "dicom.sh: $(basename "$1") failed (exit $rc):" >&2
    head -20 "$work/.stderr" >&2
    exit 2
  fi
  wall_us=$((t1 - t0))
  cpu_s=$(awk '{ print $1 + $2 }' "$work/.time")
}

# Writing files of the sizes Kestro wrote, one after the other in one
# process: what creating and filling the outputs costs on this disk. Sets wall_us.
floor_io() {
  rm -rf "$work/floor"
  mkdir -p "$work/floor"
  (cd "$dir" && find . -maxdepth 1 -type f \( -name '*.hdr' -o -name '*.odf' \) -printf '%s\n') >"$work/.sizes"
  wall_us=$(python3 - "$work/.sizes" "$work/floor" <<'PY'
import sys, time
sizes = [int(s) for s in open(sys.argv[1]).read().split()]
t0 = time.perf_counter()
for i, size in enumerate(sizes):
    with open('%s/%d' % (sys.argv[2], i), 'wb', buffering=0) as f:
        f.write(bytes(size))
print(int((time.perf_counter() - t0) * 1e6))
PY
)
  rm -rf "$work/floor"
}

best() { awk -v a="$1" -v b="$2" 'BEGIN { print (a == "" || b < a) ? b : a }'; }

k_wall='' k_cpu='' d_wall='' d_cpu='' f_wall=''
for ((r = 1; r <= runs; r++)); do
  echo "  run $r of $runs" >&2
  rm -f "$dir"/*.hdr "$dir"/*.odf
  timed "$conv" "${names[@]}"
  tail -n 1 "$work/.stdout" | grep -qx "Finished $files files" || { echo "dicom.sh: the batch did not finish" >&2; exit 2; }
  [ "$(find "$dir" -name '*.hdr' | wc -l)" -eq "$files" ] || { echo "dicom.sh: not every .hdr was written" >&2; exit 2; }
  [ "$(find "$dir" -name '*.odf' | wc -l)" -eq "$files" ] || { echo "dicom.sh: not every .odf was written" >&2; exit 2; }
  k_wall=$(best "$k_wall" "$wall_us")
  k_cpu=$(best "$k_cpu" "$cpu_s")
  floor_io
  f_wall=$(best "$f_wall" "$wall_us")
  # dcmdump prints to its standard output, which timed keeps in a file.
  timed dcmdump "${names[@]}"
  d_wall=$(best "$d_wall" "$wall_us")
  d_cpu=$(best "$d_cpu" "$cpu_s")
done
listing=$(cat "$dir"/*.hdr "$dir"/*.odf | wc -c)

echo
printf '%-10s %6s %10s %8s %10s\n' program files "wall s" "CPU s" "files/s"
awk -v n="$files" -v w="$k_wall" -v c="$k_cpu" 'BEGIN { printf "%-10s %6d %10.3f %8.2f %10.0f\n", "kestro", n, w / 1e6, c, n / (w / 1e6) }'
awk -v n="$files" -v w="$d_wall" -v c="$d_cpu" 'BEGIN { printf "%-10s %6d %10.3f %8.2f %10.0f\n", "dcmdump", n, w / 1e6, c, n / (w / 1e6) }'
awk -v n="$files" -v w="$f_wall" 'BEGIN { printf "%-10s %6d %10.3f %8s %10s\n", "I/O floor", n, w / 1e6, "-", "-" }'
echo
echo "Best of $runs runs each; CPU = user + sys. Kestro wrote $((listing / 1024)) KiB of listings and histograms;"
echo "the I/O floor writes files of those sizes (2 per input) in one process, dcmdump writes one listing."
ok=$(awk -v k="$k_wall" -v d="$d_wall" 'BEGIN { print (k <= d) ? 1 : 0 }')
if [ "$ok" -eq 1 ]; then echo "Target met: Kestro no slower than dcmdump."; exit 0; fi
echo "Target missed: Kestro slower than dcmdump."
exit 1
