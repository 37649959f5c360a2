#include "KdeFakeInputProbe.h"

#include "WaylandGlobals.h"

namespace keyferry {

bool KdeFakeInputProbe::isTrusted(bool) {
    return advertisedWaylandGlobals().contains("org_kde_kwin_fake_input");
}

} // namespace keyferry
