#!/bin/sh
# Runs the tests of the secret service that need a session of one kind:
# secret-service.sh PROGRAM KIND, with a home folder, a session bus and a
# gnome-keyring of its own. Passes only if tests have run.
set -eu

program=$1
kind=$2
daemon=
stop() {
    [ -z "$daemon" ] || kill "$daemon" 2>/dev/null || true
    [ -z "${made:-}" ] || rm -rf "$made"
}
trap stop EXIT
trap 'exit 1' INT TERM

# The first run makes the session, in which this script runs once more.
if [ -z "${VIMBLE_SESSION_HOME:-}" ]; then
    made=$(mktemp -d)
    unset DISPLAY WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS XDG_DATA_HOME XDG_CONFIG_HOME XDG_CACHE_HOME
    export VIMBLE_SESSION_HOME="$made" HOME="$made" XDG_RUNTIME_DIR="$made/run"
    mkdir -m 700 "$XDG_RUNTIME_DIR"
    case $kind in
    NoBus)
        export DBUS_SESSION_BUS_ADDRESS="unix:path=$HOME/no-bus"
        ;;
    Nobody | Slow | Denied)
        # A bus that starts no service on demand.
        cat >"$HOME/bus.conf" <<EOF
<busconfig>
  <type>session</type>
  <listen>unix:dir=$HOME/run</listen>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
EOF
        dbus-run-session --config-file "$HOME/bus.conf" -- "$0" "$program" "$kind"
        exit
        ;;
    *)
        dbus-run-session -- "$0" "$program" "$kind"
        exit
        ;;
    esac
fi

case $kind in
# Unlock before anything else starts the daemon: a later unlock does nothing, and reports no failure.
Unlocked | Locked) printf pw | gnome-keyring-daemon --unlock --components=secrets >/dev/null 2>&1 ;;
Fresh) gnome-keyring-daemon --daemonize --start --components=secrets >/dev/null 2>&1 ;;
esac
case $kind in
Unlocked | Locked | Fresh)
    # The daemon says that it is ready before it is on the bus.
    tries=0
    until daemon=$(dbus-send --session --print-reply=literal --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus.GetConnectionUnixProcessID string:org.freedesktop.secrets 2>/dev/null); do
        tries=$((tries + 1))
        [ $tries -lt 200 ] || { echo "gnome-keyring does not come up" >&2; exit 1; }
        sleep 0.05
    done
    daemon=${daemon##* }
    ;;
esac

if [ "$kind" = Fresh ]; then
    # libsecret 0.20.5 leaks 16 bytes of a prompt that was dismissed.
    echo leak:_secret_prompt_instance >"$HOME/leaks"
    export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}fast_unwind_on_malloc=0"
    export LSAN_OPTIONS="suppressions=$HOME/leaks:print_suppressions=0"
fi

"$program" --gtest_filter="SecretService$kind*" >"$HOME/output" 2>&1 && status=0 || status=$?
cat "$HOME/output"
grep -q '^\[==========\] Running [1-9]' "$HOME/output" || status=1
exit $status
