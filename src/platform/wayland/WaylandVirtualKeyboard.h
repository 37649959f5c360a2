#pragma once

#include "BacklogBrake.h"
#include "CompositorBacklog.h"
#include "KeyPacer.h"
#include "VirtualKeyboardKeymap.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct wl_display;
struct wl_keyboard;
struct wl_registry;
struct wl_seat;
struct zwp_virtual_keyboard_manager_v1;
struct zwp_virtual_keyboard_v1;
struct xkb_context;

namespace keyferry {

// One connection to the compositor (WAYLAND_DISPLAY) holding one virtual keyboard on the first seat, for as
// long as the object lives: a seat whose keyboard comes and goes makes clients lose the first keys.
// Types characters by giving the virtual keyboard a keymap that has them (see VirtualKeyboardKeymap) and
// pressing their keys, paced so that no client is flooded: keys in batches of `keysPerRoundtrip`, each batch
// as KeyPacer allows and followed by a roundtrip, and after each new keymap a roundtrip plus `keymapSettle`,
// the time Xwayland was seen to need before its clients read keys with the new keymap. Where the compositor's
// connections can be seen (CompositorBacklog), a batch also waits while the client receiving the keys is
// behind (BacklogBrake), and typing fails when that client reads nothing for `receiverPatience`; where they
// cannot, keys go at the slower `blindPacing`. Watches the seat's own keyboard for the user's
// keymap, and gives it back on request.
//
// Owned by VirtualKeyboardPoster, which serialises every call; not thread-safe itself. Failures are
// returned (false), never thrown; a lost connection is reopened (with a new virtual keyboard) on the next call.
class WaylandVirtualKeyboard {
public:
    struct Timing {
        KeyPacer::Timing pacing;      // while the receiving client's backlog is watched
        KeyPacer::Timing blindPacing; // where it cannot be seen (or `watchBacklog` is off)
        std::chrono::steady_clock::duration keymapSettle;
        std::size_t keysPerRoundtrip = 1;
        // How long keys wait for a receiving client that reads nothing at all before typing fails.
        std::chrono::steady_clock::duration receiverPatience = std::chrono::seconds(5);
        bool watchBacklog = true;
    };

    explicit WaylandVirtualKeyboard(Timing timing);
    ~WaylandVirtualKeyboard();
    WaylandVirtualKeyboard(const WaylandVirtualKeyboard&) = delete;
    WaylandVirtualKeyboard& operator=(const WaylandVirtualKeyboard&) = delete;

    // Connects and creates the virtual keyboard now, if not done yet; false when no compositor with the
    // virtual keyboard protocol is reachable.
    bool connect();

    // Types the keysyms in order (each must come from keysymTyping); `upcoming` are the keysyms the text
    // goes on with, to prepare keys for (see VirtualKeyboardKeymap::include). False when the compositor cannot
    // be reached or stopped answering (what was typed before stays typed).
    bool type(const std::vector<std::uint32_t>& keysyms, std::span<const std::uint32_t> upcoming = {});

    // Puts the user's keymap back on the virtual keyboard, so the focused client reads the user's layout
    // again. Does nothing when Keyferry's own keymap is not on it.
    void restoreUserKeymap();
    bool holdsOwnKeymap() const { return ownKeymapUploaded; }

    // Called by the seat keyboard's listener with every keymap the compositor sends.
    void keymapReceived(std::string keymapText);
    // Called by the registry and seat listeners.
    void globalAdvertised(wl_registry* registry, std::uint32_t name, std::string_view interface, std::uint32_t version);
    void seatCapabilities(std::uint32_t capabilities);

private:
    void disconnect();
    bool healthy() const;
    bool typeConnected(const std::vector<std::uint32_t>& keysyms, std::span<const std::uint32_t> upcoming);
    bool uploadKeymap(const std::string& keymapText);
    bool pressAndRelease(std::span<const std::uint32_t> evdevKeys);
    bool receiverKeepsUp();
    std::string defaultUserKeymap() const;
    std::uint32_t milliseconds() const;

    Timing timing;
    xkb_context* context = nullptr;
    wl_display* display = nullptr;
    wl_registry* registry = nullptr;
    wl_seat* seat = nullptr;
    wl_keyboard* seatKeyboard = nullptr;
    zwp_virtual_keyboard_manager_v1* manager = nullptr;
    zwp_virtual_keyboard_v1* keyboard = nullptr;

    VirtualKeyboardKeymap keys;
    bool ownKeymapUploaded = false;
    std::string userKeymap;
    std::chrono::steady_clock::time_point connectedAt;
    KeyPacer pacer;
    KeyPacer blindPacer;
    bool backlogSeen = false; // at the last look before keys went
    std::optional<CompositorBacklog> backlog;
    BacklogBrake brake;
};

} // namespace keyferry
