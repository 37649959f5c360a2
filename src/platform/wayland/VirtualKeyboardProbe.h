#pragma once

#include "AccessibilityProbe.h"

namespace keyferry {

// Typing through the virtual keyboard is possible when the session's compositor (WAYLAND_DISPLAY) can be
// reached and advertises zwp_virtual_keyboard_manager_v1. There is nothing to grant, so the prompt flag
// changes nothing. Owned by the application (or a tool); callable from any thread (each call makes its own
// short connection); never fails: any doubt answers false.
class VirtualKeyboardProbe final : public AccessibilityProbe {
public:
    bool isTrusted(bool prompt) override;
};

} // namespace keyferry
