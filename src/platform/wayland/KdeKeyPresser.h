#pragma once

#include "UserKeyPresser.h"
#include "WaylandOwned.h"

#include <cstdint>

struct wl_display;
struct wl_registry;
struct org_kde_kwin_fake_input;
struct org_kde_kwin_keystate;

namespace keyferry {

// Presses the user's keys through KDE's fake input (org_kde_kwin_fake_input, version 4 for keys), on one
// connection to the compositor kept for the presser's life (made again only after it was lost). KWin offers
// the interface only to a program whose installed desktop entry (Exec= its path) lists it in
// X-KDE-Wayland-Interfaces. Keys go as key codes, each followed by a roundtrip, so KWin has taken a key
// before the next (which spares slow windows a flood). Caps Lock's state comes from KDE's key states
// (org_kde_kwin_keystate), granted by the same desktop entry; without it, the state is unknown. So is the
// active window's program, through KDE's window management.
// Contract as UserKeyPresser's.
class KdeKeyPresser final : public UserKeyPresser {
public:
    bool ready() override;
    bool press(const LayoutKey& key, bool pressed) override;
    bool confirm() override;
    // The layout KDE's keyboard service (org.kde.keyboard on the session bus) says is in effect.
    std::optional<std::uint32_t> layoutInEffect() override;
    std::optional<bool> capsLockOn() override;
    // Judged from the program of KDE's active window (see kdeActiveWindowProcess, takesUnicodeEntry).
    std::optional<bool> focusedWindowTakesUnicodeEntry() override;

    // Called by the registry's listener.
    void globalAdvertised(wl_registry* registry, std::uint32_t name, const char* interface, std::uint32_t version);
    // Called by the key states' listener.
    void lockStateChanged(std::uint32_t key, std::uint32_t state);

private:
    void disconnect();

    WaylandOwned<wl_display> display; // first: it ends after its proxies
    WaylandOwned<wl_registry> registry;
    WaylandOwned<org_kde_kwin_fake_input> fakeInput;
    WaylandOwned<org_kde_kwin_keystate> keyStates;
    std::optional<bool> capsLocked;
};

} // namespace keyferry
