#!/bin/sh
# xterm as a receiving window, started the way the other receivers are: `xterm-receiver.sh OUTPUT`. The
# terminal's shell passes the text of every key on to OUTPUT unchanged (no echo, no line editing, Return as a
# line end); "ready" is printed once the terminal's window has the keyboard focus. Ends with the terminal.
output=$1
ready="$output.ready"
xterm -u8 -fn fixed -ut -e sh -c 'stty -icanon -echo -isig icrnl && xdotool windowfocus --sync "$WINDOWID" && : > "$2" &&
    exec cat > "$1"' sh "$output" "$ready" &
terminal=$!
while [ ! -e "$ready" ]; do
    kill -0 "$terminal" 2>/dev/null || exit 1
    sleep 0.05
done
rm -f "$ready"
echo ready
wait "$terminal"
