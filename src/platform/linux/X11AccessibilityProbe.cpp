#include "X11AccessibilityProbe.h"

#include "XlibErrors.h"

#include <X11/extensions/XTest.h>

#include <poll.h>

namespace keyferry {

X11AccessibilityProbe::~X11AccessibilityProbe() {
    disconnect();
}

bool X11AccessibilityProbe::isTrusted(bool) {
    const std::lock_guard lock(mutex);
    if (display != nullptr && !stillConnected()) {
        disconnect();
    }
    return (display != nullptr || connect()) && hasXTest;
}

bool X11AccessibilityProbe::connect() {
    installXlibErrorHandlers();
    display = XOpenDisplay(nullptr);
    if (display == nullptr) {
        return false;
    }
    connectionLost.store(false);
    reportConnectionLoss(display, connectionLost);
    int eventBase = 0;
    int errorBase = 0;
    int major = 0;
    int minor = 0;
    hasXTest = XTestQueryExtension(display, &eventBase, &errorBase, &major, &minor) == True;
    return true;
}

// Reads whatever the server sent (keyboard mapping notices reach every client) without waiting: the end of
// the connection shows up there as a loss.
bool X11AccessibilityProbe::stillConnected() {
    pollfd connection{ConnectionNumber(display), POLLIN, 0};
    if (poll(&connection, 1, 0) > 0) {
        while (!connectionLost.load() && XPending(display) > 0) {
            XEvent event;
            XNextEvent(display, &event);
        }
    }
    return !connectionLost.load();
}

void X11AccessibilityProbe::disconnect() {
    if (display != nullptr) {
        XCloseDisplay(display);
        display = nullptr;
    }
    hasXTest = false;
}

} // namespace keyferry
