#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, VEXA_FUZZ=ON) in build-fuzz/ and runs
# each for a fixed time on a temporary copy of its seed corpus, so the
# committed corpus stays as it is. Fails on any finding (crash, leak, hang,
# broken property); the input that caused it is kept and its path printed.
#
# Usage: scripts/fuzz.sh [seconds-per-target] [target...]
#   FUZZ_NO_BUILD=1 runs what is built.
#   FUZZ_KEEP=DIR keeps the grown corpora (DIR/<target>) for a later run.
# A long campaign, one target at a time at low priority:
#   nice -n 19 scripts/fuzz.sh 3600
set -euo pipefail
cd "$(dirname "$0")/.."

SECONDS_EACH="${1:-20}"
shift || true
BUILD_DIR="${FUZZ_BUILD_DIR:-build-fuzz}"

if [ ! -f "$BUILD_DIR/build.ninja" ]; then
  CC=clang-14 CXX=clang++-14 cmake -S . -B "$BUILD_DIR" -G Ninja -DVEXA_FUZZ=ON \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo
fi
[ -n "${FUZZ_NO_BUILD:-}" ] || cmake --build "$BUILD_DIR" --target vexa_fuzz_targets -j "$(nproc)"

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for dir in fuzz/corpus/*/; do targets+=("$(basename "$dir")"); done
fi

work=$(mktemp -d)
status=0
printf '%-24s %12s %8s %8s %s\n' target executions cov ft result
for t in "${targets[@]}"; do
  corpus="$work/corpus/$t"
  mkdir -p "$corpus" "$work/artifacts/$t"
  if [ -n "${FUZZ_KEEP:-}" ] && [ -d "$FUZZ_KEEP/$t" ]; then
    cp -r "$FUZZ_KEEP/$t/." "$corpus/"
  else
    cp -r "fuzz/corpus/$t/." "$corpus/"
  fi
  log="$work/$t.log"
  result=ok
  # Leaks are checked per input; the font library's caches are suppressed.
  if ! (cd "$work" && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 LSAN_OPTIONS=suppressions="$OLDPWD/fuzz/lsan.supp" \
        UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        "$OLDPWD/$BUILD_DIR/fuzz/$t" -max_total_time="$SECONDS_EACH" -timeout=5 \
        -rss_limit_mb=2048 -artifact_prefix="$work/artifacts/$t/" "$corpus" >"$log" 2>&1); then
    result="FAILED"
    status=1
  fi
  done_line=$(grep -E '^#[0-9]+[[:space:]]+DONE' "$log" | tail -1 || true)
  [ -n "$done_line" ] || done_line=$(grep -E '^#[0-9]+' "$log" | tail -1 || true)
  runs=$(sed -nE 's/^Done ([0-9]+) runs.*/\1/p' "$log" | tail -1)
  cov=$(sed -nE 's/.*cov: ([0-9]+).*/\1/p' <<<"$done_line")
  ft=$(sed -nE 's/.*ft: ([0-9]+).*/\1/p' <<<"$done_line")
  printf '%-24s %12s %8s %8s %s\n' "$t" "${runs:-?}" "${cov:-?}" "${ft:-?}" "$result"
  if [ "$result" != ok ]; then
    grep -E 'ERROR|PROPERTY|SUMMARY|Test unit written|==[0-9]+==' "$log" | head -20 || true
    echo "   log: $log; input: $(ls "$work/artifacts/$t/" 2>/dev/null | head -1)"
  fi
  if [ -n "${FUZZ_KEEP:-}" ]; then
    mkdir -p "$FUZZ_KEEP/$t"
    cp -r "$corpus/." "$FUZZ_KEEP/$t/"
  fi
done
if [ "$status" -eq 0 ]; then rm -rf "$work"; else echo "findings kept in $work"; fi
exit "$status"
