#include "WaylandGlobals.h"

#include "WaylandRoundtrip.h"

#include <wayland-client.h>

namespace keyferry {

namespace {

void addGlobal(void* data, wl_registry*, uint32_t, const char* interface, uint32_t) {
    static_cast<std::set<std::string>*>(data)->insert(interface);
}

void ignoreRemovedGlobal(void*, wl_registry*, uint32_t) {}

const wl_registry_listener collectingListener{addGlobal, ignoreRemovedGlobal};

} // namespace

std::set<std::string> advertisedWaylandGlobals() {
    std::set<std::string> globals;
    wl_display* display = wl_display_connect(nullptr);
    if (display == nullptr) {
        return globals;
    }
    wl_registry* registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &collectingListener, &globals);
    if (!roundtripWithin(display, std::chrono::seconds(2))) {
        globals.clear();
    }
    wl_registry_destroy(registry);
    wl_display_disconnect(display);
    return globals;
}

} // namespace keyferry
