#pragma once

#include <wayland-client.h>

#include <cstdint>
#include <string>

namespace keyferry {

// The keymap a compositor hands a client as a file descriptor and size, as text; empty when it cannot be
// mapped. The descriptor stays the caller's to close.
std::string keymapText(int fd, std::uint32_t size);

// Listeners for the clients that look through the registry for globals and follow a seat's capabilities:
// each event goes to the owner's globalAdvertised(registry, name, interface, version) or
// seatCapabilities(capabilities). The owner is the listener's user data.
template <typename Owner> struct SeatDiscovery {
    static void global(void* data, wl_registry* registry, std::uint32_t name, const char* interface,
                       std::uint32_t version) {
        static_cast<Owner*>(data)->globalAdvertised(registry, name, interface, version);
    }
    static void globalRemoved(void*, wl_registry*, std::uint32_t) {}
    static void capabilities(void* data, wl_seat*, std::uint32_t capabilities) {
        static_cast<Owner*>(data)->seatCapabilities(capabilities);
    }
    static void seatName(void*, wl_seat*, const char*) {}

    static constexpr wl_registry_listener registryListener{global, globalRemoved};
    static constexpr wl_seat_listener seatListener{capabilities, seatName};
};

} // namespace keyferry
