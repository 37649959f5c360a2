#pragma once

#include <X11/Xlib.h>

#include <optional>
#include <unordered_set>
#include <vector>

namespace keyferry {

// The modifiers the user holds, latches or locks when a text is typed: Ctrl, Alt, Super or Shift held would
// turn the text into shortcuts, Caps Lock would change its case. They are released for the text and put back
// after. The XKB state notifications its owner reads are passed to note(), so that the server is asked for the
// state only after a change.
// Owned by X11KeyboardSession together with the connection it uses; same thread.
class X11UserModifiers {
public:
    // What the user's modifiers were, so that they can be put back.
    struct Released {
        std::vector<unsigned> heldKeycodes;
        unsigned lockedMods = 0;
        int group = 0; // the layout group in effect

        bool any() const { return !heldKeycodes.empty() || lockedMods != 0; }
    };

    // Asks the server to report every change of the modifiers and the group on `display`.
    X11UserModifiers(Display* display, int xkbEventBase);

    // Follows one event read on the connection (other events are ignored).
    void note(const XEvent& event);

    // Releases the modifiers in effect; `modifierKeycodes` are the keys that may be holding them.
    Released release(const std::unordered_set<unsigned>& modifierKeycodes);

    // Puts released modifiers back; false when there were none (nothing was sent).
    bool putBack(const Released& released);

private:
    // Whether the keyboard had no modifier to clear, and its group, as last reported.
    struct KnownState {
        bool clear = false;
        int group = 0;
    };

    bool isClear(unsigned baseMods, unsigned latchedMods, unsigned lockedMods) const;
    void releaseHeldKeys(const std::unordered_set<unsigned>& modifierKeycodes, Released& released);

    Display* display;
    int xkbEventBase;
    unsigned numLockMask = 0;
    std::optional<KnownState> known;
};

} // namespace keyferry
