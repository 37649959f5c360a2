#pragma once

#include "SpareKeycodePool.h"
#include "X11Keymap.h"

#include <X11/Xlib.h>

#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace keyferry {

// Puts what a SpareKeycodePool holds onto the X server's keymap: the characters bound to borrowed keycodes, and
// the original symbols on keycodes given back. A borrowed keycode carries its plain character on every first
// level and its shifted one on every second level, in every group: the layout group cannot change them, and a
// level not in use repeats the other one (a single symbol would be read as a lower/upper-case pair).
// Made for one change by X11KeyboardSession, which owns the connection, the keymap and the pool it refers to;
// it sends requests without waiting for them, so a refused one shows as a protocol error later.
class SpareKeycodeWriter {
public:
    SpareKeycodeWriter(Display* display, const X11Keymap& keymap, const SpareKeycodePool& pool);

    // Binds `keycodes` as the pool has them (those it binds nothing on get their original symbols back), in one
    // XKB request; false when it could not be sent.
    bool bind(const std::vector<unsigned>& keycodes) const;

    // Gives `keycodes` back the symbols and key types they had when the keymap was read, in one request too.
    bool restore(const std::vector<unsigned>& keycodes) const;

    // Writes the intended symbols of `keycodes` through the core protocol, one request per run of spare
    // keycodes, for a keymap that another program has changed meanwhile.
    void rewrite(std::vector<unsigned> keycodes) const;

    // The symbols `keycode` should carry, column by column as the core protocol lists them.
    std::vector<unsigned long> intendedSymbols(unsigned keycode) const;

private:
    std::optional<std::pair<unsigned long, unsigned long>> boundSymbols(unsigned keycode) const;
    bool changeKeySymbols(std::vector<unsigned> keycodes, const std::function<void(XkbDescPtr, unsigned)>& write) const;

    Display* display;
    const X11Keymap& keymap;
    const SpareKeycodePool& pool;
};

} // namespace keyferry
