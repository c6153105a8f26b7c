#!/bin/bash
# Builds and runs the client parser benchmark: a 10,000-interval stream, fed
# chunk by chunk, as the launcher writes it.
# Usage: bench/parse_throughput/run.sh [build dir]   (default: <repo>/build)
set -euo pipefail
repo=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$repo/build}
"$repo/bench/build.sh" "$build" parse_throughput
"$build/bin/parse_throughput"
