#!/usr/bin/env python3
# Taps one key through a GNOME remote-desktop session of its own, as a user pressing it would, then stops
# the session. Argument: the key's keysym, in hex (fe08: ISO_Next_Group, which switches to the next layout
# where a key of the keymap has it). Exits 0 once mutter took the release.
import sys

from gi.repository import Gio, GLib

SERVICE = "org.gnome.Mutter.RemoteDesktop"


def main():
    if len(sys.argv) != 2:
        print("usage: gnome-tap-keysym.py KEYSYM", file=sys.stderr)
        return 2
    keysym = int(sys.argv[1], 16)
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    reply = bus.call_sync(SERVICE, "/org/gnome/Mutter/RemoteDesktop", SERVICE, "CreateSession", None,
                          GLib.VariantType("(o)"), Gio.DBusCallFlags.NONE, 5000, None)
    session = reply.unpack()[0]
    interface = SERVICE + ".Session"
    bus.call_sync(SERVICE, session, interface, "Start", None, None, Gio.DBusCallFlags.NONE, 5000, None)
    for pressed in (True, False):
        bus.call_sync(SERVICE, session, interface, "NotifyKeyboardKeysym", GLib.Variant("(ub)", (keysym, pressed)),
                      None, Gio.DBusCallFlags.NONE, 5000, None)
    bus.call_sync(SERVICE, session, interface, "Stop", None, None, Gio.DBusCallFlags.NONE, 5000, None)
    return 0


if __name__ == "__main__":
    sys.exit(main())
