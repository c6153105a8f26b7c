#!/bin/bash
# Builds and runs the interface-inventory benchmark: 200 calls of
# getAllNetworksDetails on this machine; prints the median (target < 5 ms).
# Usage: bench/inventory/run.sh [build dir]   (default: <repo>/build)
set -euo pipefail
repo=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$repo/build}
"$repo/bench/build.sh" "$build" inventory_bench
"$build/bin/inventory_bench"
