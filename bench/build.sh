#!/bin/sh
# What every benchmark script does first: configures the build folder when it
# has not been configured yet (Release with debug info), then builds the named
# targets.
#   bench/build.sh <build dir> <target>...
set -eu
repo=$(cd "$(dirname "$0")/.." && pwd)
build=$1
shift
if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake -S "$repo" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
fi
cmake --build "$build" --target "$@" -j2
