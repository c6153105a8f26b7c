#!/bin/bash
# Builds and runs the results-file benchmark: 100 Wi-Fi-stamped tests of
# 3,600 intervals each (an hour at one report a second), saved and opened
# five times; prints the file size and the median and slowest save and open
# (target < 1 s each).
# Usage: bench/results_file/run.sh [build dir]   (default: <repo>/build)
set -euo pipefail
repo=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$repo/build}
"$repo/bench/build.sh" "$build" results_file_bench
"$build/bin/results_file_bench"
