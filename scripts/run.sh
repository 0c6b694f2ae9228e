#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds, and runs Vexa on the built-in
# demo backend. Without a display it runs under Xvfb, saves a screenshot of
# the window and prints the file's path.
set -euo pipefail
cd "$(dirname "$0")/.."

# Only what runs: the client, the demo backend beside it and the codec tool.
VEXA_TARGETS="vexa td_backend vexa-opus" scripts/setup.sh build

export VEXA_DATA_DIR="${VEXA_DATA_DIR:-$PWD/build/demo-data}"
export VEXA_SHARED_DIR="${VEXA_SHARED_DIR:-$PWD/build/demo-shared}"
mkdir -p "$VEXA_DATA_DIR" "$VEXA_SHARED_DIR"

if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
  exec build/bin/vexa "$@"
fi

shot="$PWD/build/vexa-screenshot.png"
xvfb-run -a -s "-screen 0 1280x1400x24" bash -c '
  build/bin/vexa "$@" &
  pid=$!
  sleep "${VEXA_SCREENSHOT_DELAY:-6}"
  win=$(xwininfo -root -tree | awk '"'"'/"Vexa": \(/ {print $1; exit}'"'"')
  import -window "${win:-root}" "'"$shot"'"
  kill -TERM $pid
  wait $pid || true
' _ "$@"
echo "screenshot: $shot"
