#pragma once

#include "AccessibilityProbe.h"

namespace keyferry {

// Typing through KDE's fake input is possible when the session's compositor (WAYLAND_DISPLAY) can be reached
// and offers org_kde_kwin_fake_input to this program, which KWin does once Keyferry's desktop entry is
// installed. Nothing can be asked for at run time, so the prompt flag changes nothing. Owned by the
// application (or a tool); callable from any thread (each call makes its own short connection); any doubt
// answers false.
class KdeFakeInputProbe final : public AccessibilityProbe {
public:
    bool isTrusted(bool prompt) override;
};

} // namespace keyferry
