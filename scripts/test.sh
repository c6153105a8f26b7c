#!/usr/bin/env bash
# Sets everything up (packages, build) and runs the whole test suite.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/setup.sh"
cd "${TIDEWAVE_BUILD_DIR:-$root/build}"
ctest --output-on-failure -j2 --timeout 300
