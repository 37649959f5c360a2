#!/usr/bin/env python3
# Taps Caps Lock through a GNOME remote-desktop session of its own, as a user would on a keyboard, so that the
# lock is on (or off) for the whole seat. Argument: "on" or "off". Prints the lock's state as mutter told it
# before ("on" or "off"), and exits 0 once it is the one asked for, 1 otherwise.
import sys
import time

from gi.repository import Gio, GLib

SERVICE = "org.gnome.Mutter.RemoteDesktop"
SESSION = SERVICE + ".Session"
CAPS_LOCK = 0xFFE5


def call(bus, path, interface, method, arguments=None, answer=None):
    return bus.call_sync(SERVICE, path, interface, method, arguments, answer, Gio.DBusCallFlags.NONE, 5000, None)


def caps_lock_on(bus, path):
    reply = bus.call_sync(SERVICE, path, "org.freedesktop.DBus.Properties", "Get",
                          GLib.Variant("(ss)", (SESSION, "CapsLockState")), GLib.VariantType("(v)"),
                          Gio.DBusCallFlags.NONE, 5000, None)
    return bool(reply.unpack()[0])


def main():
    wanted = sys.argv[1] == "on"
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    path = call(bus, "/org/gnome/Mutter/RemoteDesktop", SERVICE, "CreateSession", None,
                GLib.VariantType("(o)")).unpack()[0]
    call(bus, path, SESSION, "Start")
    before = caps_lock_on(bus, path)
    if before != wanted:
        for pressed in (True, False):
            call(bus, path, SESSION, "NotifyKeyboardKeysym", GLib.Variant("(ub)", (CAPS_LOCK, pressed)))
    deadline = time.monotonic() + 5
    while caps_lock_on(bus, path) != wanted and time.monotonic() < deadline:
        time.sleep(0.05)
    state = caps_lock_on(bus, path)
    call(bus, path, SESSION, "Stop")
    print("on" if before else "off", flush=True)
    return 0 if state == wanted else 1


if __name__ == "__main__":
    sys.exit(main())
