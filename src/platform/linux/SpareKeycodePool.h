#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <unordered_set>
#include <vector>

namespace keyferry {

// The bookkeeping of the keycodes Keyferry borrows to type characters the keyboard layout lacks: which keysym
// each place (a keycode and a level: 0 typed plain, 1 typed with Shift) carries, until when a client may still
// be reading it, and which one may be rebound next.
// It touches no X connection; its owner applies the bindings it chooses. Owned by one X11KeyboardSession,
// used under its owner's lock only.
//
// A receiving client translates a key event with the keymap it holds when it processes the event, so a place
// is rebound only once its last key has been read: when the client has said so (confirmRead), or else
// `reuseGuard` after the moment the slowest client is expected to have read it; among such places the least
// recently typed goes first, which keeps the characters of a text bound while it is typed.
class SpareKeycodePool {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    struct Place {
        unsigned keycode = 0;
        unsigned level = 0;

        bool operator==(const Place&) const = default;
    };

    SpareKeycodePool(const std::vector<unsigned>& keycodes, unsigned levels,
                     std::chrono::steady_clock::duration reuseGuard);

    std::size_t size() const { return slots.size(); }
    std::optional<Place> placeOf(unsigned long keysym) const;
    std::optional<unsigned long> keysymOn(Place place) const;

    // Binds as many of `keysyms` (none bound yet, or bound on a shifted place only) as free places allow at
    // `now`, in order, never taking one that carries one of `protectedKeysyms`. With `plainOnly`, binds none
    // typed with Shift and empties those that are free (unless no plain place is). Returns the keycodes
    // changed; the caller must apply them.
    std::vector<unsigned> bind(const std::vector<unsigned long>& keysyms,
                               const std::unordered_set<unsigned long>& protectedKeysyms, TimePoint now,
                               bool plainOnly = false);

    // How many places not carrying one of `protectedKeysyms` are free at `now`.
    std::size_t freePlaces(const std::unordered_set<unsigned long>& protectedKeysyms, TimePoint now) const;

    // When the next place not carrying one of `protectedKeysyms` becomes free; none when there is none.
    std::optional<TimePoint> nextFree(const std::unordered_set<unsigned long>& protectedKeysyms) const;

    // Records that a key was typed on the place, expected to be read by every client at `readBy`.
    void markTyped(Place place, TimePoint readBy);

    // Counts the keys typed so far; a client that has read every key up to `typedKeys()` frees their places.
    std::size_t typedKeys() const { return keysTyped; }
    std::size_t unconfirmedKeys() const { return keysTyped - std::min(keysConfirmed, keysTyped); }
    void confirmRead(std::size_t keysRead, TimePoint now);

    bool hasBindings() const;
    std::optional<TimePoint> lastReadBy() const;

    // The keycodes currently carrying bindings (to be restored), in ascending order, and forgetting them once
    // restored.
    std::vector<unsigned> boundKeycodes() const;
    void forgetBindings();

    bool isSpare(unsigned keycode) const;

private:
    struct Slot {
        Place place;
        std::optional<unsigned long> keysym;
        std::optional<TimePoint> readBy;
        std::size_t lastKey = 0; // which key typed last on it, counted from 1
    };

    Slot* slotAt(Place place);
    const Slot* slotAt(Place place) const;
    TimePoint freeFrom(const Slot& slot) const;

    std::vector<Slot> slots;
    std::chrono::steady_clock::duration reuseGuard;
    std::size_t keysTyped = 0;
    std::size_t keysConfirmed = 0;
};

} // namespace keyferry
