#!/usr/bin/env python3
# systemd's locale service (org.freedesktop.locale1) as far as mutter reads it at start: the X11 keyboard
# layouts and options, from which headless mutter builds its keymap (GNOME Shell would set it from the input
# sources). Arguments: LAYOUTS (such as "us,ru") and OPTIONS (such as "grp:caps_toggle"). Serves on the
# session bus (the test gives mutter that bus as its system bus too); prints "ready" once the name is owned;
# stops on SIGTERM.
import signal
import sys

from gi.repository import Gio, GLib

NAME = "org.freedesktop.locale1"
INTERFACE = """
<node>
  <interface name="org.freedesktop.locale1">
    <property name="X11Layout" type="s" access="read"/>
    <property name="X11Model" type="s" access="read"/>
    <property name="X11Variant" type="s" access="read"/>
    <property name="X11Options" type="s" access="read"/>
  </interface>
</node>
"""


def main():
    if len(sys.argv) != 3:
        print("usage: fake-locale1.py LAYOUTS OPTIONS", file=sys.stderr)
        return 2
    values = {"X11Layout": sys.argv[1], "X11Model": "pc105", "X11Variant": "", "X11Options": sys.argv[2]}
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    interface = Gio.DBusNodeInfo.new_for_xml(INTERFACE).interfaces[0]
    bus.register_object("/org/freedesktop/locale1", interface, None,
                        lambda *call: GLib.Variant("s", values[call[4]]), None)
    loop = GLib.MainLoop()

    def owned(*_):
        print("ready", flush=True)

    Gio.bus_own_name_on_connection(bus, NAME, Gio.BusNameOwnerFlags.NONE, owned, lambda *_: loop.quit())
    GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGTERM, loop.quit)
    loop.run()
    return 0


if __name__ == "__main__":
    sys.exit(main())
