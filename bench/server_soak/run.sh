#!/bin/sh
# Builds the soak program and runs it: 200 consecutive 1 s loopback tests
# against one PerfServer; prints tests served/lost, peak RSS and RSS growth.
# BUILD_DIR picks the build tree (default: <repo>/build); TESTS the count.
set -eu
repo=$(cd "$(dirname "$0")/../.." && pwd)
build=${BUILD_DIR:-$repo/build}
"$repo/bench/build.sh" "$build" server_soak mac-native-iperf
# A private data folder: the soak places its own copy of the tool.
data=$(mktemp -d)
trap 'rm -rf "$data"' EXIT
XDG_DATA_HOME=$data "$build/bin/server_soak" "$build/bin/mac-native-iperf" "${TESTS:-200}"
