#!/bin/sh
# Builds the Debian package from the build tree, unpacks it into a scratch
# root and checks it there: the files land where they should, the package
# asks for the tools it runs, the installed launcher runs iperf3, and the
# application started from <root>/usr/bin finds its tool and defaults inside
# that root (not in the build tree or a system-wide copy).
#
#   check_package.sh <build folder>
set -eu

build=$1
scratch=$(mktemp -d "${TMPDIR:-/tmp}/tidewave-package-XXXXXX")
trap 'rm -rf "$scratch"' EXIT INT TERM

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

echo "== cpack -G DEB"
timeout 300 cpack --config "$build/CPackConfig.cmake" -G DEB -B "$scratch/out" >"$scratch/cpack.log" 2>&1 \
    || { cat "$scratch/cpack.log" >&2; fail "cpack could not build the package"; }
deb=$(ls "$scratch"/out/tidewave_*.deb 2>/dev/null | head -n 1)
[ -n "$deb" ] || fail "no tidewave_*.deb in $(ls "$scratch/out")"
echo "package: $(basename "$deb")"

depends=$(dpkg-deb -f "$deb" Depends)
echo "Depends: $depends"
for tool in iperf3 avahi-daemon psmisc espeak-ng; do
    echo "$depends" | grep -q "\(^\|, \)$tool\( \|,\|$\)" || fail "Depends lacks $tool"
done
echo "$depends" | grep -q "libqt6core6" || fail "Depends lacks the Qt libraries (shared-library scan)"

root="$scratch/root"
dpkg-deb -x "$deb" "$root"
for file in usr/bin/tidewave usr/libexec/tidewave/mac-native-iperf \
            usr/share/tidewave/com.norvale.mactidewave-default-values.plist \
            usr/share/applications/com.norvale.Tidewave.desktop \
            usr/share/metainfo/com.norvale.Tidewave.metainfo.xml \
            usr/share/icons/hicolor/scalable/apps/com.norvale.Tidewave.svg; do
    [ -f "$root/$file" ] || fail "package lacks /$file"
done
[ -x "$root/usr/bin/tidewave" ] && [ -x "$root/usr/libexec/tidewave/mac-native-iperf" ] \
    || fail "installed programs are not executable"
# Nothing test-only or build-tree-only goes into the package.
strays=$(dpkg-deb -c "$deb" | awk '{print $6}' | grep -v '^\./usr/\(bin/tidewave\|libexec/tidewave/\|share/\(tidewave\|applications\|metainfo\|icons\|doc\)\)' \
    | grep -v '/$' || true)
[ -z "$strays" ] || fail "unexpected files in the package: $strays"

# Every library the installed programs need resolves on this machine.
for program in "$root/usr/bin/tidewave" "$root/usr/libexec/tidewave/mac-native-iperf"; do
    if ldd "$program" | grep -q "not found"; then
        ldd "$program" >&2
        fail "$(basename "$program") has unresolved libraries"
    fi
done

echo "== installed launcher"
version=$(timeout 10 "$root/usr/libexec/tidewave/mac-native-iperf" ./iperf3 --version 2>&1 || true)
echo "$version" | head -n 1
echo "$version" | grep -q "^iperf 3" || fail "the installed launcher does not run iperf3: $version"

echo "== application started from the unpacked root"
# In PID, mount and network namespaces of its own, so its killall reaches only
# its own tools and its server listens on its own loopback; user folders of its own.
home="$scratch/home"
mkdir -p -m 700 "$home/runtime"
XDG_CONFIG_HOME="$home/config" XDG_DATA_HOME="$home/data" XDG_CACHE_HOME="$home/cache" XDG_RUNTIME_DIR="$home/runtime" QT_QPA_PLATFORM=offscreen \
    unshare --pid --fork --kill-child --mount-proc --net \
    sh -c 'ip link set lo up && ip route add default dev lo && exec "$0"' "$root/usr/bin/tidewave" >"$scratch/app.log" 2>&1 &
app=$!
# It names its server's port once start-up (defaults, tool placement) is done: 15 s at most.
for _ in $(seq 150); do
    grep -q "server port is" "$scratch/app.log" && break
    sleep 0.1
done
kill -KILL "$app" && wait "$app" || true
grep -E "Starting|server port is|iPerf Executable Path" "$scratch/app.log" || true
grep -q "server port is 5201$" "$scratch/app.log" || fail "the packaged defaults were not registered (server port 5201)"
cmp -s "$home/data/Tidewave/mac-native-iperf" "$root/usr/libexec/tidewave/mac-native-iperf" \
    || fail "the packaged tool was not placed in the user's folder"

echo "== desktop entry and metainfo as installed"
desktop-file-validate "$root/usr/share/applications/com.norvale.Tidewave.desktop" || fail "desktop entry invalid"
appstreamcli validate --no-net "$root/usr/share/metainfo/com.norvale.Tidewave.metainfo.xml" \
    || fail "AppStream metainfo invalid"
grep -q '^Exec=tidewave$' "$root/usr/share/applications/com.norvale.Tidewave.desktop" \
    || fail "desktop entry does not start the installed program"
echo "PASS"
