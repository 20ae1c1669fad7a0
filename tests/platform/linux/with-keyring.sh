#!/bin/sh
# Runs a command against a fresh gnome-keyring on the current session bus; start it under
# dbus-run-session so the bus, and the keyring with it, end with the command. The keyring's
# files go to a throw-away home, so the user's own keyrings are never touched. Its in-memory
# "session" collection needs no unlock prompt, which is what makes this work headless.
set -eu

if [ -z "${DBUS_SESSION_BUS_ADDRESS:-}" ]; then
    echo "with-keyring.sh: no session bus; run it under dbus-run-session" >&2
    exit 2
fi

scratch=$(mktemp -d "${TMPDIR:-/tmp}/quillet-keyring-XXXXXX")
trap 'rm -rf "$scratch"' EXIT
export HOME="$scratch/home"
export XDG_DATA_HOME="$scratch/home/.local/share"
export XDG_CONFIG_HOME="$scratch/home/.config"
export XDG_CACHE_HOME="$scratch/home/.cache"
export XDG_RUNTIME_DIR="$scratch/run"
mkdir -p -m 700 "$HOME" "$XDG_RUNTIME_DIR"

# An empty password on standard input unlocks (creating) the login keyring without a prompt.
eval "$(printf '' | gnome-keyring-daemon --unlock --components=secrets)"
export GNOME_KEYRING_CONTROL

# The daemon registers its bus name as it starts; wait until it answers.
tries=0
until dbus-send --session --print-reply --dest=org.freedesktop.DBus / \
        org.freedesktop.DBus.NameHasOwner string:org.freedesktop.secrets 2>/dev/null |
        grep -q 'boolean true'; do
    tries=$((tries + 1))
    if [ "$tries" -ge 50 ]; then
        echo "with-keyring.sh: gnome-keyring-daemon did not come up" >&2
        exit 2
    fi
    sleep 0.1
done

export QUILLET_TEST_KEYRING=1
status=0
"$@" || status=$?
exit "$status"
