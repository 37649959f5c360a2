// Stands in for a desktop's physical keyboard on a headless compositor: puts one virtual keyboard (with the
// default layout) on the first seat and idles until SIGTERM, so clients have a keyboard before any test types,
// as they would on a real desktop. Prints "ready" once the compositor has the keyboard.
#include "virtual-keyboard-unstable-v1-client-protocol.h"

#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

struct Globals {
    wl_seat* seat = nullptr;
    zwp_virtual_keyboard_manager_v1* manager = nullptr;
};

void onGlobal(void* data, wl_registry* registry, uint32_t name, const char* interface, uint32_t) {
    auto& globals = *static_cast<Globals*>(data);
    if (std::string_view(interface) == wl_seat_interface.name && globals.seat == nullptr) {
        globals.seat = static_cast<wl_seat*>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
    } else if (std::string_view(interface) == zwp_virtual_keyboard_manager_v1_interface.name) {
        globals.manager = static_cast<zwp_virtual_keyboard_manager_v1*>(
            wl_registry_bind(registry, name, &zwp_virtual_keyboard_manager_v1_interface, 1));
    }
}
void onGlobalRemoved(void*, wl_registry*, uint32_t) {}
const wl_registry_listener registryListener{onGlobal, onGlobalRemoved};

int defaultKeymapFile(std::size_t& size) {
    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    xkb_keymap* keymap = xkb_keymap_new_from_names(context, nullptr, XKB_KEYMAP_COMPILE_NO_FLAGS);
    char* text = keymap == nullptr ? nullptr : xkb_keymap_get_as_string(keymap, XKB_KEYMAP_FORMAT_TEXT_V1);
    int fd = -1;
    if (text != nullptr) {
        size = std::strlen(text) + 1;
        fd = memfd_create("placeholder-keymap", MFD_CLOEXEC);
        if (fd >= 0 && write(fd, text, size) != static_cast<ssize_t>(size)) {
            close(fd);
            fd = -1;
        }
    }
    std::free(text);
    xkb_keymap_unref(keymap);
    xkb_context_unref(context);
    return fd;
}

} // namespace

int main() {
    wl_display* display = wl_display_connect(nullptr);
    if (display == nullptr) {
        std::fputs("no Wayland compositor\n", stderr);
        return 1;
    }
    Globals globals;
    wl_registry_add_listener(wl_display_get_registry(display), &registryListener, &globals);
    wl_display_roundtrip(display);
    std::size_t size = 0;
    const int fd = defaultKeymapFile(size);
    if (globals.seat == nullptr || globals.manager == nullptr || fd < 0) {
        std::fputs("no seat, no virtual keyboard manager or no keymap\n", stderr);
        return 1;
    }
    zwp_virtual_keyboard_v1* keyboard =
        zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(globals.manager, globals.seat);
    zwp_virtual_keyboard_v1_keymap(keyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd, static_cast<uint32_t>(size));
    close(fd);
    wl_display_roundtrip(display);
    std::puts("ready");
    std::fflush(stdout);
    while (wl_display_dispatch(display) >= 0) {
    }
    return 0;
}
