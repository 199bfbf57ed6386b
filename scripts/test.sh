#!/usr/bin/env bash
# Builds the program and runs every test.
#   scripts/test.sh              plain build in build/
#   scripts/test.sh --sanitize   AddressSanitizer + UndefinedBehaviorSanitizer build in build-asan/
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh

dir=build
flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
if [ "${1:-}" = "--sanitize" ]; then
    dir=build-asan
    flags=(-DCMAKE_BUILD_TYPE=Debug -DCORVANE_SANITIZE=ON)
fi

cmake -S . -B "$dir" -G Ninja "${flags[@]}" >/dev/null
cmake --build "$dir" -j"$(nproc)"
ctest --test-dir "$dir" --output-on-failure -j"$(nproc)"
