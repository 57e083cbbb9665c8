#!/usr/bin/env bash
# Nothing lost, nothing cut short, with the real file system: converts into a
# small tmpfs until the disk is full ("Error 61 Disk full", no output cut
# short, the earlier outputs whole); kills a batch with SIGKILL halfway (no
# partial file under an output's name, and the next start clears what it
# left, from another folder); re-runs a batch over its own outputs
# with a trash of its own (the trash stays empty, while an output edited
# since and a file Kestro did not write go to it); and the collisions of an
# output with an instrument's file and with a queued input, the originals
# recovered from the trash byte for byte.
# Mounting needs root (CI runs as root); otherwise the full-disk part is skipped.
#
# Usage: scripts/file-safety.sh [CONVERTER...]
#   the native converter by default; another build by the command that runs
#   it (scripts/wine-run.sh build-win/bin/kestro-convert.exe)
set -euo pipefail
cd "$(dirname "$0")/.."
if [ $# -gt 0 ]; then conv=("$@"); else conv=(build/bin/kestro-convert); fi
# Its program by its full name, as the runs change folder.
for i in "${!conv[@]}"; do [ -f "${conv[$i]}" ] && conv[$i]=$(realpath "${conv[$i]}"); done
[ -x "${conv[0]}" ] || { echo "file-safety: no converter at ${conv[0]}" >&2; exit 2; }

work=$(mktemp -d "${TMPDIR:-/tmp}/kestro-safety.XXXXXX")
mnt=$work/full
cleanup() {
  mountpoint -q "$mnt" 2>/dev/null && umount "$mnt"
  rm -rf "$work"
}
trap cleanup EXIT
export XDG_DATA_HOME=$work/data
# The Windows build's Recycle Bin under wine is kept there too, once the folder exists.
mkdir -p "$XDG_DATA_HOME"
trash=$XDG_DATA_HOME/Trash/files

fail() { echo "file-safety: $*" >&2; exit 1; }

# COUNT CNF files of 16384 channels in FOLDER, named s00000.cnf ...
make_cnf() { python3 scripts/make-cnf.py "$1" "$2"; }

# Every output under its own name in FOLDER equals the reference's; none is
# left under a temporary name unless ALLOW_TEMPORARY is set.
check_whole() {
  local folder=$1 out name
  for out in "$folder"/*.spe "$folder"/*.odf; do
    [ -e "$out" ] || continue
    name=$(basename "$out")
    cmp -s "$out" "$work/ref/$name" || fail "$name in $folder is not the whole output"
  done
  if [ -z "${ALLOW_TEMPORARY:-}" ] && compgen -G "$folder/.kestro~*" >/dev/null; then
    fail "temporary files left in $folder"
  fi
}

mkdir -p "$work/ref"
make_cnf "$work/ref" 40
(cd "$work/ref" && "${conv[@]}" --spe ./*.cnf >/dev/null)

# ---- a full disk ----
mkdir -p "$mnt"
if [ "$(id -u)" != 0 ]; then
  echo "full disk: skipped (mounting a tmpfs needs root)"
elif ! mount -t tmpfs -o size=3m tmpfs "$mnt" 2>/dev/null; then
  echo "full disk: skipped (this system refuses to mount a tmpfs here)"
else
  cp "$work"/ref/s000[0-1]?.cnf "$mnt"/
  rc=0
  (cd "$mnt" && "${conv[@]}" --spe ./*.cnf >"$work/out" 2>"$work/err") || rc=$?
  [ $rc = 1 ] || fail "a full disk ended the run with status $rc"
  grep -q "Error 61 Disk full in 'ODF writing'" "$work/err" || fail "a full disk did not say 'Disk full': $(cat "$work/err")"
  grep -q "LOCKED" "$work/err" && fail "a full disk still speaks of a lock"
  done_files=$(grep -c ' done$' "$work/out" || true)
  [ "$done_files" -ge 1 ] || fail "nothing was converted before the disk was full"
  check_whole "$mnt"
  # The outputs of each file reported done are there, whole.
  for ((i = 0; i < done_files; i++)); do
    [ -e "$mnt/$(printf 's%05d.odf' "$i")" ] || fail "an earlier output is missing"
  done
  umount "$mnt"
  echo "full disk: Error 61 after $done_files files, no output cut short"
fi

# ---- a killed run ----
mkdir -p "$work/killed"
cp "$work"/ref/*.cnf "$work/killed"/
for round in 1 2 3; do
  (cd "$work/killed" && exec "${conv[@]}" --spe ./*.cnf >/dev/null 2>&1) &
  pid=$!
  # Killed once some outputs are there, and another is being written.
  for _ in $(seq 1 2000); do
    [ "$(find "$work/killed" -name '*.odf' | wc -l)" -ge $((round * 5)) ] && break
    sleep 0.001
  done
  kill -KILL "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
  ALLOW_TEMPORARY=1 check_whole "$work/killed"
done
# The next start clears them, though it writes in another folder.
left=$(find "$work/killed" -name '.kestro~*' | wc -l)
mkdir -p "$work/elsewhere"
cp "$work/ref/s00000.cnf" "$work/elsewhere"/
(cd "$work/elsewhere" && "${conv[@]}" --spe s00000.cnf >/dev/null)
check_whole "$work/killed"
[ -z "$(ls -A "$XDG_DATA_HOME/kestro/runs" 2>/dev/null)" ] || fail "run journals left: $(ls "$XDG_DATA_HOME/kestro/runs")"
(cd "$work/killed" && "${conv[@]}" --spe ./*.cnf >/dev/null)
check_whole "$work/killed"
echo "killed runs: no partial file under an output's name; $left leftovers cleared at the next start"

# ---- the trash ----
rm -rf "$XDG_DATA_HOME/Trash"
mkdir -p "$work/again"
cp "$work"/ref/s0000?.cnf "$work/again"/
(cd "$work/again" && "${conv[@]}" --spe ./*.cnf >/dev/null && "${conv[@]}" --spe ./*.cnf >/dev/null)
[ -z "$(ls -A "$trash" 2>/dev/null)" ] || fail "re-running over Kestro's own outputs filled the trash: $(ls "$trash")"
printf 'a note\r\n' >>"$work/again/s00001.odf"
cp "$work/again/s00001.odf" "$work/edited"
printf 'written by hand\r\n' >"$work/again/s00002.spe"
(cd "$work/again" && "${conv[@]}" --spe ./*.cnf >/dev/null)
[ "$(ls "$trash" | sort | tr '\n' ' ')" = "s00001.odf s00002.spe " ] || fail "the trash holds: $(ls "$trash")"
cmp -s "$trash/s00001.odf" "$work/edited" || fail "the edited output is not in the trash as it was"
[ "$(cat "$trash/s00002.spe")" = $'written by hand\r' ] || fail "the hand-written file is not in the trash as it was"
grep -q "^Path=$work/again/s00002.spe$" "$XDG_DATA_HOME/Trash/info/s00002.spe.trashinfo" || fail "no trash info"
check_whole "$work/again"
rm -rf "$XDG_DATA_HOME/Trash"
echo "trash: own unchanged outputs replaced in place; edited and foreign files kept"

# ---- collisions ----
mkdir -p "$work/clash"
printf ' 0  5 \r\n 1  7 \r\n' >"$work/clash/run1.odf"
printf 'instrument data\r\n' >"$work/clash/run1.dat"
(cd "$work/clash" && "${conv[@]}" run1.odf >/dev/null)
[ "$(cat "$trash/run1.dat")" = $'instrument data\r' ] || fail "the instrument's run1.dat is not in the trash"
cp tests/samples/cnf/SMP00011.CNF "$work/clash/a.cnf"
cp tests/samples/spe/SGM102432.spe "$work/clash/a.spe"
mkdir -p "$work/alone"
cp tests/samples/spe/SGM102432.spe "$work/alone/a.spe"
(cd "$work/alone" && "${conv[@]}" --spe a.spe >/dev/null)
(cd "$work/clash" && "${conv[@]}" --spe a.cnf a.spe >/dev/null)
cmp -s "$trash/a.spe" tests/samples/spe/SGM102432.spe || fail "the queued a.spe is not in the trash as it was"
cmp -s "$work/clash/a.odf" "$work/alone/a.odf" || fail "the queued a.spe did not convert as it would alone"
echo "collisions: originals recovered from the trash byte for byte"
echo "file-safety: all passed"
