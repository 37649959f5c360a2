#include "SpareKeycodeWriter.h"

#include <X11/XKBlib.h>

#include <algorithm>

namespace keyferry {

namespace {

void setTwoLevelSymbols(XkbDescPtr desc, unsigned keycode, std::pair<unsigned long, unsigned long> symbols) {
    // Room for two symbols first, while the key's old size still says how much it has.
    KeySym* written = XkbResizeKeySyms(desc, static_cast<int>(keycode), 2);
    if (written == nullptr) {
        return;
    }
    written[0] = symbols.first;
    written[1] = symbols.second;
    XkbSymMapRec& map = desc->map->key_sym_map[keycode];
    map.kt_index[0] = XkbTwoLevelIndex;
    map.group_info = static_cast<unsigned char>(XkbSetGroupInfo(1, XkbWrapIntoRange, 0));
    map.width = 2;
}

void copyKeySymbols(XkbDescPtr from, XkbDescPtr to, unsigned keycode) {
    const auto key = static_cast<int>(keycode);
    const int count = XkbKeyNumSyms(from, key);
    KeySym* written = XkbResizeKeySyms(to, key, count);
    if (written == nullptr) {
        return;
    }
    std::copy_n(XkbKeySymsPtr(from, key), count, written);
    const XkbSymMapRec& original = from->map->key_sym_map[keycode];
    XkbSymMapRec& map = to->map->key_sym_map[keycode];
    std::copy_n(original.kt_index, XkbNumKbdGroups, map.kt_index);
    map.group_info = original.group_info;
    map.width = original.width;
}

} // namespace

SpareKeycodeWriter::SpareKeycodeWriter(Display* connection, const X11Keymap& current, const SpareKeycodePool& places)
    : display(connection), keymap(current), pool(places) {}

std::vector<unsigned long> SpareKeycodeWriter::intendedSymbols(unsigned keycode) const {
    const auto bound = boundSymbols(keycode);
    if (!bound) {
        return keymap.originalSymbols(keycode);
    }
    std::vector<unsigned long> symbols;
    for (int column = 0; column < keymap.symbolsPerKeycode(); ++column) {
        symbols.push_back(column % 2 == 0 ? bound->first : bound->second);
    }
    return symbols;
}

// The plain and shifted characters a borrowed keycode carries (one repeats the other when only one is bound).
std::optional<std::pair<unsigned long, unsigned long>> SpareKeycodeWriter::boundSymbols(unsigned keycode) const {
    const auto plain = pool.keysymOn({keycode, 0});
    const auto shifted = pool.keysymOn({keycode, 1});
    if (!plain && !shifted) {
        return std::nullopt;
    }
    const unsigned long first = plain.value_or(*shifted);
    return std::pair(first, shifted.value_or(first));
}

// Every request is a keymap change that each Qt window answers by fetching and compiling its whole keymap, and
// the spare keycodes lie in many runs: so one request spans them all, and the keycodes between go back as the
// server has them now. A bound keycode gets one group of the two-level type, so Shift alone picks its second
// character and every layout group reads the same two; one the pool no longer binds gets its own symbols back.
bool SpareKeycodeWriter::bind(const std::vector<unsigned>& keycodes) const {
    return changeKeySymbols(keycodes, [this](XkbDescPtr desc, unsigned keycode) {
        if (const auto bound = boundSymbols(keycode)) {
            setTwoLevelSymbols(desc, keycode, *bound);
        } else {
            copyKeySymbols(keymap.description(), desc, keycode);
        }
    });
}

bool SpareKeycodeWriter::restore(const std::vector<unsigned>& keycodes) const {
    return changeKeySymbols(
        keycodes, [this](XkbDescPtr desc, unsigned keycode) { copyKeySymbols(keymap.description(), desc, keycode); });
}

// One XKB request covering every keycode from the first of `keycodes` to the last: `write` sets the symbols
// of each of `keycodes` in the server's current description; the others are sent back as they are.
bool SpareKeycodeWriter::changeKeySymbols(std::vector<unsigned> keycodes,
                                          const std::function<void(XkbDescPtr, unsigned)>& write) const {
    if (keycodes.empty()) {
        return true;
    }
    std::sort(keycodes.begin(), keycodes.end());
    XkbDescPtr desc = XkbGetMap(display, XkbKeyTypesMask | XkbKeySymsMask, XkbUseCoreKbd);
    if (desc == nullptr) {
        return false;
    }
    for (const unsigned keycode : keycodes) {
        write(desc, keycode);
    }
    XkbMapChangesRec changes{};
    changes.changed = XkbKeySymsMask;
    changes.first_key_sym = static_cast<KeyCode>(keycodes.front());
    changes.num_key_syms = static_cast<unsigned char>(keycodes.back() - keycodes.front() + 1);
    const bool sent = XkbChangeMap(display, desc, &changes) == True;
    XkbFreeKeyboard(desc, 0, True);
    return sent;
}

void SpareKeycodeWriter::rewrite(std::vector<unsigned> keycodes) const {
    std::sort(keycodes.begin(), keycodes.end());
    std::size_t start = 0;
    while (start < keycodes.size()) {
        std::size_t end = start + 1;
        while (end < keycodes.size()) {
            bool contiguous = true;
            for (unsigned between = keycodes[end - 1] + 1; between < keycodes[end]; ++between) {
                contiguous = contiguous && pool.isSpare(between);
            }
            if (!contiguous) {
                break;
            }
            ++end;
        }
        const unsigned first = keycodes[start];
        const unsigned last = keycodes[end - 1];
        std::vector<KeySym> symbols;
        for (unsigned keycode = first; keycode <= last; ++keycode) {
            const auto intended = intendedSymbols(keycode);
            symbols.insert(symbols.end(), intended.begin(), intended.end());
        }
        XChangeKeyboardMapping(display, static_cast<int>(first), keymap.symbolsPerKeycode(), symbols.data(),
                               static_cast<int>(last - first + 1));
        start = end;
    }
}

} // namespace keyferry
