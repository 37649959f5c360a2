#pragma once

#include <xkbcommon/xkbcommon.h>

#include <vector>

namespace keyferry {

// One key of the user's keymap: its xkb keycode (the evdev code plus 8) and the keysym it gives with no
// modifier held.
struct LayoutKey {
    xkb_keycode_t keycode = 0;
    xkb_keysym_t keysym = XKB_KEY_NoSymbol;
    bool operator==(const LayoutKey&) const = default;
};

// A key tapped while modifier keys are held: the modifiers are pressed in order, the key pressed and
// released, then the modifiers released in reverse order.
struct KeyStroke {
    LayoutKey key;
    std::vector<LayoutKey> modifiers;
    bool operator==(const KeyStroke&) const = default;
};

} // namespace keyferry
