#include "LayoutKeyPlan.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace keyferry {
namespace {

// xkb keycodes of the evdev keymaps (evdev code + 8).
constexpr xkb_keycode_t keyQ = 24;
constexpr xkb_keycode_t keyA = 38;
constexpr xkb_keycode_t keyU = 30;
constexpr xkb_keycode_t keyE = 26;
constexpr xkb_keycode_t key2 = 11;
constexpr xkb_keycode_t key4 = 13;
constexpr xkb_keycode_t keyD = 40;
constexpr xkb_keycode_t keyReturn = 36;
constexpr xkb_keycode_t keySpace = 65;
constexpr xkb_keycode_t leftShift = 50;
constexpr xkb_keycode_t leftControl = 37;

const LayoutKey shift{leftShift, XKB_KEY_Shift_L};
const LayoutKey control{leftControl, XKB_KEY_Control_L};

class Keymap {
public:
    explicit Keymap(const char* layouts, const char* variants = "")
        : context(xkb_context_new(XKB_CONTEXT_NO_FLAGS), &xkb_context_unref) {
        const xkb_rule_names names{"evdev", "pc105", layouts, variants, ""};
        keymap.reset(xkb_keymap_new_from_names(context.get(), &names, XKB_KEYMAP_COMPILE_NO_FLAGS));
        if (!keymap) {
            throw std::runtime_error(std::string("no keymap for ") + layouts);
        }
    }
    LayoutKeyPlan plan(xkb_layout_index_t layout = 0) const { return LayoutKeyPlan(keymap.get(), layout); }
    xkb_keymap* get() const { return keymap.get(); }

private:
    std::unique_ptr<xkb_context, decltype(&xkb_context_unref)> context;
    std::unique_ptr<xkb_keymap, decltype(&xkb_keymap_unref)> keymap{nullptr, &xkb_keymap_unref};
};

std::vector<KeyStroke> strokes(const LayoutKeyPlan& plan, char32_t character) {
    const auto found = plan.strokesFor(character);
    if (!found) {
        ADD_FAILURE() << "no strokes for U+" << std::hex << static_cast<unsigned>(character);
        return {};
    }
    return *found;
}

// The symbols a window gets for the strokes, replayed on the keymap with `layout` locked as the user left it,
// and the modifiers of `lockedModifiers` (Num Lock...) locked too.
std::vector<xkb_keysym_t> replayed(const Keymap& keymap, xkb_layout_index_t layout, const std::vector<KeyStroke>& typed,
                                   const char* lockedModifier = nullptr) {
    std::vector<xkb_keysym_t> keysyms;
    for (const KeyStroke& stroke : typed) {
        std::unique_ptr<xkb_state, decltype(&xkb_state_unref)> state(xkb_state_new(keymap.get()), &xkb_state_unref);
        const xkb_mod_index_t locked =
            lockedModifier != nullptr ? xkb_keymap_mod_get_index(keymap.get(), lockedModifier) : XKB_MOD_INVALID;
        xkb_state_update_mask(state.get(), 0, 0, locked == XKB_MOD_INVALID ? 0 : 1u << locked, 0, 0, layout);
        for (const LayoutKey& modifier : stroke.modifiers) {
            xkb_state_update_key(state.get(), modifier.keycode, XKB_KEY_DOWN);
        }
        keysyms.push_back(xkb_state_key_get_one_sym(state.get(), stroke.key.keycode));
    }
    return keysyms;
}

TEST(LayoutKeyPlan, ALayoutCharacterIsItsOwnKeyWithTheModifiersOfItsLevel) {
    const auto us = Keymap("us").plan();
    EXPECT_EQ(strokes(us, U'a'), (std::vector<KeyStroke>{{{keyA, XKB_KEY_a}, {}}}));
    EXPECT_EQ(strokes(us, U'A'), (std::vector<KeyStroke>{{{keyA, XKB_KEY_a}, {shift}}}));
    EXPECT_EQ(strokes(us, U'@'), (std::vector<KeyStroke>{{{key2, XKB_KEY_2}, {shift}}}));
}

TEST(LayoutKeyPlan, ThirdAndFourthLevelsHoldAltGrAndShift) {
    // AltGr is whichever key of the keymap gives ISO_Level3_Shift.
    const auto german = Keymap("de").plan();
    const auto at = strokes(german, U'@');
    ASSERT_EQ(at.size(), 1u);
    EXPECT_EQ(at[0].key, (LayoutKey{keyQ, XKB_KEY_q}));
    ASSERT_EQ(at[0].modifiers.size(), 1u);
    EXPECT_EQ(at[0].modifiers[0].keysym, XKB_KEY_ISO_Level3_Shift);
    const auto french = Keymap("fr").plan();
    const auto tilde = strokes(french, U'~');
    ASSERT_EQ(tilde.size(), 1u);
    EXPECT_EQ(tilde[0].key.keycode, key2);
    EXPECT_EQ(tilde[0].modifiers, at[0].modifiers);
    const auto two = strokes(french, U'2');
    ASSERT_EQ(two.size(), 1u);
    EXPECT_EQ(two[0].modifiers, (std::vector<LayoutKey>{shift}));
    // The fourth level: Shift and AltGr together (¹ on the 1 key of the US international layout).
    const auto superscript = strokes(Keymap("us", "intl").plan(), U'¹');
    ASSERT_EQ(superscript.size(), 1u);
    EXPECT_EQ(superscript[0].key.keysym, XKB_KEY_1);
    ASSERT_EQ(superscript[0].modifiers.size(), 2u);
    EXPECT_EQ(superscript[0].modifiers[0], shift);
    EXPECT_EQ(superscript[0].modifiers[1].keysym, XKB_KEY_ISO_Level3_Shift);
}

// The plan never uses a level that Num Lock selects (the keypad's digits), so the user's Num Lock changes
// nothing that is typed.
TEST(LayoutKeyPlan, EveryPrintableAsciiCharacterIsTheSameWithNumLockOnOrOff) {
    const Keymap us("us");
    const auto plan = us.plan();
    for (char32_t character = U' '; character < 0x7f; ++character) {
        const auto typed = strokes(plan, character);
        EXPECT_EQ(replayed(us, 0, typed, XKB_MOD_NAME_NUM), replayed(us, 0, typed))
            << "U+" << std::hex << static_cast<unsigned>(character);
        EXPECT_EQ(xkb_keysym_to_utf32(replayed(us, 0, typed).at(0)), character);
    }
}

TEST(LayoutKeyPlan, LineFeedIsReturnAndTabIsTab) {
    const auto us = Keymap("us").plan();
    EXPECT_EQ(strokes(us, U'\n'), (std::vector<KeyStroke>{{{keyReturn, XKB_KEY_Return}, {}}}));
    EXPECT_EQ(strokes(us, U'\t').at(0).key.keysym, XKB_KEY_Tab);
}

TEST(LayoutKeyPlan, OtherControlCharactersCannotBeTyped) {
    const auto us = Keymap("us").plan();
    EXPECT_FALSE(us.strokesFor(U'\a'));
    EXPECT_FALSE(us.strokesFor(U'\r'));
    EXPECT_FALSE(us.strokesFor(U'\x7f'));
    EXPECT_FALSE(us.strokesFor(U'\x85'));
}

TEST(LayoutKeyPlan, ACharacterOutsideTheLayoutGoesThroughTheUnicodeEntry) {
    const auto us = Keymap("us").plan();
    const LayoutKey e{keyE, XKB_KEY_e};
    const LayoutKey d{keyD, XKB_KEY_d};
    const LayoutKey two{key2, XKB_KEY_2};
    const LayoutKey four{key4, XKB_KEY_4};
    // 中 is U+4E2D
    EXPECT_EQ(strokes(us, U'中'), (std::vector<KeyStroke>{{{keyU, XKB_KEY_u}, {control, shift}},
                                                          {four, {}},
                                                          {e, {}},
                                                          {two, {}},
                                                          {d, {}},
                                                          {{keySpace, XKB_KEY_space}, {}}}));
    EXPECT_EQ(strokes(us, U'😀').size(), 1u + 5u + 1u); // u, 1f600, space
    EXPECT_FALSE(us.layoutStrokeFor(U'é'));
    EXPECT_EQ(strokes(us, U'é').size(), 1u + 2u + 1u); // u, e9, space
}

TEST(LayoutKeyPlan, ACharacterOfTheNextLayoutIsItsKeyThereWithTheGroupKeyHeld) {
    const Keymap keymap("us,de");
    const auto umlaut = strokes(keymap.plan(0), U'ä');
    ASSERT_EQ(umlaut.size(), 1u);
    ASSERT_FALSE(umlaut[0].modifiers.empty());
    EXPECT_EQ(umlaut[0].modifiers[0].keysym, XKB_KEY_Mode_switch);
    EXPECT_EQ(replayed(keymap, 0, umlaut), std::vector<xkb_keysym_t>{XKB_KEY_adiaeresis});
    EXPECT_EQ(replayed(keymap, 0, strokes(keymap.plan(0), U'Ä')), std::vector<xkb_keysym_t>{XKB_KEY_Adiaeresis});
    EXPECT_EQ(strokes(keymap.plan(1), U'ä').size(), 1u);
    EXPECT_TRUE(strokes(keymap.plan(1), U'ä')[0].modifiers.empty());
}

TEST(LayoutKeyPlan, WithACyrillicLayoutInEffectLatinLettersAndTheUnicodeEntryGoThroughTheLatinLayout) {
    const Keymap keymap("us,ru");
    const auto russian = keymap.plan(1);
    EXPECT_EQ(replayed(keymap, 1, strokes(russian, U'ж')), std::vector<xkb_keysym_t>{XKB_KEY_Cyrillic_zhe});
    EXPECT_EQ(replayed(keymap, 1, strokes(russian, U'h')), std::vector<xkb_keysym_t>{XKB_KEY_h});
    EXPECT_EQ(replayed(keymap, 1, strokes(russian, U'H')), std::vector<xkb_keysym_t>{XKB_KEY_H});
    // 中 is U+4E2D
    EXPECT_EQ(replayed(keymap, 1, strokes(russian, U'中')),
              (std::vector<xkb_keysym_t>{XKB_KEY_U, XKB_KEY_4, XKB_KEY_e, XKB_KEY_2, XKB_KEY_d, XKB_KEY_space}));
    const auto entryStart = strokes(russian, U'中').at(0);
    EXPECT_EQ(entryStart.modifiers.at(0).keysym, XKB_KEY_Mode_switch);
    EXPECT_EQ(entryStart.modifiers.size(), 3u); // the group key, Control, Shift
}

// Holding the group key reaches only the layout after the one in effect.
TEST(LayoutKeyPlan, ALayoutWhoseNextLayoutIsNotLatinStillHasNoUnicodeEntry) {
    const Keymap keymap("us,ru,gr");
    EXPECT_FALSE(keymap.plan(1).strokesFor(U'h'));
    EXPECT_FALSE(keymap.plan(1).strokesFor(U'中'));
    EXPECT_EQ(replayed(keymap, 1, strokes(keymap.plan(1), U'λ')), std::vector<xkb_keysym_t>{XKB_KEY_Greek_lamda});
    EXPECT_EQ(replayed(keymap, 2, strokes(keymap.plan(2), U'h')), std::vector<xkb_keysym_t>{XKB_KEY_h});
}

TEST(LayoutKeyPlan, WithTheLayoutUnknownOnlyWhatEveryLayoutTypesAlikeIsTypedWithItsKey) {
    const Keymap usGerman("us,de");
    const auto either = LayoutKeyPlan::forEveryLayout(usGerman.get());
    // a is the same key in both; y and z swap places, so they go through the Unicode entry, like ä.
    EXPECT_TRUE(either.layoutStrokeFor(U'a'));
    EXPECT_FALSE(either.layoutStrokeFor(U'y'));
    EXPECT_FALSE(either.layoutStrokeFor(U'z'));
    EXPECT_FALSE(either.layoutStrokeFor(U'ä'));
    EXPECT_EQ(strokes(either, U'y').size(), 4u); // u, 7, 9, space
    EXPECT_EQ(strokes(either, U'ä').size(), 4u) << "no layout is reached from one that is not known";
    const Keymap usRussian("us,ru");
    const auto latinOrCyrillic = LayoutKeyPlan::forEveryLayout(usRussian.get());
    EXPECT_TRUE(latinOrCyrillic.layoutStrokeFor(U'1'));
    EXPECT_FALSE(latinOrCyrillic.strokesFor(U'a')) << "refused rather than typed as the wrong letter";
    const Keymap us("us");
    EXPECT_EQ(LayoutKeyPlan::forEveryLayout(us.get()).strokesFor(U'Q'), us.plan().strokesFor(U'Q'));
}

TEST(LayoutKeyPlan, ALayoutWithoutLatinLettersHasNoUnicodeEntry) {
    const auto russian = Keymap("ru").plan();
    EXPECT_TRUE(russian.strokesFor(U'ж'));
    EXPECT_FALSE(russian.strokesFor(U'中'));
}

} // namespace
} // namespace keyferry
