#!/bin/bash
# Builds and runs the interface-inventory benchmark: 200 calls of
# getAllNetworksDetails on this machine; prints the median (target < 5 ms).
# Usage: bench/inventory/run.sh [build dir]   (default: <repo>/build)
set -euo pipefail
repo=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$repo/build}
if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake -S "$repo" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
fi
cmake --build "$build" --target inventory_bench -j2
"$build/bin/inventory_bench"
