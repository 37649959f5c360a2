#include "X11AccessibilityProbe.h"

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

namespace keyferry {

bool X11AccessibilityProbe::isTrusted(bool) {
    Display* display = XOpenDisplay(nullptr);
    if (display == nullptr) {
        return false;
    }
    int eventBase = 0;
    int errorBase = 0;
    int major = 0;
    int minor = 0;
    const bool hasXTest = XTestQueryExtension(display, &eventBase, &errorBase, &major, &minor) == True;
    XCloseDisplay(display);
    return hasXTest;
}

} // namespace keyferry
