#!/bin/bash
# Builds and runs the long-test UI benchmark: the client tab's interval
# callback driven with 86,400 synthetic records (a 24 h test at 1 s
# intervals, compressed); prints the per-interval refresh cost (list, detail
# table, graph, painted) at 100, 3,600 and 86,400 records, and the peak RSS.
# Targets: p99 under 16 ms at 86,400 records, RSS under 300 MB.
# Usage: bench/long_test_ui/run.sh [build dir]   (default: <repo>/build)
set -euo pipefail
repo=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$repo/build}
"$repo/bench/build.sh" "$build" long_test_ui
QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen} "$build/bin/long_test_ui" "${@:2}"
