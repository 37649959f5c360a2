#include "VirtualKeyboardKeymap.h"

#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace keyferry {
namespace {

struct ContextDeleter {
    void operator()(xkb_context* context) const { xkb_context_unref(context); }
};
struct KeymapDeleter {
    void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
};

// Compiles the keymap as a compositor would, and reads back the one keysym of an evdev key code.
class CompiledKeymap {
public:
    explicit CompiledKeymap(const std::string& text)
        : context(xkb_context_new(XKB_CONTEXT_NO_FLAGS)),
          keymap(xkb_keymap_new_from_string(context.get(), text.c_str(), XKB_KEYMAP_FORMAT_TEXT_V1,
                                            XKB_KEYMAP_COMPILE_NO_FLAGS)) {}

    bool valid() const { return keymap != nullptr; }
    xkb_keycode_t maximumKeycode() const { return xkb_keymap_max_keycode(keymap.get()); }

    std::uint32_t keysymOf(std::uint32_t evdevKey) const {
        const xkb_keysym_t* keysyms = nullptr;
        const int count = xkb_keymap_key_get_syms_by_level(keymap.get(), evdevKey + 8, 0, 0, &keysyms);
        return count == 1 ? keysyms[0] : XKB_KEY_NoSymbol;
    }

private:
    std::unique_ptr<xkb_context, ContextDeleter> context;
    std::unique_ptr<xkb_keymap, KeymapDeleter> keymap;
};

std::uint32_t unicode(char32_t character) {
    return 0x01000000 + character;
}

TEST(KeysymTyping, LineFeedAndTabAreTheirKeysAndOtherControlsHaveNone) {
    EXPECT_EQ(keysymTyping(U'\n'), XKB_KEY_Return);
    EXPECT_EQ(keysymTyping(U'\t'), XKB_KEY_Tab);
    EXPECT_EQ(keysymTyping(U'\r'), std::nullopt);
    EXPECT_EQ(keysymTyping(U'\x1B'), std::nullopt);
    EXPECT_EQ(keysymTyping(U'\x7F'), std::nullopt);
    EXPECT_EQ(keysymTyping(U'\x85'), std::nullopt);
}

TEST(KeysymTyping, Latin1HasItsOwnKeysymsAndEverythingElseItsUnicodeOne) {
    EXPECT_EQ(keysymTyping(U'a'), XKB_KEY_a);
    EXPECT_EQ(keysymTyping(U' '), XKB_KEY_space);
    EXPECT_EQ(keysymTyping(U'é'), XKB_KEY_eacute);
    EXPECT_EQ(keysymTyping(U'\u2028'), unicode(0x2028));
    EXPECT_EQ(keysymTyping(U'\U0001F600'), unicode(0x1F600));
    EXPECT_EQ(keysymTyping(U'\u0301'), unicode(0x0301));
}

TEST(VirtualKeyboardKeymap, EachKeysymGetsAKeyThatTypesItAlone) {
    VirtualKeyboardKeymap keys;
    const std::vector<std::uint32_t> wanted{XKB_KEY_a, unicode(0x1F600), XKB_KEY_Return, unicode(0x0416)};
    EXPECT_TRUE(keys.include(wanted));
    const CompiledKeymap compiled(keys.text());
    ASSERT_TRUE(compiled.valid()) << keys.text();
    for (const auto keysym : wanted) {
        const auto key = keys.evdevKeyFor(keysym);
        ASSERT_TRUE(key);
        EXPECT_EQ(compiled.keysymOf(*key), keysym);
    }
    EXPECT_TRUE(VirtualKeyboardKeymap::isOwnKeymap(keys.text()));
    EXPECT_FALSE(VirtualKeyboardKeymap::isOwnKeymap("xkb_keymap { xkb_keycodes \"evdev+aliases(qwerty)\" {"));
}

TEST(VirtualKeyboardKeymap, KeysymsAlreadyThereChangeNothing) {
    VirtualKeyboardKeymap keys;
    keys.include({XKB_KEY_a, XKB_KEY_b});
    const auto keyOfA = keys.evdevKeyFor(XKB_KEY_a);
    EXPECT_FALSE(keys.include({XKB_KEY_b, XKB_KEY_a, XKB_KEY_a}));
    EXPECT_EQ(keys.size(), 2u);
    EXPECT_EQ(keys.evdevKeyFor(XKB_KEY_a), keyOfA);
}

TEST(VirtualKeyboardKeymap, NeverMoreThanCapacityKeysAndKeycodesStayWithinXLimit) {
    VirtualKeyboardKeymap keys;
    for (char32_t character = 0x4E00; character < 0x4E00 + 1000; character += 10) {
        std::vector<std::uint32_t> chunk;
        for (char32_t offset = 0; offset < 10; ++offset) {
            chunk.push_back(unicode(character + offset));
        }
        keys.include(chunk);
        ASSERT_LE(keys.size(), VirtualKeyboardKeymap::capacity);
        for (const auto keysym : chunk) {
            const auto key = keys.evdevKeyFor(keysym);
            ASSERT_TRUE(key);
            EXPECT_LE(*key + 8, 255u);
        }
    }
    const CompiledKeymap compiled(keys.text());
    ASSERT_TRUE(compiled.valid());
    EXPECT_LE(compiled.maximumKeycode(), 255u);
}

TEST(VirtualKeyboardKeymap, AFullKeymapGivesUpTheKeyUsedLongestAgoAndKeepsTheOthersInPlace) {
    VirtualKeyboardKeymap keys;
    std::vector<std::optional<std::uint32_t>> keyOf;
    for (std::uint32_t index = 0; index < VirtualKeyboardKeymap::capacity; ++index) {
        keys.include({unicode(0x4E00 + index)});
    }
    // Every key but the third is typed again, so the third is the one used longest ago.
    for (std::uint32_t index = 0; index < VirtualKeyboardKeymap::capacity; ++index) {
        keyOf.push_back(index == 2 ? keys.evdevKeyFor(unicode(0x4E02)) : std::nullopt);
    }
    for (std::uint32_t index = 0; index < VirtualKeyboardKeymap::capacity; ++index) {
        if (index != 2) {
            keyOf[index] = keys.evdevKeyFor(unicode(0x4E00 + index));
        }
    }
    EXPECT_TRUE(keys.include({unicode(0x9000)}));
    EXPECT_EQ(keys.size(), VirtualKeyboardKeymap::capacity);
    EXPECT_EQ(keys.evdevKeyFor(unicode(0x9000)), keyOf[2]);
    EXPECT_EQ(keys.evdevKeyFor(unicode(0x4E02)), std::nullopt);
    for (std::uint32_t index = 0; index < VirtualKeyboardKeymap::capacity; ++index) {
        if (index != 2) {
            EXPECT_EQ(keys.evdevKeyFor(unicode(0x4E00 + index)), keyOf[index]) << index;
        }
    }
}

TEST(VirtualKeyboardKeymap, KeysNeededTogetherNeverPushEachOtherOut) {
    VirtualKeyboardKeymap keys;
    for (std::uint32_t index = 0; index < VirtualKeyboardKeymap::capacity; ++index) {
        keys.include({unicode(0x4E00 + index)});
    }
    // The oldest key is needed in the same chunk as a new one: another key must give way.
    const std::vector<std::uint32_t> chunk{unicode(0x9000), unicode(0x4E00)};
    keys.include(chunk);
    EXPECT_TRUE(keys.evdevKeyFor(unicode(0x9000)));
    EXPECT_TRUE(keys.evdevKeyFor(unicode(0x4E00)));
    EXPECT_EQ(keys.evdevKeyFor(unicode(0x4E01)), std::nullopt);
}

TEST(VirtualKeyboardKeymap, ANewKeymapAlsoHoldsTheKeysTheTextGoesOnWith) {
    VirtualKeyboardKeymap keys;
    const std::vector<std::uint32_t> rest{unicode(0x0416), XKB_KEY_b, unicode(0x0416), unicode(0x1F600)};
    EXPECT_TRUE(keys.include({XKB_KEY_a}, rest));
    EXPECT_EQ(keys.size(), 4u);
    EXPECT_FALSE(keys.include({unicode(0x0416), XKB_KEY_b}, std::span(rest).subspan(2)));
    EXPECT_FALSE(keys.include({unicode(0x1F600)}));
}

TEST(VirtualKeyboardKeymap, KeysAlreadyThereLeaveTheKeymapAsItIsWhateverFollows) {
    VirtualKeyboardKeymap keys;
    keys.include({XKB_KEY_a});
    const std::vector<std::uint32_t> rest{XKB_KEY_b};
    EXPECT_FALSE(keys.include({XKB_KEY_a}, rest));
    EXPECT_EQ(keys.size(), 1u);
}

TEST(VirtualKeyboardKeymap, PreparingForAFullKeymapReplacesOnlyABatchOfOldKeys) {
    VirtualKeyboardKeymap keys;
    for (std::uint32_t index = 0; index < VirtualKeyboardKeymap::capacity; ++index) {
        keys.include({unicode(0x4E00 + index)});
    }
    std::vector<std::uint32_t> rest;
    for (std::uint32_t index = 0; index < 100; ++index) {
        rest.push_back(unicode(0xAC00 + index));
    }
    EXPECT_TRUE(keys.include({unicode(0x9000)}, rest));
    EXPECT_EQ(keys.size(), VirtualKeyboardKeymap::capacity);
    std::size_t prepared = 0;
    for (const auto keysym : rest) {
        prepared += keys.evdevKeyFor(keysym) ? 1 : 0;
    }
    EXPECT_EQ(prepared, VirtualKeyboardKeymap::refillBatch);
    EXPECT_TRUE(keys.evdevKeyFor(unicode(0x9000)));
    EXPECT_TRUE(keys.evdevKeyFor(unicode(0x4E00 + VirtualKeyboardKeymap::capacity - 1))); // used most recently
}

} // namespace
} // namespace keyferry
