#!/usr/bin/env bash
# Converts the example files and the real samples with the native
# kestro-convert and with the WebAssembly one under node, and compares
# every output and message byte for byte; only the folder names and the
# clock texts (dd-mm-yyyy hh:mm:ss) may differ.
#   scripts/compare-web-cli.sh NATIVE_CONVERTER WEB_CONVERTER_JS
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
native=$(realpath "$1")
web=$(realpath "$2")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Any file an output replaces goes to a trash of the comparison's own.
export XDG_DATA_HOME="$work/data"

# The samples, one run per format folder, classic and modern readers alike;
# DICOM needs DCMTK, which the web build leaves out.
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

"$root"/scripts/convert-examples.sh "$work/native/examples" "$native"
"$root"/scripts/convert-examples.sh "$work/web/examples" node "$web"
convert_samples "$work/native/samples" "$native"
convert_samples "$work/web/samples" node "$web"

masked() { LC_ALL=C sed -E -e "s#$work/(native|web)#OUT#g" -e 's#(node )?[^ ]*kestro-convert(\.js)?#CONVERT#g' \
  -e 's#[0-9]{2}-[0-9]{2}-[0-9]{4} +[0-9]{2}:[0-9]{2}:[0-9]{2}#CLOCK#g' "$1"; }
compared=0
failed=0
while IFS= read -r -d '' file; do
  rel=${file#"$work/native/"}
  compared=$((compared + 1))
  if [ ! -f "$work/web/$rel" ]; then
    echo "missing from the web build: $rel"; failed=$((failed + 1))
  elif ! cmp -s <(masked "$file") <(masked "$work/web/$rel"); then
    echo "differs: $rel"; diff <(masked "$file") <(masked "$work/web/$rel") | head -5 || true
    failed=$((failed + 1))
  fi
done < <(find "$work/native" -type f ! -name .kestro-outputs -print0)
# Each build's record of its own outputs holds its own times.
extra=$(cd "$work/web" && find . -type f ! -name .kestro-outputs | sed 's#^\./##' | while read -r f; do [ -f "$work/native/$f" ] || echo "$f"; done)
[ -z "$extra" ] || { echo "only in the web build: $extra"; failed=$((failed + 1)); }
echo "web converter against native: $compared files compared, $failed differ"
[ "$failed" -eq 0 ]
