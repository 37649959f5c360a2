#pragma once

#include "LayoutKey.h"

#include <cstdint>
#include <optional>

namespace keyferry {

// Presses keys of the user's own keymap in the focused window, for routes that cannot type other keys
// (GNOME's remote desktop, KDE's fake input). Owned by LayoutKeyboardPoster, which calls it from one thread
// at a time. Failures are returned, never thrown; a presser that failed may succeed after a new ready().
class UserKeyPresser {
public:
    virtual ~UserKeyPresser() = default;

    // Connects to the route and gets its keyboard, if not done yet; false when the route is not to be had.
    virtual bool ready() = 0;

    // Presses or releases a key. May return before the route took it (keys go in order); false when the
    // route is known to be lost.
    virtual bool press(const LayoutKey& key, bool pressed) = 0;

    // Returns once the route took every key pressed so far; false when one was refused or the route was lost.
    virtual bool confirm() = 0;

    // The layout (xkb group) of the user's keymap in effect, when the route's desktop tells it.
    virtual std::optional<std::uint32_t> layoutInEffect() { return std::nullopt; }

    // Whether Caps Lock is on for the seat, when the route's desktop tells it.
    virtual std::optional<bool> capsLockOn() { return std::nullopt; }

    // Whether the window that gets the keys understands the input method's Unicode entry, when the route's
    // desktop tells which program that window belongs to.
    virtual std::optional<bool> focusedWindowTakesUnicodeEntry() { return std::nullopt; }
};

} // namespace keyferry
