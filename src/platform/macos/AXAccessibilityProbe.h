#pragma once

#include "AccessibilityProbe.h"

namespace keyferry {

// The Accessibility permission on macOS: AXIsProcessTrustedWithOptions with a dictionary of one entry,
// kAXTrustedCheckOptionPrompt set to `prompt`. With prompt true the system shows its own request when the
// permission is missing; with false the test is silent. The permission belongs to the application's code
// signature: a rebuilt unsigned application counts as a new one.
//
// Owned by the application; callable from any thread; never fails (a dictionary that cannot be made answers
// with the system's silent default test).
class AXAccessibilityProbe final : public AccessibilityProbe {
public:
    bool isTrusted(bool prompt) override;
};

} // namespace keyferry
