#!/usr/bin/env python3
# A GTK 3 text view (on Wayland or X11) that takes the keyboard focus and appends every text inserted into its
# buffer to a file, as typed (Return inserts a line feed, Tab a tab). Argument: the output file. Prints "ready"
# once it has the focus and is drawn; stops on SIGTERM.
import signal
import sys

import gi

gi.require_version("Gtk", "3.0")
from gi.repository import GLib, Gtk  # noqa: E402


def main():
    if len(sys.argv) != 2:
        print("usage: gtk-text-receiver.py OUTPUT", file=sys.stderr)
        return 2
    output = open(sys.argv[1], "w", encoding="utf-8", newline="")
    window = Gtk.Window(title="receiver")
    window.set_default_size(400, 300)
    view = Gtk.TextView()
    view.set_accepts_tab(True)
    window.add(view)

    def inserted(_buffer, _where, text, _length):
        output.write(text)
        output.flush()

    # "ready" once the view has the focus and has been drawn, and GTK has nothing left to do: a window still
    # busy with its first frames reads its first key's release late, and its key repeat types that key again.
    state = {"focused": False, "drawn": False, "announced": False}

    def announce():
        if not state["announced"]:
            state["announced"] = True
            print("ready", flush=True)
        return False

    def settled(change):
        state[change] = True
        if state["focused"] and state["drawn"] and not state["announced"]:
            GLib.idle_add(announce, priority=GLib.PRIORITY_LOW)
        return False

    def focused(*_):
        return settled("focused")

    def drawn(*_):
        return settled("drawn")

    view.get_buffer().connect("insert-text", inserted)
    view.connect("focus-in-event", focused)
    window.connect("destroy", Gtk.main_quit)
    GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGTERM, Gtk.main_quit)
    window.show_all()
    window.get_frame_clock().connect("after-paint", drawn)
    view.grab_focus()
    # An X server without a window manager gives the keyboard focus only on request.
    window.present()
    Gtk.main()
    return 0


if __name__ == "__main__":
    sys.exit(main())
