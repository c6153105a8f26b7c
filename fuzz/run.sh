#!/bin/sh
# Runs every fuzz target (or the ones named) for a bounded time, one after
# the other at the lowest priority, and prints executions, speed and findings.
#
#   fuzz/run.sh [seconds per target, default 60] [target…]
#
# Environment: FUZZ_BUILD (build folder, default <repo>/build-fuzz),
# FUZZ_RUNS (also stop a target after this many executions), FUZZ_ASAN_OPTIONS
# (ASan options of the runs, default malloc_context_size=0).
# It configures and builds the clang build with TIDEWAVE_FUZZ=ON when needed.
# New inputs go to <build>/fuzz-work/<target>, findings (crashing or
# invariant-breaking inputs) to <build>/fuzz-findings/; add a finding to
# fuzz/corpus/<target>/ once it is fixed, so the replay test keeps it fixed.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
repo=$(dirname "$here")
build=${FUZZ_BUILD:-$repo/build-fuzz}
seconds=${1:-60}
[ $# -gt 0 ] && shift
targets=${*:-"tool_lines server_output client_output inventory_ifconfig inventory_profile inventory_ports airport defaults_plist discovery_names results_file"}

if [ ! -f "$build/CMakeCache.txt" ]; then
    CC=clang CXX=clang++ cmake -S "$repo" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DTIDEWAVE_FUZZ=ON -DTIDEWAVE_BUILD_TESTS=OFF >/dev/null
fi
nice -n 19 cmake --build "$build" --target tidewave_fuzzers -j2 >/dev/null

mkdir -p "$build/fuzz-findings"
# The targets' private settings folders go to memory where there is one.
scratch=/tmp
[ -d /dev/shm ] && [ -w /dev/shm ] && scratch=/dev/shm
printf '%-20s %12s %8s %10s %9s\n' target executions seconds exec/s findings
for target in $targets; do
    program="$build/bin/fuzz_$target"
    if [ ! -x "$program" ]; then
        printf '%-20s (not built)\n' "$target"
        continue
    fi
    work="$build/fuzz-work/$target"
    mkdir -p "$work"
    log="$build/fuzz-work/$target.log"
    before=$(ls "$build/fuzz-findings" | grep -c "^$target-" || true)
    # Peer names are DNS-SD instance names (63 bytes on the wire): a kilobyte
    # already holds a batch of a dozen or more, long ones included; batches of
    # 8 KiB reached no further code and cost more time each.
    max_len=8192
    [ "$target" = discovery_names ] && max_len=1024
    # A results file of a few tests of a few intervals each fits in 4 KiB;
    # longer inputs only repeat intervals, each costing a record both ways.
    [ "$target" = results_file ] && max_len=4096
    # libFuzzer's leak check after each input is off: Qt's caches grow during
    # the first runs, so it would scan the heap after nearly every input (a
    # third to 95 % of the speed). LeakSanitizer still checks the whole run
    # at exit; its report (which leaves no input file) counts as a finding.
    # A finding ends the target's run; its input is in the findings folder.
    # Allocation stacks are not recorded (half again the speed); replay a
    # finding (the program with the input as argument) for a report with them.
    ASAN_OPTIONS=${FUZZ_ASAN_OPTIONS-malloc_context_size=0} TMPDIR=$scratch nice -n 19 "$program" "$work" "$here/corpus/$target" \
        -max_total_time="$seconds" ${FUZZ_RUNS:+-runs="$FUZZ_RUNS"} -max_len="$max_len" -timeout=10 \
        -rss_limit_mb=2048 -print_final_stats=1 -detect_leaks=0 -close_fd_mask=1 \
        -artifact_prefix="$build/fuzz-findings/$target-" >"$log" 2>&1 || true
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -n 1)
    elapsed=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$log" | tail -n 1)
    after=$(ls "$build/fuzz-findings" | grep -c "^$target-" || true)
    # Sanitizer reports and broken invariants, whether or not an input was kept.
    reports=$(grep -c -E "^==[0-9]+==ERROR|runtime error:|^invariant broken" "$log" || true)
    found=$((after - before))
    [ "$reports" -gt "$found" ] && found=$reports
    printf '%-20s %12s %8s %10s %9s\n' "$target" "${runs:-?}" "${elapsed:-?}" "${speed:-?}" "$found"
done
echo "logs: $build/fuzz-work/<target>.log, findings: $build/fuzz-findings/"
