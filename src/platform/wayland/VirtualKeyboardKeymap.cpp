#include "VirtualKeyboardKeymap.h"

#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace keyferry {

namespace {

constexpr std::uint32_t unicodeKeysymBase = 0x01000000;

std::string keysymName(std::uint32_t keysym) {
    std::array<char, 64> name{};
    if (xkb_keysym_get_name(keysym, name.data(), name.size()) < 0) {
        throw std::invalid_argument("keysym without a name");
    }
    return name.data();
}

std::string keyName(std::size_t slot) {
    return "<K" + std::to_string(VirtualKeyboardKeymap::firstKeycode + slot) + ">";
}

bool contains(const std::vector<std::uint32_t>& keysyms, std::uint32_t keysym) {
    return std::find(keysyms.begin(), keysyms.end(), keysym) != keysyms.end();
}

} // namespace

std::optional<std::uint32_t> keysymTyping(char32_t character) {
    if (character == U'\n') {
        return XKB_KEY_Return;
    }
    if (character == U'\t') {
        return XKB_KEY_Tab;
    }
    if (character < 0x20 || (character >= 0x7F && character < 0xA0) || character > 0x10FFFF) {
        return std::nullopt;
    }
    return character < 0x100 ? character : unicodeKeysymBase + character;
}

bool VirtualKeyboardKeymap::include(const std::vector<std::uint32_t>& keysyms,
                                    std::span<const std::uint32_t> upcoming) {
    bool added = false;
    for (const std::uint32_t keysym : keysyms) {
        auto key = std::find_if(keys.begin(), keys.end(),
                                [keysym](const Key& candidate) { return candidate.keysym == keysym; });
        if (key == keys.end()) {
            const std::size_t slot = slotFor(keysyms);
            keys[slot].keysym = keysym;
            key = keys.begin() + static_cast<std::ptrdiff_t>(slot);
            added = true;
        }
        key->lastUse = ++clock;
    }
    if (added) {
        prepare(keysyms, upcoming);
    }
    return added;
}

bool VirtualKeyboardKeymap::has(std::uint32_t keysym) const {
    return std::any_of(keys.begin(), keys.end(), [keysym](const Key& key) { return key.keysym == keysym; });
}

// Gives the next keysyms of the text keys of their own ahead of time; they count as used long ago, so
// they are the first to give way again if the text never reaches them.
void VirtualKeyboardKeymap::prepare(std::vector<std::uint32_t> keepers, std::span<const std::uint32_t> upcoming) {
    std::size_t evictions = 0;
    for (const std::uint32_t keysym : upcoming) {
        if (keepers.size() >= capacity || (keys.size() >= capacity && evictions >= refillBatch)) {
            return;
        }
        if (has(keysym)) {
            continue;
        }
        evictions += keys.size() >= capacity ? 1 : 0;
        const std::size_t slot = slotFor(keepers);
        keys[slot] = {keysym, 0};
        keepers.push_back(keysym);
    }
}

// A new key at the end while there is room, otherwise the key used longest ago that `keepers` does not need.
std::size_t VirtualKeyboardKeymap::slotFor(const std::vector<std::uint32_t>& keepers) {
    if (keys.size() < capacity) {
        keys.push_back({0, 0});
        return keys.size() - 1;
    }
    std::optional<std::size_t> oldest;
    for (std::size_t slot = 0; slot < keys.size(); ++slot) {
        if (!contains(keepers, keys[slot].keysym) && (!oldest || keys[slot].lastUse < keys[*oldest].lastUse)) {
            oldest = slot;
        }
    }
    if (!oldest) {
        throw std::length_error("more distinct keysyms at once than the keymap holds");
    }
    return *oldest;
}

std::optional<std::uint32_t> VirtualKeyboardKeymap::evdevKeyFor(std::uint32_t keysym) {
    for (std::size_t slot = 0; slot < keys.size(); ++slot) {
        if (keys[slot].keysym == keysym) {
            keys[slot].lastUse = ++clock;
            return static_cast<std::uint32_t>(firstKeycode + slot - 8);
        }
    }
    return std::nullopt;
}

std::string VirtualKeyboardKeymap::text() const {
    const std::string name = "\"" + std::string(ownKeymapName) + "\"";
    std::string keycodes = "xkb_keycodes " + name +
                           " {\n    minimum = 8;\n    maximum = " + std::to_string(firstKeycode + capacity - 1) + ";\n";
    std::string symbols = "xkb_symbols " + name + " {\n";
    for (std::size_t slot = 0; slot < keys.size(); ++slot) {
        keycodes += "    " + keyName(slot) + " = " + std::to_string(firstKeycode + slot) + ";\n";
        symbols += "    key " + keyName(slot) + " { [ " + keysymName(keys[slot].keysym) + " ] };\n";
    }
    return "xkb_keymap {\n" + keycodes + "};\nxkb_types " + name + " { include \"complete\" };\n" +
           "xkb_compatibility " + name + " { include \"complete\" };\n" + symbols + "};\n};\n";
}

bool VirtualKeyboardKeymap::isOwnKeymap(std::string_view keymapText) {
    return keymapText.find("xkb_keycodes \"" + std::string(ownKeymapName) + "\"") != std::string_view::npos;
}

} // namespace keyferry
