#!/bin/bash
# Start-up benchmark: time from process start to the main window's first
# paint (offscreen), median of 10 runs (target < 400 ms); then the idle CPU of
# the running application over 10 s with its server running (target < 1 % of
# one core). Each run gets private settings, data and cache folders.
# Usage: bench/startup/run.sh [build dir]   (default: <repo>/build)
set -euo pipefail
repo=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$repo/build}
"$repo/bench/build.sh" "$build" startup_probe >/dev/null

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export QT_QPA_PLATFORM=offscreen

fresh_home() {
    rm -rf "$scratch/home" && mkdir -p "$scratch/home"/{config,data,cache}
    export XDG_CONFIG_HOME="$scratch/home/config" XDG_DATA_HOME="$scratch/home/data" XDG_CACHE_HOME="$scratch/home/cache"
}

times=()
for run in $(seq 1 10); do
    fresh_home
    start=$(date +%s%N)
    ms=$("$build/bin/startup_probe" shown "$start" 2>/dev/null | awk '/^shown_ms/ {print $2}')
    times+=("$ms")
done
sorted=$(printf '%s\n' "${times[@]}" | sort -n)
median=$(printf '%s\n' "$sorted" | awk '{a[NR]=$1} END {print (a[5]+a[6])/2}')
echo "time to main window shown (ms), 10 runs: $(echo $sorted | tr '\n' ' ')"
echo "median: $median ms (target < 400 ms)"

fresh_home
"$build/bin/startup_probe" idle 10 2>/dev/null
echo "(target: app_cpu_percent < 1 % of one core)"
