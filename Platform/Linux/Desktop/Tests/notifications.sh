#!/bin/sh
# Runs the tests that need a notification daemon: notifications.sh PROGRAM ICON PICTURE, with a home
# folder, a screen and a session bus of its own, on which dunst is started on demand. The bubbles have ICON,
# and a picture of them is left in PICTURE. Passes only if tests have run.
set -eu

program=$1
icon=$2
picture=$3
server=
stop() {
    [ -z "$server" ] || kill "$server" 2>/dev/null || true
    [ -z "${made:-}" ] || rm -rf "$made"
}
trap stop EXIT
trap 'exit 1' INT TERM

made=$(mktemp -d)
unset WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS XDG_DATA_HOME XDG_CACHE_HOME
export HOME="$made" XDG_RUNTIME_DIR="$made/run" XDG_CONFIG_HOME="$made/config" VIMBLE_TEST_ICON="$icon" VIMBLE_TEST_PICTURE="$picture"
mkdir -m 700 "$XDG_RUNTIME_DIR"
mkdir -p "$XDG_CONFIG_HOME" "$made/services" "$(dirname "$picture")"

Xvfb -displayfd 3 -screen 0 1024x600x24 -nolisten tcp 3>"$made/display" >/dev/null 2>&1 &
server=$!
tries=0
until [ -s "$made/display" ]; do
    tries=$((tries + 1))
    [ $tries -lt 200 ] || { echo "Xvfb does not come up" >&2; exit 1; }
    sleep 0.05
done
DISPLAY=:$(cat "$made/display")
export DISPLAY

printf '[D-BUS Service]\nName=org.freedesktop.Notifications\nExec=%s\n' "$(command -v dunst)" \
    >"$made/services/dunst.service"
cat >"$made/bus.conf" <<END
<busconfig>
  <type>session</type>
  <listen>unix:dir=$made/run</listen>
  <servicedir>$made/services</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
END
QT_QPA_PLATFORM=offscreen dbus-run-session --config-file "$made/bus.conf" -- \
    "$program" --gtest_filter='NotificationsOnDunst*' >"$made/output" 2>&1 && status=0 || status=$?
cat "$made/output"
grep -q '^\[==========\] Running [1-9]' "$made/output" || status=1
exit $status
