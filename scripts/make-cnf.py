#!/usr/bin/env python3
"""Genie2K CNF files for benchmarks and file checks: what the reader looks for,
and no more: the channel-count signature D0 01 at 0x100, a time record at
0x200 (start ticks, then real and live ticks stored complemented), and the
counts as the last 4 x N bytes.

Usage: make-cnf.py FOLDER COUNT   (writes FOLDER/s00000.cnf ...)
"""
import random, struct, sys

folder, count = sys.argv[1], int(sys.argv[2])
channels = 16384
header = bytearray(1024)
header[0x100:0x104] = b'\xd0\x01' + struct.pack('<h', channels)
start = 58557 * 86400 * 10**7  # 15-03-2019 in ticks of 100 ns since 17-11-1858
real, live = 3000 * 10**7, 2950 * 10**7
header[0x200:0x219] = b'\x01' + struct.pack('<Qqq', start, ~real, ~live)
rng = random.Random(54321)
spectra = [struct.pack('<%di' % channels, *(rng.randrange(100000) for _ in range(channels))) for _ in range(4)]
for i in range(count):
    with open('%s/s%05d.cnf' % (folder, i), 'wb') as f:
        f.write(header)
        f.write(spectra[i % len(spectra)])
