#include "ShiftPressCounter.h"

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/keysym.h>

#include <stdexcept>

namespace keyferry {

ShiftPressCounter::ShiftPressCounter() : display(XOpenDisplay(nullptr)) {
    int eventBase = 0;
    int errorBase = 0;
    int major = 2;
    int minor = 0;
    if (display == nullptr || !XQueryExtension(display, "XInputExtension", &inputOpcode, &eventBase, &errorBase) ||
        XIQueryVersion(display, &major, &minor) != Success) {
        if (display != nullptr) {
            XCloseDisplay(display);
        }
        throw std::runtime_error("no X display with the X input extension 2.0 to watch");
    }
    leftShift = XKeysymToKeycode(display, XK_Shift_L);
    rightShift = XKeysymToKeycode(display, XK_Shift_R);
    unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(bits, XI_RawKeyPress);
    XIEventMask mask{XIAllMasterDevices, sizeof(bits), bits};
    XISelectEvents(display, DefaultRootWindow(display), &mask, 1);
    XSync(display, False);
}

ShiftPressCounter::~ShiftPressCounter() {
    XCloseDisplay(display);
}

std::size_t ShiftPressCounter::count() {
    XSync(display, False);
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        XGenericEventCookie& cookie = event.xcookie;
        if (cookie.type == GenericEvent && cookie.extension == inputOpcode && XGetEventData(display, &cookie)) {
            const auto* raw = static_cast<const XIRawEvent*>(cookie.data);
            const auto keycode = static_cast<unsigned>(raw->detail);
            if (cookie.evtype == XI_RawKeyPress && (keycode == leftShift || keycode == rightShift)) {
                ++seen;
            }
            XFreeEventData(display, &cookie);
        }
    }
    return seen;
}

} // namespace keyferry
