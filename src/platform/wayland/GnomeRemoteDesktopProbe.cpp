#include "GnomeRemoteDesktopProbe.h"

#include "GnomeRemoteDesktop.h"

namespace keyferry {

bool GnomeRemoteDesktopProbe::isTrusted(bool) {
    if (!GnomeRemoteDesktop::offered()) {
        sessionCreated = false;
        return false;
    }
    if (!sessionCreated) {
        sessionCreated = GnomeRemoteDesktop::start() != nullptr;
    }
    return sessionCreated;
}

} // namespace keyferry
