#!/usr/bin/env bash
# What the way outputs are written costs a batch: two converters take turns
# on the CNF batch of bench/nuclear.sh, so that both meet the same machine.
#
# Usage: bench/outputs.sh [-f FILES] [-r ROUNDS] [-s SECONDS] [-l LIMIT] [-o] [-v] BEFORE [AFTER [WORKDIR]]
#
#   BEFORE   the converter to compare against, built with the same options
#            (for the cost of temporary names: the commit before them, see
#            docs/performance.md)
#   AFTER    the converter measured (default: build/bin/kestro-convert)
#   WORKDIR  where the inputs and outputs go (default: a fresh temporary
#            folder, removed afterwards)
#   -f       number of CNF files of 16384 channels (default 2000)
#   -r       rounds; each converts the batch once with each converter, from a
#            folder holding only the inputs, dirty pages written first, the
#            two in turns (default 9)
#   -s       seconds to wait after the outputs are deleted (default 6): ext4
#            without a journal holds back inodes deleted in the last five
#            seconds, and a run that starts sooner pays for skipping them
#   -l       the allowed change of the median wall time in percent (default 5)
#   -o       over the outputs of the run before: each converter converts in a
#            folder of its own and its outputs are left there for the next
#            round (a batch run again)
#   -v       print each round's times
#
# Prints the median and best wall and CPU times of each converter and the
# change. Exit status: 0 within the limit, 1 over it, 2 usage or setup error
# or a failed conversion.
set -euo pipefail
# shellcheck source=bench/lib.sh
. "$(dirname "$0")/lib.sh"

cnf_files=2000
rounds=9
limit=5
again=0
settle=6
verbose=0
while getopts ':f:r:s:l:ovh' opt; do
  case $opt in
    f) cnf_files=$OPTARG ;;
    r) rounds=$OPTARG ;;
    s) settle=$OPTARG ;;
    l) limit=$OPTARG ;;
    o) again=1 ;;
    v) verbose=1 ;;
    h) bench_usage 5,26; exit 0 ;;
    *) bench_usage 5,26 >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
if [ $# -lt 1 ] || [ $# -gt 3 ]; then bench_usage 5,26 >&2; exit 2; fi
[[ $cnf_files =~ ^[1-9][0-9]*$ ]] || bench_fail "-f needs a whole number of at least 1"
[[ $rounds =~ ^[1-9][0-9]*$ ]] || bench_fail "-r needs a whole number of at least 1"
[[ $limit =~ ^[0-9]+(\.[0-9]+)?$ ]] || bench_fail "-l needs a number"
[[ $settle =~ ^[0-9]+$ ]] || bench_fail "-s needs a whole number"
bench_need_tools
command -v python3 >/dev/null || bench_fail "python3 is needed to generate the inputs"
bench_converter "$1"
before=$conv
bench_converter "${2:-}"
after=$conv
bench_workdir outputs "${3:-}"

echo "Generating $cnf_files CNF files of 16384 channels in $work ..." >&2
rm -rf "$work/cnf"
mkdir -p "$work/cnf"
python3 "$bench_root/scripts/make-cnf.py" "$work/cnf" "$cnf_files"
names=()
for ((i = 0; i < cnf_files; i++)); do names+=("$(printf 's%05d.cnf' "$i")"); done
bench_inputs "$work/cnf" '*.cnf' "$work/.inputs"

# The folder each converter converts in. Run again, each has its own, with
# the inputs linked in and its outputs from an untimed first run.
folder() { if [ "$again" = 1 ]; then echo "$work/cnf-$1"; else echo "$work/cnf"; fi; }
if [ "$again" = 1 ]; then
  for side in before after; do
    rm -rf "$(folder "$side")"
    cp -l -r "$work/cnf" "$(folder "$side")"
    bench_timed "$(folder "$side")" "${!side}" --spe "${names[@]}"
  done
fi

# Each converter's times, one "wall_us cpu_us" line a round.
: >"$work/.before"
: >"$work/.after"
for ((r = 1; r <= rounds; r++)); do
  echo "  round $r of $rounds" >&2
  # Turns alternate (before, after; then after, before), so that neither
  # always follows the other's deleted outputs.
  order="before after"
  ((r % 2)) || order="after before"
  for side in $order; do
    conv=${!side}
    sync
    if [ "$again" = 0 ]; then
      find "$work/cnf" -maxdepth 1 -type f ! -name '*.cnf' -delete
      sync
      sleep "$settle"
    fi
    bench_timed "$(folder "$side")" "$conv" --spe "${names[@]}"
    tail -n 1 "$work/.stdout" | grep -qx "Finished $cnf_files files" ||
      bench_fail "$(basename "$conv"): the batch did not finish"
    echo "$run_us $cpu_us" >>"$work/.$side"
  done
done
[ "$verbose" = 0 ] || { echo "wall_us cpu_us, before | after:"; paste "$work/.before" "$work/.after"; }

# median and best of column COL (1 wall, 2 CPU) of FILE, in seconds
stats() {
  sort -n -k "$2" "$1" | awk -v c="$2" '{ v[NR] = $c } END {
    m = NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2
    printf "%.3f %.3f\n", m / 1e6, v[1] / 1e6 }'
}
read -r bw_med bw_best < <(stats "$work/.before" 1)
read -r aw_med aw_best < <(stats "$work/.after" 1)
read -r bc_med bc_best < <(stats "$work/.before" 2)
read -r ac_med ac_best < <(stats "$work/.after" 2)
change() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%+.1f %%", (b / a - 1) * 100 }'; }
bench_row '%-18s %9s %9s %9s' "wall, median" "$bw_med" "$aw_med" "$(change "$bw_med" "$aw_med")"
bench_row '%-18s %9s %9s %9s' "wall, best" "$bw_best" "$aw_best" "$(change "$bw_best" "$aw_best")"
bench_row '%-18s %9s %9s %9s' "CPU, median" "$bc_med" "$ac_med" "$(change "$bc_med" "$ac_med")"
bench_row '%-18s %9s %9s %9s' "CPU, best" "$bc_best" "$ac_best" "$(change "$bc_best" "$ac_best")"
echo
how="outputs deleted before each run"
[ "$again" = 0 ] || how="each run over its own outputs"
echo "$cnf_files CNF files, $rounds rounds, $how; before: $before; after: $after"
bench_table '%-18s %9s %9s %9s\n' "seconds" before after change
echo
awk -v a="$bw_med" -v b="$aw_med" -v l="$limit" 'BEGIN { exit !((b / a - 1) * 100 <= l) }' && exit 0
echo "$bench_name: the median wall time grew by more than $limit %" >&2
exit 1
