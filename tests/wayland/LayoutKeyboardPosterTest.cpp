#include "LayoutKeyboardPoster.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace keyferry {
namespace {

// A route that records the keys pressed, as "+keysym" and "-keysym", and "confirm".
class RecordingPresser final : public UserKeyPresser {
public:
    struct Record {
        std::vector<std::string> events;
        bool available = true;
        bool confirms = true;
        int confirmsBeforeFailing = -1; // none: every one that `confirms` allows
        std::optional<bool> capsLock;
        std::optional<bool> windowTakesEntry;
        int entryQuestions = 0;
    };

    explicit RecordingPresser(Record& into) : record(into) {}

    bool ready() override { return record.available; }
    bool press(const LayoutKey& key, bool pressed) override {
        std::array<char, 64> name{};
        xkb_keysym_get_name(key.keysym, name.data(), name.size());
        record.events.push_back((pressed ? "+" : "-") + std::string(name.data()));
        return true;
    }
    bool confirm() override {
        record.events.push_back("confirm");
        if (record.confirmsBeforeFailing == 0) {
            return false;
        }
        --record.confirmsBeforeFailing;
        return record.confirms;
    }
    std::optional<bool> capsLockOn() override { return record.capsLock; }
    std::optional<bool> focusedWindowTakesUnicodeEntry() override {
        ++record.entryQuestions;
        return record.windowTakesEntry;
    }

private:
    Record& record;
};

const xkb_rule_names usLayout{"evdev", "pc105", "us", "", ""};

class LayoutKeyboardPosterTest : public ::testing::Test {
protected:
    LayoutKeyboardPosterTest()
        : context(xkb_context_new(XKB_CONTEXT_NO_FLAGS), &xkb_context_unref),
          keymap(xkb_keymap_new_from_names(context.get(), &usLayout, XKB_KEYMAP_COMPILE_NO_FLAGS), &xkb_keymap_unref),
          poster(std::make_unique<RecordingPresser>(record), {{{}, {}, 150}, {{}, {}, 150}},
                 [this] { return keymapKnown ? std::make_shared<const LayoutKeyPlan>(keymap.get(), 0) : nullptr; }) {}

    RecordingPresser::Record record;
    bool keymapKnown = true;
    std::unique_ptr<xkb_context, decltype(&xkb_context_unref)> context;
    std::unique_ptr<xkb_keymap, decltype(&xkb_keymap_unref)> keymap;
    LayoutKeyboardPoster poster;
};

TEST_F(LayoutKeyboardPosterTest, AShiftedCharacterIsItsKeyWithShiftHeldAroundIt) {
    ASSERT_TRUE(poster.canType(u"aA"));
    ASSERT_TRUE(poster.postKeyPair(u"aA"));
    EXPECT_EQ(record.events, (std::vector<std::string>{"+a", "-a", "+Shift_L", "+a", "-a", "-Shift_L", "confirm"}));
}

TEST_F(LayoutKeyboardPosterTest, ACharacterOutsideTheLayoutIsEnteredByItsCodePoint) {
    ASSERT_TRUE(poster.canType(u"é"));
    ASSERT_TRUE(poster.postKeyPair(u"é"));
    EXPECT_EQ(record.events, (std::vector<std::string>{"+Control_L", "+Shift_L", "+u", "-u", "-Shift_L", "-Control_L",
                                                       "+e", "-e", "+9", "-9", "+space", "-space", "confirm"}));
}

TEST_F(LayoutKeyboardPosterTest, ATextThatNeedsTheUnicodeEntryIsRefusedWhenTheWindowDoesNotUnderstandIt) {
    record.windowTakesEntry = false;
    EXPECT_FALSE(poster.canType(u"café"));
    EXPECT_EQ(record.entryQuestions, 1);
    EXPECT_TRUE(poster.canType(u"cafe, Cafe!"));
    EXPECT_EQ(record.entryQuestions, 1) << "a text of the layout alone needs no question";
    EXPECT_TRUE(record.events.empty());
}

TEST_F(LayoutKeyboardPosterTest, ATextThatNeedsTheUnicodeEntryIsTypedWhenTheWindowUnderstandsItOrNothingIsKnown) {
    record.windowTakesEntry = true;
    EXPECT_TRUE(poster.canType(u"café"));
    record.windowTakesEntry = std::nullopt;
    EXPECT_TRUE(poster.canType(u"café"));
    EXPECT_EQ(record.entryQuestions, 2);
}

TEST_F(LayoutKeyboardPosterTest, ATextWithAControlCharacterIsRefusedBeforeAnyKey) {
    EXPECT_FALSE(poster.canType(u"ok\u0007"));
    EXPECT_FALSE(poster.postKeyPair(u"\u0007"));
    EXPECT_TRUE(record.events.empty());
}

// The route confirms every eight characters and at a chunk's end; nothing more is pressed once it did not.
TEST_F(LayoutKeyboardPosterTest, AChunkTheRouteDidNotConfirmIsNotTypedAndStopsThere) {
    record.confirms = false;
    EXPECT_FALSE(poster.postKeyPair(u"abcdefghij"));
    EXPECT_EQ(record.events, (std::vector<std::string>{"+a", "-a", "+b", "-b", "+c", "-c", "+d", "-d", "+e", "-e", "+f",
                                                       "-f", "+g", "-g", "+h", "-h", "confirm"}));
    record.events.clear();
    EXPECT_FALSE(poster.postKeyPair(u"ab"));
    EXPECT_EQ(record.events, (std::vector<std::string>{"+a", "-a", "+b", "-b", "confirm"}));
}

TEST_F(LayoutKeyboardPosterTest, CapsLockIsReleasedBeforeATextAndPutBackAfterItsLastChunk) {
    record.capsLock = true;
    ASSERT_TRUE(poster.canType(u"aAb"));
    ASSERT_TRUE(poster.postKeyPair(u"aA"));
    ASSERT_TRUE(poster.postKeyPair(u"b"));
    EXPECT_EQ(record.events, (std::vector<std::string>{"+Caps_Lock", "-Caps_Lock", "confirm", "+a", "-a", "+Shift_L",
                                                       "+a", "-a", "-Shift_L", "confirm", "+b", "-b", "confirm",
                                                       "+Caps_Lock", "-Caps_Lock", "confirm"}));
}

TEST_F(LayoutKeyboardPosterTest, CapsLockIsPutBackWhenTheTextFails) {
    record.capsLock = true;
    record.confirmsBeforeFailing = 1; // the lock's release, not the first character
    ASSERT_TRUE(poster.canType(u"ab"));
    EXPECT_FALSE(poster.postKeyPair(u"a"));
    EXPECT_EQ(record.events, (std::vector<std::string>{"+Caps_Lock", "-Caps_Lock", "confirm", "+a", "-a", "confirm",
                                                       "+Caps_Lock", "-Caps_Lock", "confirm"}));
}

TEST_F(LayoutKeyboardPosterTest, CapsLockIsPutBackWhenALaterChunkIsRefused) {
    record.capsLock = true;
    ASSERT_TRUE(poster.canType(u"ab"));
    ASSERT_TRUE(poster.postKeyPair(u"a"));
    EXPECT_FALSE(poster.postKeyPair(u"\u0007"));
    EXPECT_EQ(record.events, (std::vector<std::string>{"+Caps_Lock", "-Caps_Lock", "confirm", "+a", "-a", "confirm",
                                                       "+Caps_Lock", "-Caps_Lock", "confirm"}));
}

TEST_F(LayoutKeyboardPosterTest, WithCapsLockOffOrUnknownNoLockKeyIsPressed) {
    ASSERT_TRUE(poster.canType(u"a"));
    ASSERT_TRUE(poster.postKeyPair(u"a"));
    record.capsLock = false;
    ASSERT_TRUE(poster.canType(u"a"));
    ASSERT_TRUE(poster.postKeyPair(u"a"));
    EXPECT_EQ(record.events, (std::vector<std::string>{"+a", "-a", "confirm", "+a", "-a", "confirm"}));
}

TEST_F(LayoutKeyboardPosterTest, WithoutTheRouteOrAKeymapNothingCanBeTyped) {
    record.available = false;
    EXPECT_FALSE(poster.canType(u"a"));
    EXPECT_FALSE(poster.postKeyPair(u"a"));
    record.available = true;
    keymapKnown = false;
    EXPECT_FALSE(poster.canType(u"a"));
    EXPECT_TRUE(record.events.empty());
}

} // namespace
} // namespace keyferry
