#pragma once

#include <optional>
#include <sys/types.h>

namespace keyferry {

// The process of the window KDE's compositor has active (the one that gets the keys), read through KDE's
// window management (org_kde_plasma_window_management, version 12 or later) on a short connection of its own:
// KWin offers it only to a program whose installed desktop entry lists it in X-KDE-Wayland-Interfaces.
// None when it is not offered, no window is active, or the compositor does not answer within a second.
// Blocks the calling thread for a few roundtrips; callable from any thread.
std::optional<pid_t> kdeActiveWindowProcess();

} // namespace keyferry
