#!/bin/sh
# The GTK 3 text view of the Wayland tests as an X11 window, started the way the other receivers are:
# `gtk-x11-receiver.sh OUTPUT`. Debian's GTK bindings belong to the system's Python.
GDK_BACKEND=x11 exec /usr/bin/python3 "$(dirname "$0")/../wayland/gtk-text-receiver.py" "$1"
