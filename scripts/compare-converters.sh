#!/usr/bin/env bash
# Converts the example files and the real samples with the native
# kestro-convert and with another build of it (the WebAssembly one under
# node, the Windows one under wine), and compares every output and message
# byte for byte; only the folder names (Windows writes its own separators
# in them) and the clock texts (dd-mm-yyyy hh:mm:ss) may differ.
#   scripts/compare-converters.sh NATIVE_CONVERTER NAME OTHER_CONVERTER...
#   e.g. scripts/compare-converters.sh build/bin/kestro-convert web node build-web/kestro-convert.js
#        scripts/compare-converters.sh build/bin/kestro-convert windows wine build-win/bin/kestro-convert.exe
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
native=$(realpath "$1")
name=$2
shift 2
other=("$@")
# The other converter's program (a .js or .exe) by its full name, as the runs change folder.
for i in "${!other[@]}"; do [ -f "${other[$i]}" ] && other[$i]=$(realpath "${other[$i]}"); done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Any file an output replaces goes to a trash of the comparison's own.
export XDG_DATA_HOME="$work/data"
# The Windows build's Recycle Bin under wine is kept there too, once the folder exists.
mkdir -p "$XDG_DATA_HOME"

# The samples, one run per format folder, classic and modern readers alike;
# DICOM needs DCMTK, which only the native build has.
convert_samples() {
  local out=$1
  shift
  mkdir -p "$out"
  for dir in "$root"/tests/samples/*/; do
    local kind
    kind=$(basename "$dir")
    [ "$kind" = dcm ] && continue
    for modern in "" --modern; do
      local into="$out/$kind$modern"
      mkdir -p "$into"
      cp -p "$dir"/* "$into"/
      rm -f "$into"/*.md
      (cd "$into" && for f in *; do echo "\$ $f"; "$@" $modern "$f" 2>&1 || echo "exit $?"; done) >"$into.log"
    done
  done
}

# Folder and file names beyond ASCII, a file in the way of an output (it
# goes to the trash) and a second run over the first one's outputs.
convert_names() {
  local into="$1/names é 日本"
  shift
  mkdir -p "$into"
  cp -p "$root/examples/ortec.chn" "$into/spëktrum.chn"
  cp -p "$root/examples/iaea.spe" "$into/ïaea.spe"
  echo foreign >"$into/spëktrum.odf"
  (cd "$into" && for run in 1 2; do echo "\$ run $run"; "$@" --spe spëktrum.chn ïaea.spe 2>&1 || echo "exit $?"; done) >"$into.log"
}

"$root"/scripts/convert-examples.sh "$work/native/examples" "$native"
"$root"/scripts/convert-examples.sh "$work/$name/examples" "${other[@]}"
convert_samples "$work/native/samples" "$native"
convert_samples "$work/$name/samples" "${other[@]}"
convert_names "$work/native" "$native"
convert_names "$work/$name" "${other[@]}"

# The Windows converter names the work folder Z:\tmp\... (wine's drive for
# the machine's files), with its own separators.
work_windows=$(printf 'Z:%s' "$work" | sed 's#/#\\\\#g')
masked() {
  LC_ALL=C sed -E -e "/$work_windows/s#\\\\#/#g" -e "s#(Z:)?$work/(native|$name)#OUT#g" \
    -e "s#${other[*]}#CONVERT#g" -e "s#$native#CONVERT#g" \
    -e 's#[0-9]{2}-[0-9]{2}-[0-9]{4} +[0-9]{2}:[0-9]{2}:[0-9]{2}#CLOCK#g' "$1"
}
compared=0
failed=0
while IFS= read -r -d '' file; do
  rel=${file#"$work/native/"}
  compared=$((compared + 1))
  if [ ! -f "$work/$name/$rel" ]; then
    echo "missing from the $name build: $rel"; failed=$((failed + 1))
  elif ! cmp -s <(masked "$file") <(masked "$work/$name/$rel"); then
    echo "differs: $rel"; diff <(masked "$file") <(masked "$work/$name/$rel") | head -5 || true
    failed=$((failed + 1))
  fi
done < <(find "$work/native" -type f ! -name .kestro-outputs -print0)
# Each build's record of its own outputs holds its own times.
extra=$(cd "$work/$name" && find . -type f ! -name .kestro-outputs | sed 's#^\./##' | while read -r f; do [ -f "$work/native/$f" ] || echo "$f"; done)
[ -z "$extra" ] || { echo "only in the $name build: $extra"; failed=$((failed + 1)); }
echo "$name converter against native: $compared files compared, $failed differ"
[ "$failed" -eq 0 ]
