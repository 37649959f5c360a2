#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <unordered_set>
#include <vector>

namespace keyferry {

// The bookkeeping of the keycodes Keyferry borrows to type characters the keyboard layout lacks: which
// keysym each one carries, until when a client may still be reading it, and which one may be rebound next.
// It touches no X connection; its owner applies the bindings it chooses. Owned by one X11KeyboardSession,
// used under its owner's lock only.
//
// A receiving client translates a key event with the keymap it holds when it processes the event, so a
// keycode is rebound only `reuseGuard` after the moment its last key is expected to have been read; among such
// keycodes the least recently used goes first, which keeps the characters of a text bound while it is typed.
class SpareKeycodePool {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    SpareKeycodePool(const std::vector<unsigned>& keycodes, std::chrono::steady_clock::duration reuseGuard);

    std::size_t size() const { return slots.size(); }
    std::optional<unsigned> keycodeFor(unsigned long keysym) const;
    std::optional<unsigned long> keysymOn(unsigned keycode) const;

    // Binds as many of `keysyms` (none bound yet) as free keycodes allow at `now`, in order, never taking one
    // that carries one of `protectedKeysyms`. Returns the keycodes changed; the caller must apply them.
    std::vector<unsigned> bind(const std::vector<unsigned long>& keysyms,
                               const std::unordered_set<unsigned long>& protectedKeysyms, TimePoint now);

    // When the next keycode not carrying one of `protectedKeysyms` becomes free; none when there is none.
    std::optional<TimePoint> nextFree(const std::unordered_set<unsigned long>& protectedKeysyms) const;

    // Records that the keycode's last key is expected to have been read by every client at `readBy`.
    void markTyped(unsigned keycode, TimePoint readBy);

    bool hasBindings() const;
    std::optional<TimePoint> lastReadBy() const;

    // The keycodes currently carrying bindings (to be restored), and forgetting them once restored.
    std::vector<unsigned> boundKeycodes() const;
    void forgetBindings();

    bool isSpare(unsigned keycode) const;

private:
    struct Slot {
        unsigned keycode = 0;
        std::optional<unsigned long> keysym;
        std::optional<TimePoint> readBy;
    };

    Slot* slotOn(unsigned keycode);
    const Slot* slotOn(unsigned keycode) const;
    TimePoint freeFrom(const Slot& slot) const;

    std::vector<Slot> slots;
    std::chrono::steady_clock::duration reuseGuard;
};

} // namespace keyferry
