#include "KeymapChangeCounter.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

#include <stdexcept>

namespace keyferry {

namespace {

// The device id the server gives the core keyboard in its notifications.
unsigned coreKeyboardDevice(Display* display) {
    int major = 2;
    int minor = 0;
    XIQueryVersion(display, &major, &minor);
    int count = 0;
    unsigned found = 0;
    XIDeviceInfo* masters = XIQueryDevice(display, XIAllMasterDevices, &count);
    for (int index = 0; index < count; ++index) {
        if (masters[index].use == XIMasterKeyboard) {
            found = static_cast<unsigned>(masters[index].deviceid);
        }
    }
    XIFreeDeviceInfo(masters);
    return found;
}

} // namespace

KeymapChangeCounter::KeymapChangeCounter() : display(XOpenDisplay(nullptr)) {
    int opcode = 0;
    int errorBase = 0;
    int major = XkbMajorVersion;
    int minor = XkbMinorVersion;
    if (display == nullptr || !XkbQueryExtension(display, &opcode, &xkbEventBase, &errorBase, &major, &minor)) {
        if (display != nullptr) {
            XCloseDisplay(display);
        }
        throw std::runtime_error("no X display with XKB to watch");
    }
    coreKeyboard = coreKeyboardDevice(display);
    XkbSelectEvents(display, XkbUseCoreKbd, XkbMapNotifyMask, XkbMapNotifyMask);
    XSync(display, False);
}

KeymapChangeCounter::~KeymapChangeCounter() {
    XCloseDisplay(display);
}

std::size_t KeymapChangeCounter::count() {
    // The server sends the notifications of the requests it handled before this round trip ahead of its reply.
    XSync(display, False);
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        const XkbAnyEvent& any = reinterpret_cast<XkbEvent*>(&event)->any;
        // The server also reports the change on each keyboard device; clients follow the core one.
        if (event.type == xkbEventBase && any.xkb_type == XkbMapNotify && any.device == coreKeyboard) {
            ++seen;
        }
    }
    return seen;
}

} // namespace keyferry
