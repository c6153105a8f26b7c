#!/bin/bash
# Builds the launcher and the benchmark, then prints how closely the launcher's
# tagged figures follow iperf3's JSON and what the launcher costs in throughput.
# Usage: bench/tool_accuracy/run.sh [build dir]   (default: <repo>/build)
set -euo pipefail
repo=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$repo/build}
if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake -S "$repo" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
fi
cmake --build "$build" --target tool_accuracy mac-native-iperf -j2
"$build/bin/tool_accuracy" "$build/bin/mac-native-iperf"
