#!/usr/bin/env bash
# Installs what a fresh Debian 12 machine lacks and builds Vexa into build/.
# Usage: scripts/setup.sh [build-dir] [extra cmake args...]
# VEXA_TARGETS="t1 t2" builds only those targets (default: everything).
set -euo pipefail
cd "$(dirname "$0")/.."

PACKAGES=(
  build-essential cmake ninja-build ccache pkg-config clang-format
  qtbase5-dev qtbase5-dev-tools qtmultimedia5-dev libqt5multimedia5-plugins libqt5sql5-sqlite
  libsqlite3-dev libopus0 libopus-dev libopenal1 libopenal-dev
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-pulseaudio gstreamer1.0-alsa
  gstreamer1.0-tools gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly gstreamer1.0-libav libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev
  pulseaudio pulseaudio-utils opus-tools ffmpeg openssl dbus-daemon faketime
  xvfb xauth x11-utils imagemagick fonts-dejavu-core fonts-noto-core fonts-noto-color-emoji fonts-noto-cjk
  clang-14 libclang-rt-14-dev llvm-14
)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
# npm fetches TDLib; a Node.js from elsewhere may already bring it (and conflict with Debian's).
command -v npm >/dev/null || missing+=(npm)
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -q
  $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

# The prebuilt TDLib for td_backend's TDLib engine; without it the build goes
# on and td_backend runs the demo engine.
scripts/fetch_tdlib.sh || echo "setup: no TDLib; the TDLib engine's tests will skip" >&2

BUILD_DIR="${1:-build}"
shift || true
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@"
targets=()
# shellcheck disable=SC2206
[ -z "${VEXA_TARGETS:-}" ] || targets=(--target ${VEXA_TARGETS})
cmake --build "$BUILD_DIR" -j "$(nproc)" "${targets[@]}"
