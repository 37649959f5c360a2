#pragma once

#include <X11/XKBlib.h>
#include <X11/Xlib.h>

#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace keyferry {

// A key press that types one keysym with the current layout: the keycode, with or without Shift.
struct KeyStroke {
    unsigned keycode = 0;
    bool shift = false;
};

// A snapshot of the X keyboard as the server had it when loaded: which keycode types which keysym in each
// layout group, which keycodes are modifiers, and which keycodes may be borrowed for other characters.
// Owned by X11KeyboardSession; must not outlive the Display it was read from; used on one thread at a time.
class X11Keymap {
public:
    // Reads the keyboard of `display`; none when the server has no usable keyboard or no XKB.
    static std::optional<X11Keymap> load(Display* display);

    // The stroke typing `keysym` in layout group `group` with no other modifier active; none when the layout
    // has no key for it (spare keycodes never count as layout keys).
    std::optional<KeyStroke> strokeFor(unsigned long keysym, int group);

    // Keycodes free to borrow: not a modifier, and carrying no keysym or only vendor function keysyms
    // (media and launcher keys) and no key action, which typing never needs while it runs.
    const std::vector<unsigned>& spareKeycodes() const { return spares; }
    const std::vector<unsigned long>& originalSymbols(unsigned keycode) const;
    int symbolsPerKeycode() const { return perKeycode; }
    int firstKeycode() const { return minKeycode; }
    int lastKeycode() const { return maxKeycode; }

    // Keycodes the modifier map lists for Shift, Control, Mod1..Mod5 (not Lock).
    const std::unordered_set<unsigned>& heldModifierKeycodes() const { return modifierKeycodes; }
    std::optional<unsigned> shiftKeycode() const { return shift; }
    // The key types, symbols and actions as read (owned by this keymap).
    XkbDescPtr description() const { return xkb.get(); }

private:
    struct XkbDescDeleter {
        void operator()(XkbDescPtr desc) const { XkbFreeKeyboard(desc, 0, True); }
    };

    void classifyKeycodes(Display* display);
    std::unordered_map<unsigned long, KeyStroke> buildLayoutTable(int group) const;

    int minKeycode = 0;
    int maxKeycode = 0;
    int perKeycode = 0;
    std::vector<std::vector<unsigned long>> symbols; // indexed by keycode - minKeycode
    std::vector<unsigned> spares;
    std::unordered_set<unsigned> modifierKeycodes;
    std::unordered_set<unsigned> allModifierKeycodes;
    std::optional<unsigned> shift;
    std::shared_ptr<XkbDescRec> xkb;
    std::unordered_map<int, std::unordered_map<unsigned long, KeyStroke>> layoutByGroup;
};

} // namespace keyferry
