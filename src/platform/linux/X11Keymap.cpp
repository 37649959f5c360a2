#include "X11Keymap.h"

#include <algorithm>

namespace keyferry {

namespace {

constexpr unsigned long vendorKeysymFirst = 0x10080000;
constexpr unsigned long vendorKeysymLast = 0x1008FFFF;
constexpr unsigned firstUsableKeycode = 9; // keycode 8 is unreliable on many servers

bool isVendorOrNoSymbol(unsigned long keysym) {
    return keysym == NoSymbol || (keysym >= vendorKeysymFirst && keysym <= vendorKeysymLast);
}

} // namespace

std::optional<X11Keymap> X11Keymap::load(Display* display) {
    X11Keymap keymap;
    XDisplayKeycodes(display, &keymap.minKeycode, &keymap.maxKeycode);
    const int count = keymap.maxKeycode - keymap.minKeycode + 1;
    if (count <= 0) {
        return std::nullopt;
    }
    KeySym* raw = XGetKeyboardMapping(display, static_cast<KeyCode>(keymap.minKeycode), count, &keymap.perKeycode);
    if (raw == nullptr) {
        return std::nullopt;
    }
    keymap.symbols.resize(static_cast<std::size_t>(count));
    for (int index = 0; index < count; ++index) {
        const KeySym* first = raw + static_cast<std::ptrdiff_t>(index) * keymap.perKeycode;
        keymap.symbols[static_cast<std::size_t>(index)].assign(first, first + keymap.perKeycode);
    }
    XFree(raw);

    XkbDescPtr desc = XkbGetMap(display, XkbKeyTypesMask | XkbKeySymsMask | XkbKeyActionsMask, XkbUseCoreKbd);
    if (desc == nullptr) {
        return std::nullopt;
    }
    keymap.xkb = std::shared_ptr<XkbDescRec>(desc, XkbDescDeleter{});
    keymap.classifyKeycodes(display);
    return keymap;
}

void X11Keymap::classifyKeycodes(Display* display) {
    XModifierKeymap* modifiers = XGetModifierMapping(display);
    if (modifiers != nullptr) {
        for (int modifier = 0; modifier < 8; ++modifier) {
            for (int slot = 0; slot < modifiers->max_keypermod; ++slot) {
                const KeyCode keycode = modifiers->modifiermap[modifier * modifiers->max_keypermod + slot];
                if (keycode == 0) {
                    continue;
                }
                allModifierKeycodes.insert(keycode);
                if (modifier != LockMapIndex) {
                    modifierKeycodes.insert(keycode);
                }
                if (modifier == ShiftMapIndex && !shift) {
                    shift = keycode;
                }
            }
        }
        XFreeModifiermap(modifiers);
    }
    for (int keycode = std::max(minKeycode, static_cast<int>(firstUsableKeycode)); keycode <= maxKeycode; ++keycode) {
        const auto& keysyms = symbols[static_cast<std::size_t>(keycode - minKeycode)];
        const auto code = static_cast<unsigned>(keycode);
        // A keycode with actions would run them with the characters it is bound to: the binding changes only
        // its symbols.
        if (!allModifierKeycodes.contains(code) && !XkbKeyHasActions(xkb.get(), keycode) &&
            std::all_of(keysyms.begin(), keysyms.end(), isVendorOrNoSymbol)) {
            spares.push_back(code);
        }
    }
}

const std::vector<unsigned long>& X11Keymap::originalSymbols(unsigned keycode) const {
    return symbols.at(keycode - static_cast<unsigned>(minKeycode));
}

std::optional<KeyStroke> X11Keymap::strokeFor(unsigned long keysym, int group) {
    auto table = layoutByGroup.find(group);
    if (table == layoutByGroup.end()) {
        table = layoutByGroup.emplace(group, buildLayoutTable(group)).first;
    }
    const auto found = table->second.find(keysym);
    if (found == table->second.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::unordered_map<unsigned long, KeyStroke> X11Keymap::buildLayoutTable(int group) const {
    std::unordered_map<unsigned long, KeyStroke> table;
    // Unshifted keys first, so that a keysym reachable both ways is typed without Shift.
    for (const bool shifted : {false, true}) {
        if (shifted && !shift) {
            break;
        }
        const unsigned state = XkbBuildCoreState(shifted ? ShiftMask : 0U, static_cast<unsigned>(group));
        for (int keycode = std::max(minKeycode, static_cast<int>(firstUsableKeycode)); keycode <= maxKeycode;
             ++keycode) {
            const auto code = static_cast<unsigned>(keycode);
            if (allModifierKeycodes.contains(code) || std::find(spares.begin(), spares.end(), code) != spares.end()) {
                continue;
            }
            unsigned consumed = 0;
            KeySym keysym = NoSymbol;
            if (XkbTranslateKeyCode(xkb.get(), static_cast<KeyCode>(keycode), state, &consumed, &keysym) &&
                keysym != NoSymbol) {
                table.try_emplace(keysym, KeyStroke{code, shifted});
            }
        }
    }
    return table;
}

} // namespace keyferry
