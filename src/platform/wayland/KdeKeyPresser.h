#pragma once

#include "UserKeyPresser.h"

#include <cstdint>

struct wl_display;
struct wl_registry;
struct org_kde_kwin_fake_input;

namespace keyferry {

// Presses the user's keys through KDE's fake input (org_kde_kwin_fake_input, version 4 for keys), on one
// connection to the compositor kept for the presser's life (made again only after it was lost). KWin offers
// the interface only to a program whose installed desktop entry (Exec= its path) lists it in
// X-KDE-Wayland-Interfaces. Keys go as key codes, each followed by a roundtrip, so KWin has taken a key
// before the next (which spares slow windows a flood). Contract as UserKeyPresser's.
class KdeKeyPresser final : public UserKeyPresser {
public:
    KdeKeyPresser() = default;
    ~KdeKeyPresser() override;
    KdeKeyPresser(const KdeKeyPresser&) = delete;
    KdeKeyPresser& operator=(const KdeKeyPresser&) = delete;

    bool ready() override;
    bool press(const LayoutKey& key, bool pressed) override;
    bool confirm() override;
    // The layout KDE's keyboard service (org.kde.keyboard on the session bus) says is in effect.
    std::optional<std::uint32_t> layoutInEffect() override;

    // Called by the registry's listener.
    void globalAdvertised(wl_registry* registry, std::uint32_t name, const char* interface, std::uint32_t version);

private:
    void disconnect();

    wl_display* display = nullptr;
    wl_registry* registry = nullptr;
    org_kde_kwin_fake_input* fakeInput = nullptr;
};

} // namespace keyferry
