#!/usr/bin/env bash
# Runs a command inside a small private desktop: its own Xvfb display (number chosen by Xvfb), a tray host
# (trayer) unless KEYFERRY_TEST_NO_TRAY is set, and a temporary home with its own XDG folders. Everything
# it starts is stopped again and the temporary folders are removed, whatever the command's outcome.
#   with-desktop.sh <command> [arguments...]
set -euo pipefail

work=$(mktemp -d "${TMPDIR:-/tmp}/keyferry-desktop.XXXXXX")
pids=()
cleanup() {
    for pid in "${pids[@]}"; do
        kill "$pid" 2>/dev/null || true
    done
    for pid in "${pids[@]}"; do
        wait "$pid" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap cleanup EXIT

# Waits until the command "$2..." succeeds, for at most $1 seconds: on a busy machine a display server or a
# panel can take several seconds to come up.
wait_until() {
    local deadline=$((SECONDS + $1))
    shift
    until "$@"; do
        ((SECONDS < deadline)) || return 1
        sleep 0.05
    done
}

Xvfb -displayfd 3 -screen 0 1024x700x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
pids+=($!)
wait_until 30 test -s "$work/display" || { echo "Xvfb did not start" >&2; cat "$work/xvfb.log" >&2; exit 1; }
export DISPLAY=":$(head -n1 "$work/display")"

export HOME="$work/home"
export XDG_CONFIG_HOME="$HOME/.config" XDG_DATA_HOME="$HOME/.local/share" XDG_CACHE_HOME="$HOME/.cache"
export XDG_RUNTIME_DIR="$work/runtime"
mkdir -p "$HOME" "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME"
mkdir -m 0700 "$XDG_RUNTIME_DIR"
unset DBUS_SESSION_BUS_ADDRESS WAYLAND_DISPLAY
export QT_QPA_PLATFORM=xcb

if [[ -z "${KEYFERRY_TEST_NO_TRAY:-}" ]]; then
    trayer --edge top --align right --width 10 --height 26 --SetDockType true --expand true \
        --transparent false --tint 0xdedede >"$work/trayer.log" 2>&1 &
    pids+=($!)
    panel_shown() { xdotool search --name '^panel$' >/dev/null 2>&1; }
    wait_until 30 panel_shown || { echo "trayer did not start" >&2; cat "$work/trayer.log" >&2; exit 1; }
fi

"$@"
