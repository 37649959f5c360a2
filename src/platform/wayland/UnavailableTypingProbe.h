#pragma once

#include "AccessibilityProbe.h"

namespace keyferry {

// The answer where no typing route works in this session: always false, so the state stays
// permissionRequired and no text is ever acknowledged as typed. Stateless; callable from any thread.
class UnavailableTypingProbe final : public AccessibilityProbe {
public:
    bool isTrusted(bool) override { return false; }
};

} // namespace keyferry
