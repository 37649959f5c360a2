#pragma once

#include "AccessibilityProbe.h"

#include <atomic>
#include <mutex>

// Xlib's connection type, declared here so that users of the probe need no Xlib header (its macros clash).
struct _XDisplay;

namespace keyferry {

// On Linux, typing is possible when an X display can be reached (DISPLAY) and offers the XTEST extension.
// A Wayland session without a reachable X server answers false. There is no permission to ask for, so the
// prompt flag changes nothing.
//
// It is asked before every text, so it follows the display instead of opening a connection each time: it
// keeps one connection and answers from it for as long as the server keeps it open; a closed connection
// (the server went away) is noticed at the next question without blocking, and that question connects
// again. Owned by the application (or a test); callable from any thread (one lock); never fails:
// any doubt answers false.
class X11AccessibilityProbe final : public AccessibilityProbe {
public:
    X11AccessibilityProbe() = default;
    ~X11AccessibilityProbe() override;
    X11AccessibilityProbe(const X11AccessibilityProbe&) = delete;
    X11AccessibilityProbe& operator=(const X11AccessibilityProbe&) = delete;

    bool isTrusted(bool prompt) override;

private:
    bool connect();
    bool stillConnected();
    void disconnect();

    std::mutex mutex;
    _XDisplay* display = nullptr;
    std::atomic<bool> connectionLost{false};
    bool hasXTest = false;
};

} // namespace keyferry
