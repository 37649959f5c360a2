#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace keyferry {

// The keys of Keyferry's own virtual keyboard: each key carries one keysym on its only level, so it types
// that character with no modifier, whatever the user's layout. At most `capacity` keys, on X keycodes
// 9 to 8 + capacity (Xwayland drops keycodes above 255, and its clients were seen to garble text with
// keymaps much larger than this). A keysym keeps its key while it stays; when the keymap is full, the key
// used longest ago gives way, so keys a slow client still has queued keep their meaning as long as possible.
// Plain data, no locking: owned by one virtual keyboard.
class VirtualKeyboardKeymap {
public:
    static constexpr std::size_t capacity = 200;
    static constexpr std::uint32_t firstKeycode = 9; // X keycode; the evdev code is 8 less

    static constexpr std::size_t refillBatch = 40;

    // Makes sure every keysym of `keysyms` has a key (those used here count as just used). True when keys
    // were added, so the keymap text changed. At most `capacity` distinct keysyms at once. When keys are
    // added anyway, keysyms of `upcoming` (the rest of the text, in order) also get keys: into free places,
    // and in place of up to `refillBatch` keys used longest ago, so a text needs few new keymaps, each of
    // which costs the clients a keymap compilation.
    bool include(const std::vector<std::uint32_t>& keysyms, std::span<const std::uint32_t> upcoming = {});

    // The evdev key code typing `keysym`, which must have been included; marks it as used.
    std::optional<std::uint32_t> evdevKeyFor(std::uint32_t keysym);

    // The keymap in xkb's text format; its keycodes section is named `ownKeymapName`, which tells Keyferry's
    // keymaps apart from the user's when the compositor echoes them back.
    std::string text() const;

    static constexpr std::string_view ownKeymapName = "keyferry";
    static bool isOwnKeymap(std::string_view keymapText);

    std::size_t size() const { return keys.size(); }

private:
    struct Key {
        std::uint32_t keysym;
        std::uint64_t lastUse;
    };

    std::size_t slotFor(const std::vector<std::uint32_t>& keepers);
    bool has(std::uint32_t keysym) const;
    void prepare(std::vector<std::uint32_t> keepers, std::span<const std::uint32_t> upcoming);

    std::vector<Key> keys; // index = keycode - firstKeycode
    std::uint64_t clock = 0;
};

// The keysym that types `character` on a key of its own: Return for a line feed, Tab for a tab, the Latin-1
// keysym where there is one, otherwise the Unicode keysym (0x01000000 + code point). None for the other
// control characters, which have no key that types them as text.
std::optional<std::uint32_t> keysymTyping(char32_t character);

} // namespace keyferry
