#pragma once

#include "LayoutKeyPlan.h"
#include "WaylandOwned.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct wl_display;
struct wl_keyboard;
struct wl_registry;
struct wl_seat;
struct xkb_context;

namespace keyferry {

// The user's keymap and the layout in effect, as the compositor (WAYLAND_DISPLAY) tells any client through
// the first seat's wl_keyboard: the keymap it sends, resent when the user changes it, and the layout (xkb
// group) of its last modifiers event. Compositors send modifiers only to the focused client, so the layout in
// effect is mostly unknown: a keymap with several layouts is then planned with only what types the same in
// every layout (see LayoutKeyPlan::forEveryLayout), so nothing is typed as the wrong character or dropped.
// Routes that press the user's own keys plan their strokes with it.
//
// Owned by one poster, which calls it from one thread at a time; not thread-safe. Never throws: a compositor
// that cannot be reached or has no keyboard on its seat gives no plan.
class SeatKeymap {
public:
    SeatKeymap();
    ~SeatKeymap();
    SeatKeymap(const SeatKeymap&) = delete;
    SeatKeymap& operator=(const SeatKeymap&) = delete;

    // Connects if not yet done, reads what the compositor sent since the last call and plans with the keymap
    // in effect; waits up to `limit` for a first keymap (a seat gets its keyboard when a keyboard device
    // appears, such as a remote-desktop session's). `knownLayout`, when given, is the layout in effect as the
    // desktop told otherwise. Null when there is still no keymap.
    std::shared_ptr<const LayoutKeyPlan> plan(std::chrono::milliseconds limit,
                                              std::optional<std::uint32_t> knownLayout = std::nullopt);

    // The connection to the compositor (its file descriptor), -1 when not connected; valid until the next plan().
    int connection() const;

    // Called by the listeners with what the compositor sends.
    void globalAdvertised(wl_registry* registry, std::uint32_t name, const char* interface, std::uint32_t version);
    void seatCapabilities(std::uint32_t capabilities);
    void keymapReceived(std::string text);
    void layoutInEffect(std::uint32_t group);

private:
    bool connect();
    void disconnect();

    WaylandOwned<wl_display> display; // first: it ends after its proxies
    WaylandOwned<wl_registry> registry;
    WaylandOwned<wl_seat> seat;
    WaylandOwned<wl_keyboard> keyboard;
    std::unique_ptr<xkb_context, void (*)(xkb_context*)> context;
    std::string keymapText;
    std::optional<std::uint32_t> group;     // from the last modifiers event
    std::optional<std::uint32_t> toldGroup; // from the desktop, when it tells
    bool changed = false;
    std::shared_ptr<const LayoutKeyPlan> current;
};

} // namespace keyferry
