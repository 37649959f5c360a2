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

# Prints what a failed start leaves to go on: the display server's log and who holds which X display.
describe_displays() {
    cat "$work/xvfb.log" "$work/trayer.log" >&2 2>/dev/null || true
    ls -la /tmp/.X11-unix /tmp/.X*-lock >&2 2>/dev/null || true
    ps -C Xvfb,Xwayland,sway,trayer -o pid,user,args >&2 || true
}

# Stops the display server and panel of a failed attempt, so the next one starts clean.
stop_attempt() {
    for pid in "${pids[@]}"; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    pids=()
}

trayer_running() { [[ -n "${trayer_pid:-}" ]] && kill -0 "$trayer_pid" 2>/dev/null; }
panel_shown() { xdotool search --name '^panel$' >/dev/null 2>&1; }
# Waits for the panel's window while trayer lives: one that exits at once (no display) ends the wait early.
wait_for_panel() {
    local deadline=$((SECONDS + 30))
    until panel_shown; do
        trayer_running && ((SECONDS < deadline)) || return 1
        sleep 0.05
    done
}

# One attempt at a display and its panel. The display must answer before anything else runs on it: a display
# number that another X server still answers on (one that is shutting down) is not ours to use.
start_desktop() {
    rm -f "$work/display"
    Xvfb -displayfd 3 -screen 0 1024x700x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
    pids+=($!)
    wait_until 30 test -s "$work/display" || { echo "Xvfb did not start" >&2; return 1; }
    export DISPLAY=":$(head -n1 "$work/display")"
    wait_until 10 xdpyinfo >/dev/null 2>&1 || { echo "display $DISPLAY does not answer" >&2; return 1; }
    [[ -n "${KEYFERRY_TEST_NO_TRAY:-}" ]] && return 0
    trayer --edge top --align right --width 10 --height 26 --SetDockType true --expand true \
        --transparent false --tint 0xdedede >"$work/trayer.log" 2>&1 &
    trayer_pid=$!
    pids+=($!)
    wait_for_panel || { echo "trayer did not start on $DISPLAY" >&2; return 1; }
}

export HOME="$work/home"
export XDG_CONFIG_HOME="$HOME/.config" XDG_DATA_HOME="$HOME/.local/share" XDG_CACHE_HOME="$HOME/.cache"
export XDG_RUNTIME_DIR="$work/runtime"
mkdir -p "$HOME" "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME"
mkdir -m 0700 "$XDG_RUNTIME_DIR"
unset DBUS_SESSION_BUS_ADDRESS WAYLAND_DISPLAY
export QT_QPA_PLATFORM=xcb

attempt=1
until start_desktop; do
    describe_displays
    stop_attempt
    ((attempt++ < 3)) || exit 1
    echo "starting the desktop again (attempt $attempt)" >&2
done

"$@"
