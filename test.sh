#!/usr/bin/env bash
# Runs every test: the suite, the file-safety checks on a real file system
# (a full tmpfs when run as root), the WebAssembly build (its unit tests, the
# command-line tests, the page in Chromium), the Windows build under wine (its
# unit tests, the outputs compared, the file-safety checks), the Debian
# package check, the suite again under AddressSanitizer and
# UndefinedBehaviorSanitizer, and each fuzz target for a bounded time.
# "./test.sh quick" runs the suite alone.
set -euo pipefail
cd "$(dirname "$0")"
fuzz_seconds=${KESTRO_FUZZ_SECONDS:-30}

[ -f build/build.ninja ] || cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build
ctest --test-dir build --output-on-failure -j2
[ "${1:-}" = quick ] && exit 0

echo "== Files on a full disk, killed runs, the trash"
scripts/file-safety.sh

echo "== The WebAssembly engine and the page (build-web/, built by setup.sh)"
[ -d web/node_modules ] || (cd web && npm ci --no-audit --no-fund --loglevel=error)
[ -f build-web/build.ninja ] || NODE_PATH=/usr/share/nodejs emcmake cmake -S . -B build-web -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
NODE_PATH=/usr/share/nodejs cmake --build build-web
node build-web/kestro_tests.js
echo "-- The command-line tests against the WebAssembly converter"
KESTRO_CONVERT_COMMAND="node '$PWD/build-web/kestro-convert.js'" build/bin/kestro_tests --gtest_filter='CliTest.*'
scripts/compare-converters.sh build/bin/kestro-convert web node build-web/kestro-convert.js
echo "-- The page in Chromium"
(cd web && node --test --test-concurrency=1 tests/)

echo "== The Windows converter under wine (build-win/, built by setup.sh)"
[ -f build-win/build.ninja ] || cmake -S . -B build-win -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake -DKESTRO_APP=OFF >/dev/null
cmake --build build-win
ctest --test-dir build-win --output-on-failure
scripts/compare-converters.sh build/bin/kestro-convert windows scripts/wine-run.sh build-win/bin/kestro-convert.exe
scripts/file-safety.sh scripts/wine-run.sh build-win/bin/kestro-convert.exe

echo "== The Debian package"
scripts/package-check.sh

echo "== The suite under AddressSanitizer and UndefinedBehaviorSanitizer"
cmake -S . -B build-sanitize -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKESTRO_SANITIZE=ON -DKESTRO_APP=OFF >/dev/null
cmake --build build-sanitize --target kestro_tests kestro-convert
ctest --test-dir build-sanitize --output-on-failure -j2

echo "== Fuzz targets, ${fuzz_seconds} s each"
CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKESTRO_FUZZ=ON -DKESTRO_TESTS=OFF -DKESTRO_APP=OFF >/dev/null
cmake --build build-fuzz
for target in build-fuzz/bin/fuzz_*; do
  corpus=build-fuzz/corpus/$(basename "$target")
  mkdir -p "$corpus"
  cp examples/* "$corpus"/ 2>/dev/null || true
  echo "-- $(basename "$target")"
  "$target" -max_total_time="$fuzz_seconds" -rss_limit_mb=2048 -timeout=10 -handle_xfsz=0 -print_final_stats=1 "$corpus" 2>&1 | tail -n 3
done
echo "fuzzing: no crash, hang or leak found"
