#include "WaylandVirtualKeyboard.h"

#include "SeatDiscovery.h"
#include "WaylandRoundtrip.h"
#include "virtual-keyboard-unstable-v1-client-protocol.h"

#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <thread>

namespace keyferry {

namespace {

// How long the compositor may take to answer before typing gives up (it answers within a millisecond).
constexpr std::chrono::milliseconds answerLimit(5000);

// How often a receiving client that is behind is looked at again. It is behind by more than half a send
// buffer, many batches of keys, so it has work for far longer than this; each look costs CPU time that a
// busy machine would otherwise give that client.
constexpr std::chrono::milliseconds behindLookInterval(10);

bool answered(wl_display* display) {
    return roundtripWithin(display, answerLimit);
}

WaylandVirtualKeyboard& owner(void* data) {
    return *static_cast<WaylandVirtualKeyboard*>(data);
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
void onModifiers(void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {}
void onRepeatInfo(void*, wl_keyboard*, int32_t, int32_t) {}
const wl_keyboard_listener keyboardListener{onKeymap, onEnter, onLeave, onKey, onModifiers, onRepeatInfo};

struct KeymapDeleter {
    void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
};
using Keymap = std::unique_ptr<xkb_keymap, KeymapDeleter>;

// The keymap as the library that compositors use writes it: complete (no includes left) and known valid.
std::string keymapText(const Keymap& keymap) {
    if (!keymap) {
        return {};
    }
    char* text = xkb_keymap_get_as_string(keymap.get(), XKB_KEYMAP_FORMAT_TEXT_V1);
    std::string result = text == nullptr ? std::string() : std::string(text);
    std::free(text);
    return result;
}

} // namespace

WaylandVirtualKeyboard::WaylandVirtualKeyboard(Timing keyboardTiming)
    : timing(keyboardTiming), context(xkb_context_new(XKB_CONTEXT_NO_FLAGS)), pacer(timing.pacing),
      blindPacer(timing.blindPacing) {}

WaylandVirtualKeyboard::~WaylandVirtualKeyboard() {
    if (healthy()) {
        restoreUserKeymap();
    }
    disconnect();
    xkb_context_unref(context);
}

bool WaylandVirtualKeyboard::healthy() const {
    return display != nullptr && keyboard != nullptr && wl_display_get_error(display) == 0;
}

bool WaylandVirtualKeyboard::connect() {
    if (healthy()) {
        return true;
    }
    disconnect();
    if (context == nullptr || (display = wl_display_connect(nullptr)) == nullptr) {
        return false;
    }
    registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &SeatDiscovery<WaylandVirtualKeyboard>::registryListener, this);
    if (!answered(display) || manager == nullptr || seat == nullptr) {
        disconnect();
        return false;
    }
    keyboard = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(manager, seat);
    // The seat's capabilities, then its keyboard's keymap: the user's, to give back after typing.
    answered(display);
    answered(display);
    connectedAt = std::chrono::steady_clock::now();
    if (timing.watchBacklog) {
        backlog.emplace(wl_display_get_fd(display));
    }
    brake = BacklogBrake();
    // A virtual keyboard is complete once it has a keymap; the user's keeps the layout as it was.
    if (!uploadKeymap(userKeymap.empty() ? defaultUserKeymap() : userKeymap) || !answered(display)) {
        disconnect();
        return false;
    }
    return true;
}

void WaylandVirtualKeyboard::disconnect() {
    if (keyboard != nullptr) {
        zwp_virtual_keyboard_v1_destroy(keyboard);
    }
    if (manager != nullptr) {
        zwp_virtual_keyboard_manager_v1_destroy(manager);
    }
    if (seatKeyboard != nullptr) {
        wl_keyboard_destroy(seatKeyboard);
    }
    if (seat != nullptr) {
        wl_seat_destroy(seat);
    }
    if (registry != nullptr) {
        wl_registry_destroy(registry);
    }
    if (display != nullptr) {
        wl_display_flush(display);
        wl_display_disconnect(display);
    }
    keyboard = nullptr;
    manager = nullptr;
    seatKeyboard = nullptr;
    seat = nullptr;
    registry = nullptr;
    display = nullptr;
    keys = VirtualKeyboardKeymap();
    ownKeymapUploaded = false;
}

void WaylandVirtualKeyboard::globalAdvertised(wl_registry* source, uint32_t name, std::string_view interface,
                                              uint32_t version) {
    if (interface == wl_seat_interface.name && seat == nullptr) {
        seat = static_cast<wl_seat*>(wl_registry_bind(source, name, &wl_seat_interface, std::min(version, 5u)));
        wl_seat_add_listener(seat, &SeatDiscovery<WaylandVirtualKeyboard>::seatListener, this);
    } else if (interface == zwp_virtual_keyboard_manager_v1_interface.name && manager == nullptr) {
        manager = static_cast<zwp_virtual_keyboard_manager_v1*>(
            wl_registry_bind(source, name, &zwp_virtual_keyboard_manager_v1_interface, 1));
    }
}

void WaylandVirtualKeyboard::seatCapabilities(uint32_t capabilities) {
    if ((capabilities & WL_SEAT_CAPABILITY_KEYBOARD) != 0 && seatKeyboard == nullptr) {
        seatKeyboard = wl_seat_get_keyboard(seat);
        wl_keyboard_add_listener(seatKeyboard, &keyboardListener, this);
    }
}

void WaylandVirtualKeyboard::keymapReceived(std::string keymapText) {
    // The compositor also echoes Keyferry's own keymaps; only the user's are worth giving back.
    if (!keymapText.empty() && !VirtualKeyboardKeymap::isOwnKeymap(keymapText)) {
        userKeymap = std::move(keymapText);
    }
}

std::string WaylandVirtualKeyboard::defaultUserKeymap() const {
    return keymapText(Keymap(xkb_keymap_new_from_names(context, nullptr, XKB_KEYMAP_COMPILE_NO_FLAGS)));
}

bool WaylandVirtualKeyboard::uploadKeymap(const std::string& keymapText) {
    if (keymapText.empty()) {
        return false;
    }
    const int fd = memfd_create("keyferry-keymap", MFD_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const std::size_t size = keymapText.size() + 1; // with its terminating NUL, as keymaps travel
    const bool written = write(fd, keymapText.c_str(), size) == static_cast<ssize_t>(size);
    if (written) {
        zwp_virtual_keyboard_v1_keymap(keyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd, static_cast<uint32_t>(size));
        zwp_virtual_keyboard_v1_modifiers(keyboard, 0, 0, 0, 0);
    }
    close(fd); // the request carries its own duplicate
    return written;
}

bool WaylandVirtualKeyboard::type(const std::vector<uint32_t>& keysyms, std::span<const uint32_t> upcoming) {
    if (!connect()) {
        return false;
    }
    // A compositor that stopped answering gets a fresh connection next time.
    const bool typed = typeConnected(keysyms, upcoming);
    if (!typed) {
        disconnect();
    }
    return typed;
}

bool WaylandVirtualKeyboard::typeConnected(const std::vector<uint32_t>& keysyms, std::span<const uint32_t> upcoming) {
    if (keys.include(keysyms, upcoming) || !ownKeymapUploaded) {
        const std::string own = keymapText(Keymap(xkb_keymap_new_from_string(
            context, keys.text().c_str(), XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS)));
        if (!uploadKeymap(own) || !answered(display)) {
            return false;
        }
        ownKeymapUploaded = true;
        std::this_thread::sleep_for(timing.keymapSettle);
    }
    std::vector<uint32_t> evdevKeys;
    for (const uint32_t keysym : keysyms) {
        const auto key = keys.evdevKeyFor(keysym);
        if (!key) {
            return false;
        }
        evdevKeys.push_back(*key);
    }
    for (std::size_t first = 0; first < evdevKeys.size(); first += timing.keysPerRoundtrip) {
        const std::size_t count = std::min(timing.keysPerRoundtrip, evdevKeys.size() - first);
        if (!pressAndRelease(std::span(evdevKeys).subspan(first, count))) {
            return false;
        }
    }
    return true;
}

// The keys go together, so the compositor reads them at once and hands them to the focused client in one
// write: a client that falls behind then has whole batches queued, not a socket full of one-key writes.
bool WaylandVirtualKeyboard::pressAndRelease(std::span<const uint32_t> evdevKeys) {
    if (!receiverKeepsUp()) {
        return false;
    }
    const int count = static_cast<int>(evdevKeys.size());
    KeyPacer& pace = backlogSeen ? pacer : blindPacer;
    std::this_thread::sleep_until(pace.nextKeysAt(std::chrono::steady_clock::now(), count));
    pace.sent(std::chrono::steady_clock::now(), count);
    const uint32_t time = milliseconds();
    for (const uint32_t key : evdevKeys) {
        zwp_virtual_keyboard_v1_key(keyboard, time, key, WL_KEYBOARD_KEY_STATE_PRESSED);
        zwp_virtual_keyboard_v1_key(keyboard, time, key, WL_KEYBOARD_KEY_STATE_RELEASED);
    }
    brake.keysSent();
    return answered(display);
}

// Waits while the client receiving the keys is behind; false when it read nothing for `receiverPatience`.
// True at once where the compositor's connections cannot be seen: the blind pacer alone then keeps the pace.
bool WaylandVirtualKeyboard::receiverKeepsUp() {
    auto deadline = std::chrono::steady_clock::now() + timing.receiverPatience;
    std::uint64_t lastExcess = 0;
    for (;;) {
        const auto connections = backlog ? backlog->sample() : std::nullopt;
        backlogSeen = connections.has_value();
        const std::uint64_t excess = connections ? brake.excess(*connections) : 0;
        if (excess == 0) {
            return true;
        }
        if (lastExcess != 0 && excess < lastExcess) {
            deadline = std::chrono::steady_clock::now() + timing.receiverPatience;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        lastExcess = excess;
        std::this_thread::sleep_for(behindLookInterval);
    }
}

void WaylandVirtualKeyboard::restoreUserKeymap() {
    if (!ownKeymapUploaded || !healthy()) {
        return;
    }
    // Typing has paused: the next text may go to another window, whose connection the brake learns anew,
    // so a window typed into before that is slow for reasons of its own never holds it up.
    brake = BacklogBrake();
    if (uploadKeymap(userKeymap.empty() ? defaultUserKeymap() : userKeymap)) {
        answered(display);
        ownKeymapUploaded = false;
    }
}

uint32_t WaylandVirtualKeyboard::milliseconds() const {
    const auto elapsed = std::chrono::steady_clock::now() - connectedAt;
    return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
}

} // namespace keyferry
