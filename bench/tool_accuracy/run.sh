#!/bin/bash
# Builds the launcher and the benchmark, then prints how closely the launcher's
# tagged figures follow iperf3's JSON and what the launcher costs in throughput.
# Usage: bench/tool_accuracy/run.sh [build dir]   (default: <repo>/build)
set -euo pipefail
repo=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$repo/build}
"$repo/bench/build.sh" "$build" tool_accuracy mac-native-iperf
"$build/bin/tool_accuracy" "$build/bin/mac-native-iperf"
