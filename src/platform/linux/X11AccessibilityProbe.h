#pragma once

#include "AccessibilityProbe.h"

namespace keyferry {

// On Linux, typing is possible when an X display can be reached (DISPLAY) and offers the XTEST extension.
// A Wayland session without a reachable X server answers false. There is no permission to ask for, so the
// prompt flag changes nothing. Owned by the application (or a test); callable from any thread (each call
// opens and closes its own short connection); never fails: any doubt answers false.
class X11AccessibilityProbe final : public AccessibilityProbe {
public:
    bool isTrusted(bool prompt) override;
};

} // namespace keyferry
