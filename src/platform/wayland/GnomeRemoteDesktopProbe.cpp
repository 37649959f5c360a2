#include "GnomeRemoteDesktopProbe.h"

#include "GnomeRemoteDesktop.h"

namespace keyferry {

bool GnomeRemoteDesktopProbe::isTrusted(bool) {
    return GnomeRemoteDesktop::offered() && GnomeRemoteDesktop::start() != nullptr;
}

} // namespace keyferry
