// Reports every keymap the seat's keyboard hands to clients, one line each: "keyferry" for Keyferry's own
// keymaps, "user" for any other. Prints "ready" once it has the seat's keyboard; stops on SIGTERM.
#include "VirtualKeyboardKeymap.h"

#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

namespace {

wl_seat* seat = nullptr;

void onGlobal(void*, wl_registry* registry, uint32_t name, const char* interface, uint32_t) {
    if (std::string_view(interface) == wl_seat_interface.name && seat == nullptr) {
        seat = static_cast<wl_seat*>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
    }
}
void onGlobalRemoved(void*, wl_registry*, uint32_t) {}
const wl_registry_listener registryListener{onGlobal, onGlobalRemoved};

void onKeymap(void*, wl_keyboard*, uint32_t, int32_t fd, uint32_t size) {
    void* mapped = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    if (mapped != MAP_FAILED) {
        const std::string text(static_cast<const char*>(mapped), strnlen(static_cast<const char*>(mapped), size));
        std::puts(keyferry::VirtualKeyboardKeymap::isOwnKeymap(text) ? "keyferry" : "user");
        std::fflush(stdout);
        munmap(mapped, size);
    }
    close(fd);
}
void onEnter(void*, wl_keyboard*, uint32_t, wl_surface*, wl_array*) {}
void onLeave(void*, wl_keyboard*, uint32_t, wl_surface*) {}
void onKey(void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t) {}
void onModifiers(void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {}
const wl_keyboard_listener keyboardListener{onKeymap, onEnter, onLeave, onKey, onModifiers, nullptr};

} // namespace

int main() {
    wl_display* display = wl_display_connect(nullptr);
    if (display == nullptr) {
        return 1;
    }
    wl_registry_add_listener(wl_display_get_registry(display), &registryListener, nullptr);
    wl_display_roundtrip(display);
    if (seat == nullptr) {
        return 1;
    }
    wl_keyboard_add_listener(wl_seat_get_keyboard(seat), &keyboardListener, nullptr);
    wl_display_roundtrip(display);
    std::puts("ready");
    std::fflush(stdout);
    while (wl_display_dispatch(display) >= 0) {
    }
    return 0;
}
