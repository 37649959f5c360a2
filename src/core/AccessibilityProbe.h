#pragma once

namespace keyferry {

// Tells whether this process may post synthetic key events to other applications. Owned by the
// application (or a test); callable from any thread; never fails (any doubt answers false).
class AccessibilityProbe {
public:
    virtual ~AccessibilityProbe() = default;

    // With `prompt` set, the platform may ask the user to grant the permission (where it has such a prompt).
    virtual bool isTrusted(bool prompt) = 0;
};

} // namespace keyferry
