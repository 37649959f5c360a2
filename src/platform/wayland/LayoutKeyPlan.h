#pragma once

#include "LayoutKey.h"

#include <xkbcommon/xkbcommon.h>

#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace keyferry {

// How to type characters with the keys of the user's own keymap, for routes that can only press the
// user's keys (GNOME's remote desktop, KDE's fake input). A character of the layout in effect is its key
// with the modifier keys of its level (Shift, AltGr, ...), checked against the keymap itself; any other
// character goes through the input method's Unicode entry: Control+Shift+U, the code point's hex digits,
// then space, which GTK and IBus clients understand. Line feed is Return and tab is Tab.
// Where the keymap has a key that, held, puts the next layout in effect (Mode_switch, on a key of every PC
// keymap), a character missing from the layout in effect but on that next layout is its key there with the
// group key held, and so is the Unicode entry when the layout in effect lacks its Latin keys (Russian, Greek...).
//
// Pure: built from a keymap and the layout (xkb group) in effect, owns its tables and does no I/O. Immutable
// once built, so callable from any thread.
class LayoutKeyPlan {
public:
    LayoutKeyPlan(xkb_keymap* keymap, xkb_layout_index_t layout);

    // For when the layout in effect is not known: only the strokes that type the same character whichever
    // layout of the keymap is in effect (the same as the plan of its layout when it has one).
    static LayoutKeyPlan forEveryLayout(xkb_keymap* keymap);

    // The strokes that type `character`; nullopt when nothing can: a control character other than line feed
    // and tab, or a keymap lacking the keys of the Unicode entry.
    std::optional<std::vector<KeyStroke>> strokesFor(char32_t character) const;

    // The stroke of a character on the layout's own keys, without the Unicode entry.
    std::optional<KeyStroke> layoutStrokeFor(char32_t character) const;

    // The key that toggles Caps Lock, when the layout has one.
    std::optional<LayoutKey> capsLockKey() const;

private:
    enum class Reach { ownLayout, nextLayoutToo };
    LayoutKeyPlan(xkb_keymap* keymap, xkb_layout_index_t layout, Reach reach);

    struct ModifierKey {
        LayoutKey key;
        xkb_mod_mask_t mask = 0;
        bool operator==(const ModifierKey&) const = default;
    };

    void keepOnlyWhatTypesTheSameAs(const LayoutKeyPlan& other);

    void findModifierKeys();
    void addKey(xkb_keycode_t keycode);
    std::optional<std::vector<LayoutKey>> modifiersFor(xkb_keycode_t keycode, xkb_level_index_t level,
                                                       xkb_keysym_t keysym) const;
    bool typesWith(xkb_keycode_t keycode, const std::vector<LayoutKey>& modifiers, xkb_keysym_t keysym) const;
    std::optional<std::vector<KeyStroke>> unicodeEntryFor(char32_t character) const;
    std::optional<LayoutKey> modifierKeyFor(xkb_keysym_t keysym) const;
    void findNextLayout();
    std::optional<std::vector<KeyStroke>> onNextLayout(std::vector<KeyStroke> typed) const;
    xkb_keysym_t keysymOf(const KeyStroke& stroke, xkb_layout_index_t lockedLayout,
                          const std::optional<LayoutKey>& groupKey) const;

    std::shared_ptr<xkb_keymap> keymap;
    xkb_layout_index_t layout;
    xkb_mod_mask_t unusableModifiers = 0; // Caps Lock and Num Lock: they change more than one key
    std::vector<ModifierKey> modifierKeys;
    std::map<char32_t, KeyStroke> strokes;
    // The plan of the layout that holding `groupKey` puts in effect, when that is another layout.
    std::shared_ptr<const LayoutKeyPlan> nextLayout;
    LayoutKey groupKey;
};

} // namespace keyferry
