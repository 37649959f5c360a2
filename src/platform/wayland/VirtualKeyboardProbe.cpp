#include "VirtualKeyboardProbe.h"

#include "WaylandGlobals.h"

namespace keyferry {

bool VirtualKeyboardProbe::isTrusted(bool) {
    return advertisedWaylandGlobals().contains("zwp_virtual_keyboard_manager_v1");
}

} // namespace keyferry
