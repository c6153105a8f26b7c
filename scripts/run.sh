#!/usr/bin/env bash
# Sets everything up (packages, build) and starts Tidewave.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/setup.sh"
exec "${TIDEWAVE_BUILD_DIR:-$root/build}/bin/tidewave" "$@"
