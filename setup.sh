#!/usr/bin/env bash
# Installs what is missing (Debian packages), builds Kestro into build/, and
# converts the bundled example files into a fresh output folder.
set -euo pipefail
cd "$(dirname "$0")"

packages=(cmake ninja-build g++ googletest libgtest-dev clang libclang-rt-14-dev time)
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  echo "Installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build

out=build/examples-out
rm -rf "$out"
mkdir -p "$out"
cp examples/*.spe examples/*.asc examples/*.rbs examples/*.sim examples/*.dat examples/*.odf "$out"/
before=$(ls "$out")
echo "Converting the examples in $out with SPE ticked:"
build/bin/kestro-convert --spe "$out"/*
echo "Written:"
for f in $(ls "$out"); do
  grep -qx "$f" <<<"$before" || printf '  %s (%s bytes)\n' "$out/$f" "$(stat -c %s "$out/$f")"
done
