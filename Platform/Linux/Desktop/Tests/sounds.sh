#!/bin/sh
# Runs one suite of the sound tests: sounds.sh PROGRAM SUITE, with a home folder of its own, in which the tests find no
# sound server but the one that they start. Passes only if tests have run.
set -eu

program=$1
suite=$2
stop() { [ -z "${made:-}" ] || rm -rf "$made"; }
trap stop EXIT
trap 'exit 1' INT TERM

made=$(mktemp -d)
unset DISPLAY WAYLAND_DISPLAY PULSE_SERVER PULSE_RUNTIME_PATH XDG_CONFIG_HOME XDG_CACHE_HOME XDG_DATA_HOME
export HOME="$made" XDG_RUNTIME_DIR="$made/run" QT_QPA_PLATFORM=offscreen DBUS_SESSION_BUS_ADDRESS="unix:path=$made/none"
mkdir -m 700 "$XDG_RUNTIME_DIR"

# Keep clients from starting a server on demand.
mkdir -p "$HOME/.config/pulse"
echo "autospawn = no" >"$HOME/.config/pulse/client.conf"

"$program" --gtest_filter="$suite*" >"$made/output" 2>&1 && status=0 || status=$?
cat "$made/output"
grep -q '^\[==========\] Running [1-9]' "$made/output" || status=1
exit $status
