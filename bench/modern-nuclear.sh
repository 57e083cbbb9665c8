#!/usr/bin/env bash
# The modern CNF and MPA readers against the classic ones on the same batch,
# and the CNF batch against xyconv (Debian package libxy-bin, installed here
# when missing).
#
# Usage: bench/modern-nuclear.sh [-f FILES] [CONVERTER]
#
#   -f  files in each batch (default 2000): CNF files of 16384 channels that
#       both CNF readers read (a block directory, the channel-count signature
#       and the counts at the end), and MPA files of 4 ADCs x 2048 channels in
#       "asc" format with [ADC0] sections, which both MPA readers read
#
# Prints each batch's time with the classic reader, with --modern, and the
# ratio classic / modern (at least 1 is the target); for CNF also xyconv's
# time and the ratio xyconv / modern (at least 5 is the target).
set -euo pipefail
# shellcheck source=bench/lib.sh
. "$(dirname "$0")/lib.sh"
files=2000
while getopts ':f:h' opt; do
  case $opt in
    f) files=$OPTARG ;;
    *) bench_usage 4,16; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
bench_need_tools
bench_converter "${1:-}"
bench_need_xyconv
bench_workdir modern
mkdir -p "$work/cnf" "$work/mpa" "$work/xy"

python3 - "$work" "$files" <<'PY'
import random, struct, sys
work, count = sys.argv[1], int(sys.argv[2])
rng = random.Random(2468)
n = 16384
head = bytearray(4608)
struct.pack_into('<IHII', head, 112, 0x12000, 0, 2560, 2048)     # acquisition block
struct.pack_into('<IHII', head, 160, 0x12005, 0, 512 + 4 * n, 4608)  # channel block
head[0x300:0x304] = b'\xd0\x01' + struct.pack('<h', n)           # the classic signature
struct.pack_into('<I', head, 2048, 0x12000)
struct.pack_into('<H', head, 2048 + 36, 512)
head[2048 + 176:2048 + 179] = b'PHA'
struct.pack_into('<H', head, 2048 + 186, n // 256)
marker = 2048 + 48 + 512
head[marker:marker + 25] = b'\x01' + struct.pack('<Qqq', 58557 * 86400 * 10**7, ~(3000 * 10**7), ~(2950 * 10**7))
block = bytearray(512); struct.pack_into('<I', block, 0, 0x12005)
spectra = [struct.pack('<%di' % n, *(rng.randrange(100000) for _ in range(n))) for _ in range(4)]
for i in range(count):
    with open('%s/cnf/s%05d.cnf' % (work, i), 'wb') as f:
        f.write(head); f.write(block); f.write(spectra[i % 4])
adcs = ''.join('[ADC%d]\r\nrange=2048\r\nactive=1\r\nrealtime=100\r\nlivetime=99\r\n' % a for a in range(4))
data = ''.join('[DATA%d,2048 ]\r\n' % a + ''.join('%d\r\n' % rng.randrange(5000) for _ in range(2048)) for a in range(4))
text = 'mpafmt=asc\r\nsephead=0\r\n' + adcs + data
for i in range(count):
    with open('%s/mpa/m%05d.mpa' % (work, i), 'w', newline='') as f:
        f.write(text)
PY

# Seconds of CPU (user + system) a command takes in DIR, the best of two runs
# (the page cache warm). CPU time, not wall time, is compared: on a shared
# machine the wall clock swings with the other work and the disk's write-back,
# while the work a reader does stays put.
seconds() {
  bench_best 2 "$@"
  awk -v c="$best_cpu_us" 'BEGIN { print c / 1e6 }'
}
ratio() { bench_ratio "$@"; }

cnf_classic=$(seconds "$work/cnf" "$conv" --spe "$work"/cnf/*.cnf)
cnf_modern=$(seconds "$work/cnf" "$conv" --spe --modern "$work"/cnf/*.cnf)
cnf_xyconv=$(seconds "$work/cnf" xyconv -s -t canberra_cnf -m "$work/xy" "$work"/cnf/*.cnf)
mpa_classic=$(seconds "$work/mpa" "$conv" "$work"/mpa/*.mpa)
mpa_modern=$(seconds "$work/mpa" "$conv" --modern "$work"/mpa/*.mpa)

echo "CPU seconds (user + system), best of two runs:"
printf '%-28s %10s %10s %10s %16s %14s\n' batch classic modern xyconv classic/modern xyconv/modern
printf '%-28s %10.2f %10.2f %10.2f %16s %14s\n' "$files CNF x 16384 ch" "$cnf_classic" "$cnf_modern" "$cnf_xyconv" \
  "$(ratio "$cnf_classic" "$cnf_modern")" "$(ratio "$cnf_xyconv" "$cnf_modern")"
printf '%-28s %10.2f %10.2f %10s %16s %14s\n' "$files MPA x 4 x 2048 ch" "$mpa_classic" "$mpa_modern" - \
  "$(ratio "$mpa_classic" "$mpa_modern")" -
