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
# shellcheck source=bench/lib.sh
. "$(dirname "$0")/lib.sh"

files=1000
runs=5
while getopts ':f:r:h' opt; do
  case $opt in
    f) files=$OPTARG ;;
    r) runs=$OPTARG ;;
    h) bench_usage 8,15; exit 0 ;;
    *) bench_usage 8,15 >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -le 2 ] || { bench_usage 8,15 >&2; exit 2; }
for v in "$files" "$runs"; do
  [[ $v =~ ^[1-9][0-9]*$ ]] || bench_fail "-f and -r need whole numbers of at least 1"
done

sample=$bench_root/tests/samples/dcm/CT_small.dcm
bench_converter "${1:-}"
[ -f "$sample" ] || bench_fail "the CT sample is missing: $sample"
bench_need_tools

if ! command -v dcmdump >/dev/null; then
  echo "Installing dcmdump (dcmtk) ..." >&2
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq dcmtk >/dev/null ||
    { $sudo apt-get update -qq && DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq dcmtk >/dev/null; } ||
    bench_fail "could not install dcmtk"
fi

bench_workdir dicom "${2:-}"
dir=$work/ct
rm -rf "$dir"
mkdir -p "$dir"
echo "Copying the CT sample $files times into $dir ..." >&2
for ((i = 0; i < files; i++)); do cp "$sample" "$(printf '%s/ct%05d.dcm' "$dir" "$i")"; done
mapfile -t names < <(cd "$dir" && ls -- *.dcm)
cat "$dir"/*.dcm >/dev/null

# Writing files of the sizes Kestro wrote, one after the other in one
# process (no input read): what creating and filling the outputs costs on
# this disk. Sets floor_us.
floor_io() {
  : >"$work/.none"
  bench_sizes "$dir" '*.hdr' '*.odf' >"$work/.sizes"
  bench_floor "$work/.none" "$work/.sizes" "$work/floor"
}

k_wall='' k_cpu='' d_wall='' d_cpu='' f_wall=''
for ((r = 1; r <= runs; r++)); do
  echo "  run $r of $runs" >&2
  rm -f "$dir"/*.hdr "$dir"/*.odf
  bench_timed "$dir" "$conv" "${names[@]}"
  tail -n 1 "$work/.stdout" | grep -qx "Finished $files files" || bench_fail "the batch did not finish"
  [ "$(find "$dir" -name '*.hdr' | wc -l)" -eq "$files" ] || bench_fail "not every .hdr was written"
  [ "$(find "$dir" -name '*.odf' | wc -l)" -eq "$files" ] || bench_fail "not every .odf was written"
  bench_min k_wall "$run_us"
  bench_min k_cpu "$cpu_us"
  floor_io
  bench_min f_wall "$floor_us"
  # dcmdump prints to its standard output, which bench_timed keeps in a file.
  bench_timed "$dir" dcmdump "${names[@]}"
  bench_min d_wall "$run_us"
  bench_min d_cpu "$cpu_us"
done
listing=$(cat "$dir"/*.hdr "$dir"/*.odf | wc -c)

echo
printf '%-10s %6s %10s %8s %10s\n' program files "wall s" "CPU s" "files/s"
awk -v n="$files" -v w="$k_wall" -v c="$k_cpu" 'BEGIN { printf "%-10s %6d %10.3f %8.2f %10.0f\n", "kestro", n, w / 1e6, c / 1e6, n / (w / 1e6) }'
awk -v n="$files" -v w="$d_wall" -v c="$d_cpu" 'BEGIN { printf "%-10s %6d %10.3f %8.2f %10.0f\n", "dcmdump", n, w / 1e6, c / 1e6, n / (w / 1e6) }'
awk -v n="$files" -v w="$f_wall" 'BEGIN { printf "%-10s %6d %10.3f %8s %10s\n", "I/O floor", n, w / 1e6, "-", "-" }'
echo
echo "Best of $runs runs each; CPU = user + sys. Kestro wrote $((listing / 1024)) KiB of listings and histograms;"
echo "the I/O floor writes files of those sizes (2 per input) in one process, dcmdump writes one listing."
ok=$(awk -v k="$k_wall" -v d="$d_wall" 'BEGIN { print (k <= d) ? 1 : 0 }')
if [ "$ok" -eq 1 ]; then echo "Target met: Kestro no slower than dcmdump."; exit 0; fi
echo "Target missed: Kestro slower than dcmdump."
exit 1
