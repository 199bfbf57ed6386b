#!/usr/bin/env bash
# Builds the program and starts it.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)"
echo "The repair engine is built (build/libcorvane_engine.a); the window program arrives with a later change."
