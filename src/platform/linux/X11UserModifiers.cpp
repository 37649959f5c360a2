#include "X11UserModifiers.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

namespace keyferry {

X11UserModifiers::X11UserModifiers(Display* connection, int eventBase)
    : display(connection), xkbEventBase(eventBase), numLockMask(XkbKeysymToModifiers(connection, XK_Num_Lock)) {
    const unsigned long stateParts = XkbModifierStateMask | XkbGroupStateMask;
    XkbSelectEventDetails(display, XkbUseCoreKbd, XkbStateNotify, stateParts, stateParts);
}

// Every state notification carries the whole state after the change, so the last one read tells the state
// as of the last round trip: the Shift presses of the text itself come and go, and a modifier the user holds
// or locks shows.
void X11UserModifiers::note(const XEvent& event) {
    const auto& any = reinterpret_cast<const XkbEvent*>(&event)->any;
    if (event.type == xkbEventBase && any.xkb_type == XkbStateNotify) {
        const auto& state = reinterpret_cast<const XkbEvent*>(&event)->state;
        known = KnownState{isClear(state.base_mods, state.latched_mods, state.locked_mods), state.group};
    }
}

// No modifier held or latched, and no lock but Num Lock, which changes only the keypad (typing never uses it);
// any other (Caps Lock first) would change the case or level of the keys typed.
bool X11UserModifiers::isClear(unsigned baseMods, unsigned latchedMods, unsigned lockedMods) const {
    return baseMods == 0 && latchedMods == 0 && (lockedMods & ~numLockMask) == 0;
}

// When the notifications read since the last round trip show no modifier, the server is not asked again.
X11UserModifiers::Released X11UserModifiers::release(const std::unordered_set<unsigned>& modifierKeycodes) {
    Released released;
    if (known && known->clear) {
        released.group = known->group;
        return released;
    }
    XkbStateRec current{};
    if (XkbGetState(display, XkbUseCoreKbd, &current) != Success) {
        return released;
    }
    released.group = current.group;
    known = KnownState{isClear(current.base_mods, current.latched_mods, current.locked_mods), current.group};
    released.lockedMods = current.locked_mods & ~numLockMask;
    if (released.lockedMods != 0) {
        XkbLockModifiers(display, XkbUseCoreKbd, released.lockedMods, 0);
    }
    if (current.latched_mods != 0) {
        XkbLatchModifiers(display, XkbUseCoreKbd, current.latched_mods, 0);
    }
    if (current.base_mods != 0) {
        releaseHeldKeys(modifierKeycodes, released);
    }
    return released;
}

void X11UserModifiers::releaseHeldKeys(const std::unordered_set<unsigned>& modifierKeycodes, Released& released) {
    char keys[32] = {};
    XQueryKeymap(display, keys);
    for (const unsigned keycode : modifierKeycodes) {
        if ((keys[keycode / 8] & (1 << (keycode % 8))) != 0) {
            XTestFakeKeyEvent(display, keycode, False, CurrentTime);
            released.heldKeycodes.push_back(keycode);
        }
    }
}

bool X11UserModifiers::putBack(const Released& released) {
    for (const unsigned keycode : released.heldKeycodes) {
        XTestFakeKeyEvent(display, keycode, True, CurrentTime);
    }
    if (released.lockedMods != 0) {
        XkbLockModifiers(display, XkbUseCoreKbd, released.lockedMods, released.lockedMods);
    }
    return released.any();
}

} // namespace keyferry
