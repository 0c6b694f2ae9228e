#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds, and runs every test:
# the formatting check, the normal build's suite, and the suite again
# under AddressSanitizer and UndefinedBehaviorSanitizer, then a short run of
# every fuzz target.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build

echo "== clang-format check"
files=$(git ls-files -- '*.cpp' '*.h' 2>/dev/null || find src backend tests bench -name '*.cpp' -o -name '*.h')
if [ -n "$files" ]; then
  # shellcheck disable=SC2086
  clang-format --dry-run --Werror $files
fi

export QT_QPA_PLATFORM=offscreen
echo "== tests"
ctest --test-dir build --output-on-failure -j 2

echo "== tests under AddressSanitizer and UndefinedBehaviorSanitizer"
scripts/setup.sh build-asan -DVEXA_SANITIZE=ON -DVEXA_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug
export ASAN_OPTIONS=detect_leaks=0:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir build-asan --output-on-failure -j 2

echo "== fuzz targets, 20 s each on their seed corpora"
scripts/fuzz.sh 20
