#!/usr/bin/env bash
# The real program on a private desktop without a tray host (run inside with-desktop.sh with
# KEYFERRY_TEST_NO_TRAY set, and dbus-run-session): even started with --background it shows its window,
# since that window is then its only presence. Everything started here is stopped again.
#   program-without-tray-test.sh <path of the keyferry executable>
set -euo pipefail

program=$1
"$program" --background &
pid=$!
trap 'kill "$pid" 2>/dev/null || true; wait "$pid" 2>/dev/null || true' EXIT

for _ in $(seq 200); do
    if [[ -n "$(xdotool search --onlyvisible --name '^Keyferry$' 2>/dev/null)" ]]; then
        echo "no tray: a --background start showed its window"
        exit 0
    fi
    sleep 0.1
done
echo "FAIL: without a tray a --background start showed no window" >&2
exit 1
