#!/bin/sh
# Tries the package as a new user of a fresh Debian bookworm machine would.
# A minimal bookworm root made with debootstrap stands in for the fresh
# machine (its pristine copy is cached between runs). There the package is
# installed with `apt-get install ./tidewave_*.deb`, which brings every
# dependency from the archive; a new user starts the desktop entry's command
# under Xvfb; the script checks that the application runs, serves an iperf3
# test on its port, quits on SIGTERM leaving no process behind, and that
# `apt-get remove` takes it away again.
#
#   packaging/try-fresh-install.sh [package.deb]
#
# Default package: build/tidewave_*.deb (made with `cd build && cpack -G DEB`).
# Needs root (debootstrap, chroot, ip netns) and the Debian archive; installs
# debootstrap here when it is missing.
# Environment: TRY_CACHE (folder for the pristine root, default
# /var/tmp/tidewave-fresh), TRY_MIRROR (default http://deb.debian.org/debian).
#
# The application runs in a network namespace made here: loopback plus a veth
# pair whose both ends stay inside, holding the default route. It sees a
# network and starts its server, yet nothing it sends leaves the machine. Its
# system bus address is dead, so nothing is published on the network. Service
# starts in the root are switched off (policy-rc.d), as in any chroot.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
repo=$(dirname "$here")
deb=${1:-$(ls "$repo"/build/tidewave_*.deb 2>/dev/null | head -n 1)}
[ -n "$deb" ] && [ -f "$deb" ] || { echo "no package: run 'cd build && cpack -G DEB' first" >&2; exit 2; }
[ "$(id -u)" = 0 ] || { echo "needs root (debootstrap, chroot, ip netns)" >&2; exit 2; }
cache=${TRY_CACHE:-/var/tmp/tidewave-fresh}
mirror=${TRY_MIRROR:-http://deb.debian.org/debian}
port=5201

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

missing=""
command -v debootstrap >/dev/null || missing="$missing debootstrap"
command -v ss >/dev/null || missing="$missing iproute2"
command -v iperf3 >/dev/null || missing="$missing iperf3"
if [ -n "$missing" ]; then
    echo "== apt-get install$missing"
    apt-get update -q >/dev/null && apt-get install -y -q $missing >/dev/null || fail "could not install$missing"
fi

mkdir -p "$cache"
if [ ! -f "$cache/bookworm-minbase.tar" ]; then
    echo "== debootstrap: a minimal bookworm root (once; cached in $cache)"
    rm -rf "$cache/make"
    debootstrap --variant=minbase bookworm "$cache/make" "$mirror" >"$cache/debootstrap.log" 2>&1 \
        || { tail -n 20 "$cache/debootstrap.log" >&2; fail "debootstrap failed"; }
    tar -C "$cache/make" -cf "$cache/bookworm-minbase.tar.part" .
    mv "$cache/bookworm-minbase.tar.part" "$cache/bookworm-minbase.tar"
    rm -rf "$cache/make"
fi

work=$(mktemp -d /var/tmp/tidewave-try-XXXXXX)
root="$work/root"
ns="tw-try-$$"
app=""

# Processes whose root folder is the fresh root: what runs "on the fresh
# machine".
inside() {
    for proc in /proc/[0-9]*; do
        [ "$(readlink "$proc/root" 2>/dev/null)" = "$root" ] && echo "${proc#/proc/} $(cat "$proc/comm" 2>/dev/null)"
    done
    return 0
}

cleanup() {
    set +e
    for pid in $(inside | awk '{print $1}'); do kill -KILL "$pid" 2>/dev/null; done
    sleep 0.5
    for mount in dev/pts dev proc sys; do umount -l "$root/$mount" 2>/dev/null; done
    ip netns del "$ns" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT INT TERM

mkdir -p "$root"
tar -C "$root" -xf "$cache/bookworm-minbase.tar"
mount --bind /dev "$root/dev"
mount --bind /dev/pts "$root/dev/pts"
mount -t proc proc "$root/proc"
mount -t sysfs sysfs "$root/sys"
cp /etc/resolv.conf "$root/etc/resolv.conf"
printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d"
chmod +x "$root/usr/sbin/policy-rc.d"
in_root() { chroot "$root" env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 "$@"; }

echo "== fresh root: $(in_root dpkg-query -W -f='.' | wc -c) packages; tidewave, iperf3, Qt: $(in_root dpkg-query -W tidewave iperf3 libqt6core6 2>&1 | grep -c '^dpkg-query: no packages')/3 absent"
cp "$deb" "$root/tmp/"
name=$(basename "$deb")
in_root apt-get update -q >"$work/update.log" 2>&1 || { cat "$work/update.log" >&2; fail "apt-get update"; }
echo "== apt-get install ./$name"
in_root sh -c "cd /tmp && apt-get install -y ./$name" >"$work/install.log" 2>&1 \
    || { tail -n 30 "$work/install.log" >&2; fail "apt-get install ./$name"; }
grep -E "^(Setting up tidewave|[0-9]+ upgraded)" "$work/install.log"
for package in tidewave iperf3 avahi-daemon psmisc espeak-ng libqt6widgets6 libqt6charts6 libnl-genl-3-200 libplist3; do
    status=$(in_root dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    [ "$status" = "install ok installed" ] || fail "$package is not installed after the package ($status)"
done
echo "installed with its dependencies: $(in_root dpkg-query -W -f='.' | wc -c) packages now"

# The display a desktop user has; not part of the package's dependencies.
in_root apt-get install -y -q xvfb xauth >"$work/xvfb.log" 2>&1 || { tail -n 20 "$work/xvfb.log" >&2; fail "xvfb"; }

entry="$root/usr/share/applications/com.norvale.Tidewave.desktop"
[ -f "$entry" ] || fail "no desktop entry"
command=$(sed -n 's/^Exec=//p' "$entry" | sed 's/ *%[fFuUick]//g')
[ -n "$command" ] || fail "the desktop entry has no Exec line"
resolved=$(in_root sh -c "command -v ${command%% *}") || fail "'$command' is not on the PATH"
echo "menu command: $command -> $resolved"

in_root useradd --create-home tester
ip netns add "$ns"
ip -n "$ns" link set lo up
ip -n "$ns" link add tw0 type veth peer name tw1
ip -n "$ns" link set tw0 up
ip -n "$ns" link set tw1 up
ip -n "$ns" addr add 192.0.2.10/24 dev tw0
ip -n "$ns" route add default via 192.0.2.1 dev tw0

echo "== starting '$command' as a new user"
ip netns exec "$ns" chroot --userspec=tester:tester "$root" \
    env -i HOME=/home/tester USER=tester PATH=/usr/local/bin:/usr/bin:/bin LANG=C.UTF-8 \
    DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent/system_bus_socket \
    xvfb-run -a -s "-screen 0 1280x800x24" sh -c "exec $command" >"$work/app.log" 2>&1 &

listening() { ip netns exec "$ns" ss -Hltn "sport = :$port" | grep -q LISTEN; }
waited=0
until listening; do
    waited=$((waited + 1))
    [ $waited -le 60 ] || { tail -n 30 "$work/app.log" >&2; fail "the application's server did not listen on $port within 30 s"; }
    sleep 0.5
done
app=$(inside | awk '$2 == "tidewave" {print $1}' | head -n 1)
[ -n "$app" ] || fail "no tidewave process in the fresh root"
echo "running: $(inside | awk '{print $2}' | sort | tr '\n' ' ')"
log=$(ls "$root"/home/tester/.local/share/Tidewave/log-*.txt 2>/dev/null | head -n 1)
[ -n "$log" ] && sed -n '2,4p' "$log"

echo "== an iperf3 test against the installed application's server"
ip netns exec "$ns" timeout 30 iperf3 -c 127.0.0.1 -p "$port" -t 2 -f m >"$work/iperf3.log" 2>&1 \
    || { cat "$work/iperf3.log" >&2; fail "iperf3 client against the application"; }
grep -E "receiver$" "$work/iperf3.log"

echo "== SIGTERM to the application ($app)"
kill -TERM "$app"
waited=0
while [ -n "$(inside)" ]; do
    waited=$((waited + 1))
    [ $waited -le 30 ] || { echo "left: $(inside)" >&2; fail "processes left 15 s after SIGTERM"; }
    sleep 0.5
done
echo "processes left in the fresh root: $(inside | wc -l)"

echo "== apt-get remove tidewave"
in_root apt-get remove -y tidewave >"$work/remove.log" 2>&1 || { tail -n 20 "$work/remove.log" >&2; fail "apt-get remove"; }
[ ! -e "$root/usr/bin/tidewave" ] && [ ! -e "$root/usr/libexec/tidewave" ] && [ ! -e "$entry" ] \
    || fail "files left after apt-get remove"
echo "removed; /usr/bin/tidewave, /usr/libexec/tidewave and the desktop entry are gone"
echo "OK"
