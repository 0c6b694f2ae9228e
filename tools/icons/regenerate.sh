#!/usr/bin/env bash
# Rebuilds the icon generator and redraws assets/osicons.
set -euo pipefail
cd "$(dirname "$0")/../.."
build="${1:-build}"
cmake --build "$build" --target vexa-draw-icons
QT_QPA_PLATFORM=offscreen "$build/tools-icons/vexa-draw-icons" assets/osicons
