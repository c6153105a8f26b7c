#!/usr/bin/env bash
# Installs the Debian packages Tidewave needs (only the missing ones),
# configures and builds it in ./build. Safe to run again: it only does
# what is not done yet.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${TIDEWAVE_BUILD_DIR:-$root/build}"

missing=()
while read -r pkg; do
    [[ -z "$pkg" || "$pkg" == \#* ]] && continue
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$pkg")
    fi
done < "$root/scripts/packages.txt"

if ((${#missing[@]})); then
    echo "Installing: ${missing[*]}"
    sudo=""
    [[ $(id -u) -eq 0 ]] || sudo="sudo"
    $sudo apt-get update
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
fi

werror=OFF
[[ "${CI:-}" == "true" ]] && werror=ON
if [[ ! -f "$build/CMakeCache.txt" ]]; then
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTIDEWAVE_WERROR=$werror
else
    cmake "$build" -DTIDEWAVE_WERROR=$werror >/dev/null
fi
cmake --build "$build" -j2
