#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <unordered_set>
#include <vector>

namespace keyferry {

// The bookkeeping of the keycodes Keyferry borrows to type characters the keyboard layout lacks: which
// keysym each one carries, when it was last typed, and which one may be rebound next. It touches no X
// connection; its owner applies the bindings it chooses. Owned by one XTestKeyboardPoster, used under its
// lock only.
//
// A receiving client translates a key event with the keymap it holds when it processes the event, so a
// keycode is only rebound after it has been idle for `reuseGuard`; among idle keycodes the least recently
// used goes first, which keeps the characters of a text in one language bound while it is typed.
class SpareKeycodePool {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    struct Binding {
        unsigned keycode = 0;
        unsigned long keysym = 0;
    };

    SpareKeycodePool(std::vector<unsigned> keycodes, std::chrono::steady_clock::duration reuseGuard);

    std::size_t size() const { return slots.size(); }
    std::optional<unsigned> keycodeFor(unsigned long keysym) const;
    std::optional<unsigned long> keysymOn(unsigned keycode) const;

    // Binds as many of `keysyms` (none bound yet) as idle keycodes allow at `now`, in order, never taking
    // a keycode that carries one of `protectedKeysyms`. Returns the new bindings; the caller must apply them.
    std::vector<Binding> bind(const std::vector<unsigned long>& keysyms,
                              const std::unordered_set<unsigned long>& protectedKeysyms, TimePoint now);

    // When the next keycode not carrying one of `protectedKeysyms` becomes idle; none when there is no such keycode.
    std::optional<TimePoint> nextIdle(const std::unordered_set<unsigned long>& protectedKeysyms) const;

    void markTyped(unsigned keycode, TimePoint when);

    bool hasBindings() const;
    std::optional<TimePoint> lastTyped() const;

    // The keycodes currently bound (to be restored), and forgetting them once restored.
    std::vector<unsigned> boundKeycodes() const;
    void forgetBindings();

    bool isSpare(unsigned keycode) const;

private:
    struct Slot {
        unsigned keycode = 0;
        std::optional<unsigned long> keysym;
        std::optional<TimePoint> typedAt;
    };

    bool isIdle(const Slot& slot, TimePoint now) const;
    TimePoint idleFrom(const Slot& slot) const;

    std::vector<Slot> slots;
    std::chrono::steady_clock::duration reuseGuard;
};

} // namespace keyferry
