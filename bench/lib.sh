# What the benchmarks in bench/ share: the converter and work folder, timing
# a command (wall clock, CPU, peak memory), the I/O floor, keeping the best
# of several runs, and the rows of the tables they print. A benchmark sources
# it first and is then left with what it converts:
#
#   . "$(dirname "$0")/lib.sh"
#
# Every helper that fails prints "<script>: <reason>" and exits with 2.
# shellcheck shell=bash disable=SC2034  # the helpers set variables for the scripts

bench_name=$(basename "$0")
bench_root=$(cd "$(dirname "$0")/.." && pwd)
rows=()

bench_fail() {
  echo "$bench_name: $*" >&2
  exit 2
}

# The script's own usage text: its header comment lines FIRST,LAST.
#   bench_usage 4,11
bench_usage() { sed -n "$1s/^# \{0,1\}//p" "$0"; }

# Bash's microsecond clock (so taking a time starts no process) and GNU time
# (CPU time and peak memory of the measured process).
bench_need_tools() {
  [ -n "${EPOCHREALTIME:-}" ] || bench_fail "bash 5 or later is needed"
  [ -x /usr/bin/time ] || bench_fail "/usr/bin/time is needed (Debian package 'time')"
}

# Sets conv to the absolute path of the converter to measure: the one given,
# else the build's.
#   bench_converter [PATH]
bench_converter() {
  conv=${1:-$bench_root/build/bin/kestro-convert}
  [ -x "$conv" ] || bench_fail "no executable converter at $conv (build it first)"
  conv=$(cd "$(dirname "$conv")" && pwd)/$(basename "$conv")
}

# xyconv (Debian package libxy-bin), installed when missing.
bench_need_xyconv() {
  command -v xyconv >/dev/null && return
  local sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  echo "Installing xyconv (libxy-bin) ..." >&2
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq libxy-bin >/dev/null ||
    { $sudo apt-get update -qq && DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq libxy-bin >/dev/null; } ||
    bench_fail "could not install libxy-bin"
}

# Sets work to the folder for inputs and outputs: DIR, created if missing and
# left in place, or a fresh temporary folder removed at the end.
#   bench_workdir NAME [DIR]
bench_workdir() {
  if [ -n "${2:-}" ]; then
    work=$2
    mkdir -p "$work"
  else
    work=$(mktemp -d "${TMPDIR:-/tmp}/kestro-$1-XXXXXX")
    trap 'rm -rf "$work"' EXIT
    trap 'exit 130' INT TERM
  fi
  work=$(cd "$work" && pwd)
}

# Runs COMMAND in DIR. Sets run_us (wall clock), cpu_us (user + system, both
# in microseconds), run_kb (peak resident memory) and run_rc; the command's
# output is left in $work/.stdout and $work/.stderr. A command that fails, or
# the converter saying anything on standard error, ends the benchmark, unless
# bench_tolerant is set (then the caller looks at run_rc and the outputs).
#   bench_timed DIR COMMAND...
bench_timed() {
  local dir=$1 t0 t1 user sys
  shift
  run_rc=0
  t0=${EPOCHREALTIME//[!0-9]/}
  (cd "$dir" && /usr/bin/time -f '%U %S %M' -o "$work/.time" "$@" >"$work/.stdout" 2>"$work/.stderr") || run_rc=$?
  t1=${EPOCHREALTIME//[!0-9]/}
  if [ -z "${bench_tolerant:-}" ] && { [ "$run_rc" -ne 0 ] || { [ "$1" = "$conv" ] && [ -s "$work/.stderr" ]; }; }; then
    echo "$bench_name: $(basename "$1") failed in $dir (exit $run_rc):" >&2
    cat "$work/.stdout" "$work/.stderr" >&2
    exit 2
  fi
  run_us=$((t1 - t0))
  # GNU time puts "Command exited with non-zero status" before its own line.
  read -r user sys run_kb < <(tail -n 1 "$work/.time")
  cpu_us=$(awk -v u="$user" -v s="$sys" 'BEGIN { printf "%d", (u + s) * 1e6 }')
}

# The least any conversion must do: read every input of INPUT_LIST (paths,
# one a line) and write files of the sizes in SIZE_LIST, timed inside one
# process with the page cache as the caller left it. Sets floor_us (wall
# clock) and floor_cpu_us (user + system).
#   bench_floor INPUT_LIST SIZE_LIST DIR
bench_floor() {
  local out
  rm -rf "$3"
  mkdir -p "$3"
  out=$(python3 - "$1" "$2" "$3" <<'EOF'
import os, sys, time
inputs = open(sys.argv[1]).read().split('\n')[:-1]
sizes = [int(s) for s in open(sys.argv[2]).read().split()]
folder = sys.argv[3]
buf = bytearray(1 << 20)
zeros = bytes(1 << 20)
t0, c0 = time.perf_counter(), os.times()
for path in inputs:
    with open(path, 'rb', buffering=0) as f:
        while f.readinto(buf):
            pass
for i, size in enumerate(sizes):
    with open('%s/%d' % (folder, i), 'wb', buffering=0) as f:
        while size > 0:
            size -= f.write(zeros[:min(size, len(zeros))])
c1 = os.times()
print(int((time.perf_counter() - t0) * 1e6), int((c1.user - c0.user + c1.system - c0.system) * 1e6))
EOF
) || bench_fail "the I/O floor could not be measured"
  read -r floor_us floor_cpu_us <<<"$out"
  rm -rf "$3"
}

# The files of DIR matching GLOB, one path a line, sorted, into LIST; their
# bytes are read once so that every timing starts with the page cache warm.
# Sets in_files and in_bytes.
#   bench_inputs DIR GLOB LIST
bench_inputs() {
  find "$1" -maxdepth 1 -type f -name "$2" | sort >"$3"
  in_files=$(wc -l <"$3")
  in_bytes=$(xargs -r -d '\n' stat -c %s <"$3" | awk '{ s += $1 } END { print s + 0 }')
  xargs -r -d '\n' cat <"$3" >/dev/null
}

# The sizes, one a line, of the files in DIR matching the globs.
#   bench_sizes DIR GLOB...
bench_sizes() {
  local dir=$1
  shift
  (cd "$dir" && for p in "$@"; do find . -maxdepth 1 -type f -name "$p" -printf '%s\n'; done)
}

# The sum of the numbers in FILE (one or more a line).
bench_sum() { awk '{ for (i = 1; i <= NF; i++) s += $i } END { print s + 0 }' "$1"; }

# Keeps the smaller (bench_min) or larger (bench_max) of variable NAME and
# VALUE in NAME; an empty NAME takes VALUE. Whole or decimal numbers.
#   bench_min NAME VALUE
bench_min() {
  if [ -z "${!1}" ] || awk -v a="$2" -v b="${!1}" 'BEGIN { exit !(a < b) }'; then printf -v "$1" '%s' "$2"; fi
}
bench_max() {
  if [ -z "${!1}" ] || awk -v a="$2" -v b="${!1}" 'BEGIN { exit !(a > b) }'; then printf -v "$1" '%s' "$2"; fi
}

# Runs COMMAND in DIR RUNS times, calling the function named by
# bench_before_run (when set) before each run; sets best_wall_us and
# best_cpu_us, the best of each over the runs.
#   bench_best RUNS DIR COMMAND...
bench_best() {
  local runs=$1 dir=$2 r
  shift 2
  best_wall_us='' best_cpu_us=''
  for ((r = 1; r <= runs; r++)); do
    [ -z "${bench_before_run:-}" ] || "$bench_before_run"
    bench_timed "$dir" "$@"
    bench_min best_wall_us "$run_us"
    bench_min best_cpu_us "$cpu_us"
  done
}

# A / B with two decimals.
bench_ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

# Adds one row, formatted by printf, to the table.
#   bench_row FORMAT ARGS...
bench_row() {
  local row
  # shellcheck disable=SC2059
  printf -v row "$@"
  rows+=("$row")
}

# Prints the table: the heading, formatted by printf, then every row.
#   bench_table FORMAT HEADINGS...
bench_table() {
  # shellcheck disable=SC2059
  printf "$@"
  [ ${#rows[@]} -eq 0 ] || printf '%s\n' "${rows[@]}"
}
