#!/usr/bin/env bash
# Builds the program and starts it from the build folder.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)"
program=build/bundle/CorvaneAldrakeVideoRepair.app/Contents/Resources/VideoRepair.app/Contents/MacOS/CorvaneAldrakeVideoRepair
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
    echo "No display: run it on a desktop, or under a virtual one: xvfb-run -a $program" >&2
    exit 1
fi
exec "$program"
