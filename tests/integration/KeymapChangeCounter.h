#pragma once

#include <cstddef>

struct _XDisplay;

namespace keyferry {

// Counts the keymap changes the X server of DISPLAY announces for the core keyboard (XKB map notifications):
// every one makes each toolkit client (Qt through libxkbcommon) fetch and compile its whole keymap again.
// Owned by a test or benchmark; opens its own connection at construction (throws std::runtime_error when
// there is no display with XKB) and closes it at destruction.
class KeymapChangeCounter {
public:
    KeymapChangeCounter();
    ~KeymapChangeCounter();
    KeymapChangeCounter(const KeymapChangeCounter&) = delete;
    KeymapChangeCounter& operator=(const KeymapChangeCounter&) = delete;

    // The changes announced since construction, up to every request the server has handled by now.
    std::size_t count();

private:
    _XDisplay* display = nullptr;
    int xkbEventBase = 0;
    unsigned coreKeyboard = 0;
    std::size_t seen = 0;
};

} // namespace keyferry
