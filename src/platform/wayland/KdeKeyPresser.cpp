#include "KdeKeyPresser.h"

#include "KdeActiveWindow.h"
#include "SeatDiscovery.h"
#include "UnicodeEntryReach.h"
#include "WaylandRoundtrip.h"
#include "fake-input-client-protocol.h"
#include "keystate-client-protocol.h"

#include <gio/gio.h>
#include <wayland-client.h>

#include <string_view>

namespace keyferry {

namespace {

constexpr std::uint32_t keysSince = 4; // keyboard_key came with version 4
constexpr std::chrono::milliseconds answerLimit(5000);
// What KWin shows when it asks the user (Plasma 5.27 does not ask once the desktop entry grants it).
constexpr const char* applicationName = "Keyferry";
constexpr const char* reason = "Types the texts you send from your phone";

void onLockStateChanged(void* data, org_kde_kwin_keystate*, std::uint32_t key, std::uint32_t state) {
    static_cast<KdeKeyPresser*>(data)->lockStateChanged(key, state);
}
const org_kde_kwin_keystate_listener keyStateListener{onLockStateChanged};

// Version 1 of the key states has no destroy request: only the proxy goes.
void forgetKeyStates(org_kde_kwin_keystate* keyStates) {
    wl_proxy_destroy(reinterpret_cast<wl_proxy*>(keyStates));
}

} // namespace

void KdeKeyPresser::disconnect() {
    fakeInput.reset();
    keyStates.reset();
    capsLocked.reset();
    registry.reset();
    display.reset();
}

bool KdeKeyPresser::ready() {
    if (display && fakeInput && wl_display_get_error(display.get()) == 0) {
        return true;
    }
    disconnect();
    display = WaylandOwned(wl_display_connect(nullptr), wl_display_disconnect);
    if (!display) {
        return false;
    }
    registry = WaylandOwned(wl_display_get_registry(display.get()), wl_registry_destroy);
    wl_registry_add_listener(registry.get(), &SeatDiscovery<KdeKeyPresser>::registryListener, this);
    if (!roundtripWithin(display.get(), answerLimit) || !fakeInput) {
        disconnect();
        return false;
    }
    org_kde_kwin_fake_input_authenticate(fakeInput.get(), applicationName, reason);
    return roundtripWithin(display.get(), answerLimit);
}

void KdeKeyPresser::globalAdvertised(wl_registry* source, std::uint32_t name, const char* interface,
                                     std::uint32_t version) {
    if (std::string_view(interface) == org_kde_kwin_fake_input_interface.name && !fakeInput && version >= keysSince) {
        fakeInput = WaylandOwned(static_cast<org_kde_kwin_fake_input*>(
                                     wl_registry_bind(source, name, &org_kde_kwin_fake_input_interface, keysSince)),
                                 org_kde_kwin_fake_input_destroy);
    } else if (std::string_view(interface) == org_kde_kwin_keystate_interface.name && !keyStates) {
        keyStates = WaylandOwned(
            static_cast<org_kde_kwin_keystate*>(wl_registry_bind(source, name, &org_kde_kwin_keystate_interface, 1)),
            forgetKeyStates);
        org_kde_kwin_keystate_add_listener(keyStates.get(), &keyStateListener, this);
    }
}

void KdeKeyPresser::lockStateChanged(std::uint32_t key, std::uint32_t state) {
    if (key == ORG_KDE_KWIN_KEYSTATE_KEY_CAPSLOCK) {
        capsLocked = state == ORG_KDE_KWIN_KEYSTATE_STATE_LOCKED;
    }
}

std::optional<bool> KdeKeyPresser::capsLockOn() {
    if (!keyStates || !display) {
        return std::nullopt;
    }
    org_kde_kwin_keystate_fetchStates(keyStates.get());
    if (!roundtripWithin(display.get(), answerLimit)) {
        disconnect();
        return std::nullopt;
    }
    return capsLocked;
}

std::optional<bool> KdeKeyPresser::focusedWindowTakesUnicodeEntry() {
    const auto process = kdeActiveWindowProcess();
    return process ? processTakesUnicodeEntry(*process) : std::nullopt;
}

bool KdeKeyPresser::press(const LayoutKey& key, bool pressed) {
    if (!fakeInput || key.keycode < 8) {
        return false;
    }
    // xkb key codes are the kernel's plus 8; fake input takes the kernel's.
    org_kde_kwin_fake_input_keyboard_key(fakeInput.get(), key.keycode - 8,
                                         pressed ? WL_KEYBOARD_KEY_STATE_PRESSED : WL_KEYBOARD_KEY_STATE_RELEASED);
    // A roundtrip each: sent without one, at the same pace, a long text got a GTK window dropped by KWin.
    return confirm();
}

bool KdeKeyPresser::confirm() {
    if (!display) {
        return false;
    }
    if (!roundtripWithin(display.get(), answerLimit)) {
        disconnect();
        return false;
    }
    return true;
}

} // namespace keyferry

namespace keyferry {

std::optional<std::uint32_t> KdeKeyPresser::layoutInEffect() {
    GError* error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (bus == nullptr) {
        g_clear_error(&error);
        return std::nullopt;
    }
    GVariant* reply = g_dbus_connection_call_sync(bus, "org.kde.keyboard", "/Layouts", "org.kde.KeyboardLayouts",
                                                  "getLayout", nullptr, G_VARIANT_TYPE("(u)"),
                                                  G_DBUS_CALL_FLAGS_NO_AUTO_START, 2000, nullptr, &error);
    g_clear_error(&error);
    g_object_unref(bus);
    if (reply == nullptr) {
        return std::nullopt;
    }
    guint32 layout = 0;
    g_variant_get(reply, "(u)", &layout);
    g_variant_unref(reply);
    return layout;
}

} // namespace keyferry
