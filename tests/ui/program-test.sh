#!/usr/bin/env bash
# The real program on a private desktop (run inside with-desktop.sh and dbus-run-session):
#  1. started plainly it shows its "Keyferry" window;
#  2. started with --background it shows none and keeps running;
#  3. a second start while it runs presents the running copy's window and exits at once.
# Everything started here is stopped again. Prints what it measured.
#   program-test.sh <path of the keyferry executable>
set -euo pipefail

program=$1
pids=()
cleanup() {
    for pid in "${pids[@]}"; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
}
trap cleanup EXIT

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

visible_window() {
    xdotool search --onlyvisible --name '^Keyferry$' 2>/dev/null | head -n1
}

# Waits up to $1 seconds for the main window; prints the seconds it took.
wait_for_window() {
    local start=$SECONDS deadline=$((SECONDS + $1))
    while ((SECONDS < deadline)); do
        if [[ -n "$(visible_window)" ]]; then
            echo $((SECONDS - start))
            return 0
        fi
        sleep 0.1
    done
    return 1
}

stop() {
    kill "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
}

# 1. A plain start shows the window.
"$program" &
plain=$!
pids+=("$plain")
took=$(wait_for_window 20) || fail "a plain start showed no Keyferry window"
echo "plain start: window \"Keyferry\" shown within ${took} s"
kill -0 "$plain" 2>/dev/null || fail "the program exited after showing its window"
# Asked to terminate (as at logout), it quits in order and exits with status 0.
kill -TERM "$plain"
status=0
wait "$plain" || status=$?
((status == 0)) || fail "after SIGTERM the program exited with status $status"
echo "plain start: quit in order on SIGTERM (status 0)"
for _ in $(seq 50); do
    [[ -z "$(visible_window)" ]] && break
    sleep 0.1
done

# 2. A background start shows nothing.
"$program" --background &
background=$!
pids+=("$background")
sleep 3
[[ -z "$(visible_window)" ]] || fail "a --background start showed its window"
kill -0 "$background" 2>/dev/null || fail "the --background copy did not keep running"
echo "background start: no window after 3 s, still running"

# 3. A second start presents the first copy's window and exits.
started=$(date +%s%3N)
"$program" &
second=$!
pids+=("$second")
for _ in $(seq 100); do
    kill -0 "$second" 2>/dev/null || break
    sleep 0.1
done
if kill -0 "$second" 2>/dev/null; then
    fail "the second copy is still running after 10 s"
fi
status=0
wait "$second" || status=$?
((status == 0)) || fail "the second copy exited with status $status"
ended=$(date +%s%3N)
took=$(wait_for_window 10) || fail "the second start did not present the running copy's window"
kill -0 "$background" 2>/dev/null || fail "the first copy stopped"
windows=$(xdotool search --onlyvisible --name '^Keyferry$' | wc -l)
((windows == 1)) || fail "$windows Keyferry windows are shown"
echo "second start: exited with 0 after $((ended - started)) ms; the running copy presented its window"
