#!/usr/bin/env bash
# Converts every example file into OUTDIR with the converter given (the
# native program, or "node build-web/kestro-convert.js"), the same runs as
# setup.sh makes. Used to hold the two builds to the same outputs.
#   scripts/convert-examples.sh OUTDIR CONVERTER...
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
out=$1
shift
rm -rf "$out"
mkdir -p "$out"
find "$root/examples" -maxdepth 1 -type f ! -name '*.cpp' -exec cp -p {} "$out"/ \;
cd "$out"
run() { echo "\$ $*"; "$@" || echo "exit $?"; }
{
  run "$@" --spe iaea.spe ascii.asc rutherford.rbs simulated.sim block.dat twocolumn.odf \
     genie.cnf ortec.chn spectech.spu canberra.bin bruker.spx generic.xml fastcomtec.mpa omdaq._ events.evt
  run "$@" table.csv
  run "$@" --format "Canberra S-100 *.mca" s100.mca
  run "$@" --format "Canberra 35/40 *.mca" canberra3540.mca
  run "$@" brukeraxs.raw panalytical.rd
  run "$@" jcamp-affn.jdx jcamp-asdf.jdx
  run "$@" --format "Shimadzu *.pho" shimadzu.pho
  run "$@" --format "Old TA Instr TGA/DSC" tainstruments.001
  run "$@" thermo.spa galactic.spc spectrum.gaml
  run "$@" --modern thermo.spa galactic.spc spectrum.gaml fastcomtec.mpa genie.cnf brukeraxs.raw \
     jcamp-affn.jdx jcamp-asdf.jdx bruker.spx
  run "$@" --spo --graph --log ortec.chn iaea.spe
} >../$(basename "$out").log 2>&1
