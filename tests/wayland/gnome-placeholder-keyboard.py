#!/usr/bin/env python3
# Holds a GNOME remote-desktop session, whose keyboard stays on the seat as a real desktop's keyboard would,
# so that windows have a keyboard before the first typed key. mutter 43 puts a session's keyboard on the seat
# only once it pressed a key, so it taps Shift. Waits up to 20 s for the service, prints "ready" once the
# keyboard is there; stops on SIGTERM.
import signal
import sys
import time

from gi.repository import Gio, GLib

SERVICE = "org.gnome.Mutter.RemoteDesktop"
SHIFT_L = 0xFFE1


def started_session(bus):
    deadline = time.monotonic() + 20
    while True:
        try:
            reply = bus.call_sync(SERVICE, "/org/gnome/Mutter/RemoteDesktop", SERVICE, "CreateSession", None,
                                  GLib.VariantType("(o)"), Gio.DBusCallFlags.NONE, 5000, None)
            break
        except GLib.Error:
            if time.monotonic() > deadline:
                raise
            time.sleep(0.1)
    path = reply.unpack()[0]
    bus.call_sync(SERVICE, path, SERVICE + ".Session", "Start", None, None, Gio.DBusCallFlags.NONE, 5000, None)
    for pressed in (True, False):
        bus.call_sync(SERVICE, path, SERVICE + ".Session", "NotifyKeyboardKeysym",
                      GLib.Variant("(ub)", (SHIFT_L, pressed)), None, Gio.DBusCallFlags.NONE, 5000, None)
    return path


def main():
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    started_session(bus)
    print("ready", flush=True)
    loop = GLib.MainLoop()
    GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGTERM, loop.quit)
    loop.run()
    return 0


if __name__ == "__main__":
    sys.exit(main())
