#!/bin/sh
# on_display.sh x11|wayland PROGRAM [ARGS...]: runs the program on a display server of its own, Xvfb or a
# headless Weston, and stops that server afterwards.
set -u
kind=$1; shift
runtime=$(mktemp -d /tmp/tw-display-XXXXXX)
chmod 700 "$runtime"
case $kind in
x11)
    Xvfb -displayfd 3 -screen 0 1920x1080x24 -nolisten tcp 3>"$runtime/display" >"$runtime/server.log" 2>&1 &
    server=$!
    for _ in $(seq 100); do [ -s "$runtime/display" ] && break; sleep 0.05; done
    export DISPLAY=":$(cat "$runtime/display")" QT_QPA_PLATFORM=xcb
    ;;
wayland)
    export XDG_RUNTIME_DIR=$runtime WAYLAND_DISPLAY=tidewave-test QT_QPA_PLATFORM=wayland
    weston --backend=headless-backend.so --socket="$WAYLAND_DISPLAY" --width=1920 --height=1080 --idle-time=0 \
        >"$runtime/server.log" 2>&1 &
    server=$!
    for _ in $(seq 100); do [ -S "$runtime/$WAYLAND_DISPLAY" ] && break; sleep 0.05; done
    # Absolute: the tests give themselves a runtime folder of their own.
    export WAYLAND_DISPLAY=$runtime/$WAYLAND_DISPLAY
    ;;
*) echo "on_display.sh: x11 or wayland, not $kind" >&2; exit 2 ;;
esac
"$@"
code=$?
kill "$server" 2>/dev/null; wait "$server" 2>/dev/null
[ $code -eq 0 ] || cat "$runtime/server.log" >&2
rm -rf "$runtime"
exit $code
