#pragma once

#include "KeyPacer.h"
#include "KeyboardPoster.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string_view>
#include <thread>
#include <vector>

namespace keyferry {

class WaylandVirtualKeyboard;

// Types text on Wayland compositors that offer the virtual keyboard protocol (the wlroots family: sway,
// Hyprland, river, labwc, Wayfire), exactly, whatever the characters and the user's layout: each character
// goes as a key of Keyferry's own keymap (see WaylandVirtualKeyboard). Line feeds are typed with Return and
// tabs with Tab; other control characters cannot be typed, and a text holding one is refused whole.
// The whole text, which canType sees before its chunks, lets each new keymap hold the keys of the text
// that follows, so a text needs few keymaps. The user's keymap is given back `restoreAfter` after the last key (from a
// background thread), and at destruction, `exitGrace` after the last key, so that Xwayland clients read their last keys
// with Keyferry's keymap still in place.
//
// Ownership: owned by the application or a tool; connects at construction (and again after a loss) and keeps
// one virtual keyboard for its whole life. Thread: postKeyPair and canType are called from one thread at a
// time (the service's queue); the restoring thread is private. Failure: postKeyPair returns false when no
// compositor with the protocol is reachable or the connection broke.
class VirtualKeyboardPoster final : public KeyboardPoster {
public:
    struct Timing {
        // Keys go twenty at a time (a chunk), so the compositor passes each batch on in one write: for a client
        // that stopped reading, sway then held some 1,370 keys before dropping it, against 170 when every key
        // was a write of its own. The burst stays well below that; long texts settle at 1,250 keys a second.
        // A GTK client on a heavily loaded machine read slower than that and was dropped, so where the
        // compositor's connections can be seen, keys also wait for the receiving client (BacklogBrake).
        KeyPacer::Timing pacing{std::chrono::microseconds(100), std::chrono::microseconds(800), 600};
        // Where the compositor's connections cannot be seen, a pace that GTK kept up with under load
        // without that help (667 keys a second).
        KeyPacer::Timing blindPacing{std::chrono::microseconds(500), std::chrono::microseconds(1500), 600};
        bool watchBacklog = true;
        std::chrono::steady_clock::duration keymapSettle = std::chrono::milliseconds(50);
        std::chrono::steady_clock::duration restoreAfter = std::chrono::seconds(1);
        std::chrono::steady_clock::duration exitGrace = std::chrono::milliseconds(250);
        std::size_t keysPerRoundtrip = 20;
    };

    VirtualKeyboardPoster();
    explicit VirtualKeyboardPoster(Timing timing);
    ~VirtualKeyboardPoster() override;
    VirtualKeyboardPoster(const VirtualKeyboardPoster&) = delete;
    VirtualKeyboardPoster& operator=(const VirtualKeyboardPoster&) = delete;

    bool postKeyPair(std::u16string_view units) override;
    bool canType(std::u16string_view text) override;

private:
    void restoreWhenIdle(const std::stop_token& stop);
    std::span<const std::uint32_t> upcomingAfter(const std::vector<std::uint32_t>& chunk);

    Timing timing;
    std::unique_ptr<WaylandVirtualKeyboard> keyboard;
    std::optional<std::chrono::steady_clock::time_point> lastTyped;
    // The keysyms of the text last asked about (canType), and how far its chunks have come.
    std::vector<std::uint32_t> text;
    std::size_t typedUpTo = 0;
    std::mutex mutex;
    std::condition_variable_any typedSomething;
    std::jthread restorer;
};

} // namespace keyferry
