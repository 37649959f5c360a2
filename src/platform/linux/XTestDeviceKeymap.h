#pragma once

#include <X11/Xlib.h>

namespace keyferry {

// XTest events come from their own slave device, and the server switches the core keyboard to that device's
// keymap when they arrive. When the user's layout was set on the other keyboards only, the XTest device still
// has the server's default one and keys would come out in it. This gives the XTest device the core keyboard's
// keymap when their symbols differ; true when it did (the server then reports a keymap change to `display`).
// Needs the X input extension 2.0; does nothing without it.
bool giveTestDeviceTheCoreKeymap(Display* display);

} // namespace keyferry
