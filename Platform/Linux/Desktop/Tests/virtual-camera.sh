#!/bin/sh
# Runs the test with a virtual camera, with a session bus and a media server of its own:
# virtual-camera.sh PROGRAM. Passes only if the test has run.
set -eu

program=$1
if [ -z "${VIMBLE_CAMERA_HOME:-}" ]; then
    VIMBLE_CAMERA_HOME=$(mktemp -d)
    export VIMBLE_CAMERA_HOME
    trap 'rm -rf "$VIMBLE_CAMERA_HOME"' EXIT
    unset DISPLAY WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS XDG_DATA_HOME XDG_CONFIG_HOME XDG_CACHE_HOME
    export HOME="$VIMBLE_CAMERA_HOME" XDG_RUNTIME_DIR="$VIMBLE_CAMERA_HOME/run"
    mkdir -m 700 "$XDG_RUNTIME_DIR"
    # Turn Bluetooth off: its monitor ends the session manager if there is no login manager, as in a container.
    mkdir -p "$HOME/.config/wireplumber/bluetooth.lua.d"
    echo 'bluez_monitor.enabled = false' >"$HOME/.config/wireplumber/bluetooth.lua.d/51-none.lua"
    dbus-run-session -- "$0" "$program"
    exit
fi

pipewire >"$HOME/pipewire.log" 2>&1 &
server=$!
manager=
trap 'kill $manager $server 2>/dev/null || true' EXIT
trap 'exit 1' INT TERM
tries=0
again() {
    tries=$((tries + 1))
    [ $tries -lt 300 ] || { echo "pipewire does not come up" >&2; cat "$HOME"/*.log >&2; exit 1; }
    sleep 0.1
}
# The session manager ends at once if it finds no server, so wait for that first.
until pw-cli info 0 >/dev/null 2>&1; do again; done
wireplumber >"$HOME/wireplumber.log" 2>&1 &
manager=$!
# A source that comes before the session manager is ready crashes, so wait for what the manager makes last: the
# connection over which it exports what it manages, and the table of default devices on it.
until pw-cli ls Client 2>/dev/null | grep -q 'WirePlumber \[export\]'; do again; done
until pw-cli ls Metadata 2>/dev/null | grep -q '"default"'; do again; done

timeout -k 5 280 "$program" --gtest_filter="CameraOnPipeWire*" >"$HOME/output" 2>&1 && status=0 || status=$?
cat "$HOME/output"
grep -q '^\[==========\] Running [1-9]' "$HOME/output" || status=1
exit $status
