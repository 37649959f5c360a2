#include "SeatKeymap.h"

#include "SeatDiscovery.h"
#include "WaylandRoundtrip.h"

#include <unistd.h>
#include <wayland-client.h>

#include <algorithm>
#include <optional>
#include <string_view>

namespace keyferry {

namespace {

SeatKeymap& owner(void* data) {
    return *static_cast<SeatKeymap*>(data);
}

void onKeymap(void* data, wl_keyboard*, uint32_t format, int32_t fd, uint32_t size) {
    if (format == WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1) {
        owner(data).keymapReceived(keymapText(fd, size));
    }
    close(fd);
}
void onEnter(void*, wl_keyboard*, uint32_t, wl_surface*, wl_array*) {}
void onLeave(void*, wl_keyboard*, uint32_t, wl_surface*) {}
void onKey(void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t) {}
void onModifiers(void* data, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t group) {
    owner(data).layoutInEffect(group);
}
void onRepeatInfo(void*, wl_keyboard*, int32_t, int32_t) {}
const wl_keyboard_listener keyboardListener{onKeymap, onEnter, onLeave, onKey, onModifiers, onRepeatInfo};

// With several layouts and none known to be in effect, only what types the same in all of them.
std::shared_ptr<const LayoutKeyPlan> planFor(xkb_context* context, const std::string& text,
                                             std::optional<uint32_t> group) {
    std::unique_ptr<xkb_keymap, decltype(&xkb_keymap_unref)> keymap(
        xkb_keymap_new_from_string(context, text.c_str(), XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS),
        &xkb_keymap_unref);
    if (!keymap) {
        return nullptr;
    }
    const xkb_layout_index_t layouts = xkb_keymap_num_layouts(keymap.get());
    if (!group && layouts > 1) {
        return std::make_shared<const LayoutKeyPlan>(LayoutKeyPlan::forEveryLayout(keymap.get()));
    }
    return std::make_shared<const LayoutKeyPlan>(keymap.get(), layouts > 0 ? group.value_or(0) % layouts : 0);
}

} // namespace

SeatKeymap::SeatKeymap() : context(xkb_context_new(XKB_CONTEXT_NO_FLAGS), &xkb_context_unref) {}

SeatKeymap::~SeatKeymap() = default;

bool SeatKeymap::connect() {
    if (display && wl_display_get_error(display.get()) == 0) {
        return true;
    }
    disconnect();
    display = WaylandOwned(wl_display_connect(nullptr), wl_display_disconnect);
    if (!display) {
        return false;
    }
    registry = WaylandOwned(wl_display_get_registry(display.get()), wl_registry_destroy);
    wl_registry_add_listener(registry.get(), &SeatDiscovery<SeatKeymap>::registryListener, this);
    return true;
}

void SeatKeymap::disconnect() {
    keyboard.reset();
    seat.reset();
    registry.reset();
    display.reset();
    keymapText.clear();
    current.reset();
}

std::shared_ptr<const LayoutKeyPlan> SeatKeymap::plan(std::chrono::milliseconds limit,
                                                      std::optional<std::uint32_t> knownLayout) {
    if (!connect()) {
        return nullptr;
    }
    changed = changed || knownLayout != toldGroup;
    toldGroup = knownLayout;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    do {
        if (!roundtripWithin(display.get(), std::chrono::milliseconds(2000))) {
            disconnect();
            return nullptr;
        }
        if (changed && !keymapText.empty()) {
            changed = false;
            current = planFor(context.get(), keymapText, toldGroup ? toldGroup : group);
        }
    } while (!current && std::chrono::steady_clock::now() < deadline);
    return current;
}

int SeatKeymap::connection() const {
    return display ? wl_display_get_fd(display.get()) : -1;
}

void SeatKeymap::globalAdvertised(wl_registry* source, std::uint32_t name, const char* interface,
                                  std::uint32_t version) {
    if (std::string_view(interface) == wl_seat_interface.name && !seat) {
        seat = WaylandOwned(
            static_cast<wl_seat*>(wl_registry_bind(source, name, &wl_seat_interface, std::min(version, 5u))),
            wl_seat_destroy);
        wl_seat_add_listener(seat.get(), &SeatDiscovery<SeatKeymap>::seatListener, this);
    }
}

void SeatKeymap::seatCapabilities(std::uint32_t capabilities) {
    if ((capabilities & WL_SEAT_CAPABILITY_KEYBOARD) != 0 && !keyboard) {
        keyboard = WaylandOwned(wl_seat_get_keyboard(seat.get()), wl_keyboard_destroy);
        wl_keyboard_add_listener(keyboard.get(), &keyboardListener, this);
    }
}

void SeatKeymap::keymapReceived(std::string text) {
    keymapText = std::move(text);
    changed = true;
}

void SeatKeymap::layoutInEffect(std::uint32_t layout) {
    changed = changed || group != layout;
    group = layout;
}

} // namespace keyferry
