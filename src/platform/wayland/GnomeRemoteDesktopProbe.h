#pragma once

#include "AccessibilityProbe.h"

#include <atomic>

namespace keyferry {

// Typing through GNOME's remote desktop is possible when the session bus has org.gnome.Mutter.RemoteDesktop
// and it creates and starts a session (stopped again at once). Asked before every text, so once a session
// could be created only the service's presence is checked again, until it goes away. mutter asks nothing,
// so the prompt flag changes nothing. Owned by the application (or a tool); callable from any thread; any
// doubt answers false.
class GnomeRemoteDesktopProbe final : public AccessibilityProbe {
public:
    bool isTrusted(bool prompt) override;

private:
    std::atomic<bool> sessionCreated{false};
};

} // namespace keyferry
