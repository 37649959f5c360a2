#include "LayoutKeyPlan.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>

namespace keyferry {

namespace {

using State = std::unique_ptr<xkb_state, decltype(&xkb_state_unref)>;

// The keys that only modify others, in the order they are preferred for the same modifier.
constexpr std::array<xkb_keysym_t, 6> modifierKeysyms{XKB_KEY_Shift_L,          XKB_KEY_Shift_R,
                                                      XKB_KEY_ISO_Level3_Shift, XKB_KEY_ISO_Level5_Shift,
                                                      XKB_KEY_Control_L,        XKB_KEY_Control_R};

bool isModifierKeysym(xkb_keysym_t keysym) {
    for (const xkb_keysym_t candidate : modifierKeysyms) {
        if (candidate == keysym) {
            return true;
        }
    }
    return false;
}

// A state with `layout` in effect and no modifier held.
State stateWithLayout(xkb_keymap* keymap, xkb_layout_index_t layout) {
    State state(xkb_state_new(keymap), &xkb_state_unref);
    if (state) {
        xkb_state_update_mask(state.get(), 0, 0, 0, 0, 0, layout);
    }
    return state;
}

xkb_keysym_t onlyKeysym(xkb_keymap* keymap, xkb_keycode_t keycode, xkb_layout_index_t layout, xkb_level_index_t level) {
    const xkb_keysym_t* keysyms = nullptr;
    const int count = xkb_keymap_key_get_syms_by_level(keymap, keycode, layout, level, &keysyms);
    return count == 1 ? keysyms[0] : XKB_KEY_NoSymbol;
}

xkb_mod_mask_t modifierBit(xkb_keymap* keymap, const char* name) {
    const xkb_mod_index_t index = xkb_keymap_mod_get_index(keymap, name);
    return index == XKB_MOD_INVALID ? 0 : xkb_mod_mask_t{1} << index;
}

// The character a keysym types; line ends are typed with Return, which gives a carriage return.
char32_t characterOf(xkb_keysym_t keysym) {
    return xkb_keysym_to_utf32(keysym);
}

bool isControl(char32_t character) {
    return character < 0x20 || (character >= 0x7f && character < 0xa0);
}

} // namespace

LayoutKeyPlan::LayoutKeyPlan(xkb_keymap* userKeymap, xkb_layout_index_t layoutInEffect)
    : LayoutKeyPlan(userKeymap, layoutInEffect, Reach::nextLayoutToo) {}

LayoutKeyPlan::LayoutKeyPlan(xkb_keymap* userKeymap, xkb_layout_index_t layoutInEffect, Reach reach)
    : keymap(xkb_keymap_ref(userKeymap), &xkb_keymap_unref), layout(layoutInEffect) {
    unusableModifiers = modifierBit(userKeymap, XKB_MOD_NAME_CAPS) | modifierBit(userKeymap, XKB_MOD_NAME_NUM);
    findModifierKeys();
    for (xkb_keycode_t keycode = xkb_keymap_min_keycode(userKeymap); keycode <= xkb_keymap_max_keycode(userKeymap);
         ++keycode) {
        addKey(keycode);
    }
    if (reach == Reach::nextLayoutToo) {
        findNextLayout();
    }
}

// Which layout a held group key puts in effect depends on the one in effect, so an unknown layout reaches
// none.
LayoutKeyPlan LayoutKeyPlan::forEveryLayout(xkb_keymap* userKeymap) {
    LayoutKeyPlan plan(userKeymap, 0, Reach::ownLayout);
    for (xkb_layout_index_t layout = 1; layout < xkb_keymap_num_layouts(userKeymap); ++layout) {
        plan.keepOnlyWhatTypesTheSameAs(LayoutKeyPlan(userKeymap, layout, Reach::ownLayout));
    }
    return plan;
}

void LayoutKeyPlan::keepOnlyWhatTypesTheSameAs(const LayoutKeyPlan& other) {
    std::erase_if(strokes, [&other](const auto& entry) {
        const auto found = other.strokes.find(entry.first);
        return found == other.strokes.end() || !(found->second == entry.second);
    });
    std::erase_if(modifierKeys, [&other](const ModifierKey& modifier) {
        return std::find(other.modifierKeys.begin(), other.modifierKeys.end(), modifier) == other.modifierKeys.end();
    });
}

// Which modifiers each modifier key sets, as the keymap says when the key is held.
void LayoutKeyPlan::findModifierKeys() {
    for (const xkb_keysym_t wanted : modifierKeysyms) {
        for (xkb_keycode_t keycode = xkb_keymap_min_keycode(keymap.get());
             keycode <= xkb_keymap_max_keycode(keymap.get()); ++keycode) {
            if (onlyKeysym(keymap.get(), keycode, layout, 0) != wanted) {
                continue;
            }
            State state = stateWithLayout(keymap.get(), layout);
            xkb_state_update_key(state.get(), keycode, XKB_KEY_DOWN);
            const xkb_mod_mask_t mask = xkb_state_serialize_mods(state.get(), XKB_STATE_MODS_DEPRESSED);
            if (mask != 0) {
                modifierKeys.push_back({{keycode, wanted}, mask});
                break;
            }
        }
    }
}

// Records the characters of each level of the key, keeping for each character the stroke with the fewest
// modifiers (the lowest keycode among equals).
void LayoutKeyPlan::addKey(xkb_keycode_t keycode) {
    const xkb_keysym_t base = onlyKeysym(keymap.get(), keycode, layout, 0);
    if (base == XKB_KEY_NoSymbol || isModifierKeysym(base)) {
        return;
    }
    const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(keymap.get(), keycode, layout);
    for (xkb_level_index_t level = 0; level < levels; ++level) {
        const xkb_keysym_t keysym = onlyKeysym(keymap.get(), keycode, layout, level);
        const char32_t character = characterOf(keysym);
        if (character == 0) {
            continue;
        }
        const auto modifiers = modifiersFor(keycode, level, keysym);
        const auto known = strokes.find(character);
        if (modifiers && (known == strokes.end() || known->second.modifiers.size() > modifiers->size())) {
            strokes[character] = KeyStroke{{keycode, base}, *modifiers};
        }
    }
}

// Modifier keys that reach the level, found among the masks the keymap gives for it and checked by
// pressing them in a state of the keymap; nullopt when no set of modifier keys reaches it.
std::optional<std::vector<LayoutKey>> LayoutKeyPlan::modifiersFor(xkb_keycode_t keycode, xkb_level_index_t level,
                                                                  xkb_keysym_t keysym) const {
    std::array<xkb_mod_mask_t, 16> masks{};
    const std::size_t count =
        xkb_keymap_key_get_mods_for_level(keymap.get(), keycode, layout, level, masks.data(), masks.size());
    for (std::size_t index = 0; index < count; ++index) {
        const xkb_mod_mask_t needed = masks[index];
        if ((needed & unusableModifiers) != 0) {
            continue;
        }
        std::vector<LayoutKey> held;
        xkb_mod_mask_t covered = 0;
        for (const ModifierKey& modifier : modifierKeys) {
            if ((modifier.mask & ~needed) == 0 && (modifier.mask & ~covered) != 0) {
                held.push_back(modifier.key);
                covered |= modifier.mask;
            }
        }
        if (covered == needed && typesWith(keycode, held, keysym)) {
            return held;
        }
    }
    return std::nullopt;
}

bool LayoutKeyPlan::typesWith(xkb_keycode_t keycode, const std::vector<LayoutKey>& modifiers,
                              xkb_keysym_t keysym) const {
    return keysymOf(KeyStroke{{keycode, keysym}, modifiers}, layout, std::nullopt) == keysym;
}

std::optional<KeyStroke> LayoutKeyPlan::layoutStrokeFor(char32_t character) const {
    const char32_t typed = character == U'\n' ? U'\r' : character;
    if (isControl(character) && character != U'\n' && character != U'\t') {
        return std::nullopt;
    }
    const auto found = strokes.find(typed);
    return found == strokes.end() ? std::nullopt : std::optional<KeyStroke>(found->second);
}

std::optional<std::vector<KeyStroke>> LayoutKeyPlan::strokesFor(char32_t character) const {
    if (auto stroke = layoutStrokeFor(character)) {
        return std::vector<KeyStroke>{*stroke};
    }
    if (isControl(character)) {
        return std::nullopt;
    }
    if (nextLayout) {
        if (auto stroke = nextLayout->layoutStrokeFor(character)) {
            if (auto held = onNextLayout({*stroke})) {
                return held;
            }
        }
    }
    if (auto entry = unicodeEntryFor(character)) {
        return entry;
    }
    if (auto entry = nextLayout ? nextLayout->unicodeEntryFor(character) : std::nullopt) {
        return onNextLayout(std::move(*entry));
    }
    return std::nullopt;
}

// The first key whose level-one symbol is Mode_switch, when holding it puts another layout in effect.
void LayoutKeyPlan::findNextLayout() {
    for (xkb_keycode_t keycode = xkb_keymap_min_keycode(keymap.get()); keycode <= xkb_keymap_max_keycode(keymap.get());
         ++keycode) {
        if (onlyKeysym(keymap.get(), keycode, layout, 0) != XKB_KEY_Mode_switch) {
            continue;
        }
        State state = stateWithLayout(keymap.get(), layout);
        xkb_state_update_key(state.get(), keycode, XKB_KEY_DOWN);
        const xkb_layout_index_t reached = xkb_state_serialize_layout(state.get(), XKB_STATE_LAYOUT_EFFECTIVE);
        if (reached != layout) {
            groupKey = LayoutKey{keycode, XKB_KEY_Mode_switch};
            nextLayout =
                std::shared_ptr<const LayoutKeyPlan>(new LayoutKeyPlan(keymap.get(), reached, Reach::ownLayout));
            return;
        }
    }
}

// The strokes of the next layout with the group key held first, when each still gives the symbol it gives
// with that layout in effect; nullopt when one would not.
std::optional<std::vector<KeyStroke>> LayoutKeyPlan::onNextLayout(std::vector<KeyStroke> typed) const {
    for (KeyStroke& stroke : typed) {
        const xkb_keysym_t wanted = keysymOf(stroke, nextLayout->layout, std::nullopt);
        if (wanted == XKB_KEY_NoSymbol || keysymOf(stroke, layout, groupKey) != wanted) {
            return std::nullopt;
        }
        stroke.modifiers.insert(stroke.modifiers.begin(), groupKey);
    }
    return typed;
}

// The symbol a stroke gives with `lockedLayout` in effect, with the group key held first when one is given.
xkb_keysym_t LayoutKeyPlan::keysymOf(const KeyStroke& stroke, xkb_layout_index_t lockedLayout,
                                     const std::optional<LayoutKey>& heldGroupKey) const {
    State state = stateWithLayout(keymap.get(), lockedLayout);
    if (heldGroupKey) {
        xkb_state_update_key(state.get(), heldGroupKey->keycode, XKB_KEY_DOWN);
    }
    for (const LayoutKey& modifier : stroke.modifiers) {
        xkb_state_update_key(state.get(), modifier.keycode, XKB_KEY_DOWN);
    }
    return xkb_state_key_get_one_sym(state.get(), stroke.key.keycode);
}

std::optional<LayoutKey> LayoutKeyPlan::capsLockKey() const {
    for (xkb_keycode_t keycode = xkb_keymap_min_keycode(keymap.get()); keycode <= xkb_keymap_max_keycode(keymap.get());
         ++keycode) {
        if (onlyKeysym(keymap.get(), keycode, layout, 0) == XKB_KEY_Caps_Lock) {
            return LayoutKey{keycode, XKB_KEY_Caps_Lock};
        }
    }
    return std::nullopt;
}

std::optional<LayoutKey> LayoutKeyPlan::modifierKeyFor(xkb_keysym_t keysym) const {
    for (const ModifierKey& modifier : modifierKeys) {
        if (modifier.key.keysym == keysym) {
            return modifier.key;
        }
    }
    return std::nullopt;
}

// Control+Shift+U, the code point in lower-case hex digits, space.
std::optional<std::vector<KeyStroke>> LayoutKeyPlan::unicodeEntryFor(char32_t character) const {
    const auto control = modifierKeyFor(XKB_KEY_Control_L);
    const auto shift = modifierKeyFor(XKB_KEY_Shift_L);
    auto start = layoutStrokeFor(U'u');
    if (!control || !shift || !start || !start->modifiers.empty()) {
        return std::nullopt;
    }
    start->modifiers = {*control, *shift};
    std::vector<KeyStroke> entry{*start};
    std::array<char, 12> digits{};
    std::snprintf(digits.data(), digits.size(), "%x", static_cast<unsigned>(character));
    for (const char* digit = digits.data(); *digit != '\0'; ++digit) {
        const auto stroke = layoutStrokeFor(static_cast<char32_t>(*digit));
        if (!stroke) {
            return std::nullopt;
        }
        entry.push_back(*stroke);
    }
    const auto space = layoutStrokeFor(U' ');
    if (!space) {
        return std::nullopt;
    }
    entry.push_back(*space);
    return entry;
}

} // namespace keyferry
