#pragma once

#include "AccessibilityProbe.h"

namespace keyferry {

// Typing through GNOME's remote desktop is possible when the session bus has org.gnome.Mutter.RemoteDesktop
// and it creates and starts a session (stopped again at once). mutter asks nothing, so the prompt flag
// changes nothing. Owned by the application (or a tool); callable from any thread; any doubt answers false.
class GnomeRemoteDesktopProbe final : public AccessibilityProbe {
public:
    bool isTrusted(bool prompt) override;
};

} // namespace keyferry
