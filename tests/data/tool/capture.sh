#!/bin/bash
# Captures the iperf3 output fixtures in this folder from the installed iperf3
# on loopback, run the way mac-native-iperf runs it (--forceflush --format k).
# Usage: capture.sh [port]
set -euo pipefail
cd "$(dirname "$0")"
port=${1:-5299}
iperf=/usr/bin/iperf3
version=$($iperf --version | head -n1)
opts=(--forceflush --format k)

header() { echo "# captured from $version ($iperf) on loopback: $*"; }

$iperf -s -p "$port" "${opts[@]}" > server.raw 2>&1 &
server=$!
trap 'kill $server 2>/dev/null || true' EXIT
sleep 0.5

client() {
    local name=$1; shift
    { header iperf3 "$@" "${opts[@]}"; $iperf "$@" "${opts[@]}" 2>&1; } > "iperf3-3.12-$name.txt"
}
client client-tcp -c 127.0.0.1 -p "$port" -t 3 -i 1
client client-tcp-reverse -c 127.0.0.1 -p "$port" -t 3 -i 1 -R
client client-udp -c 127.0.0.1 -p "$port" -t 3 -i 1 -u -b 20M
client client-udp-reverse -c 127.0.0.1 -p "$port" -t 3 -i 1 -u -b 20M -R
client client-tcp-parallel-omit -c 127.0.0.1 -p "$port" -t 2 -i 1 -P 2 -O 1 -b 50M
client client-udp-slow -c 127.0.0.1 -p "$port" -t 2 -i 0.5 -u -b 5K -l 64 -R
sleep 0.5
kill $server
wait $server 2>/dev/null || true
trap - EXIT
{ header iperf3 -s -p "$port" "${opts[@]}" "(serving the client captures in this folder, in order)"; cat server.raw; } \
    > iperf3-3.12-server.txt
rm -f server.raw
