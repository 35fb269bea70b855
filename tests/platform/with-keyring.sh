#!/bin/sh
# with-keyring.sh unlocked|locked PROGRAM [ARGUMENT...]
# Runs the program on a session bus of its own with a gnome-keyring of its own; nothing of the user's is touched.
# "locked" is a keyring service that nobody has unlocked and that finds nobody to ask.
set -eu
state=$1
shift
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
mkdir -m 700 "$home/runtime" "$home/data"
unset DISPLAY WAYLAND_DISPLAY GNOME_KEYRING_CONTROL
export HOME="$home" XDG_RUNTIME_DIR="$home/runtime" XDG_DATA_HOME="$home/data"
dbus-run-session -- sh -c '
    state=$1
    shift
    if [ "$state" = unlocked ]; then unlock=--unlock; else unlock=; fi
    printf password | gnome-keyring-daemon --foreground $unlock --components=secrets >/dev/null 2>&1 &
    daemon=$!
    gdbus wait --session --timeout 30 org.freedesktop.secrets
    status=0
    "$@" || status=$?
    kill "$daemon"
    wait "$daemon" || true
    exit "$status"' sh "$state" "$@"
