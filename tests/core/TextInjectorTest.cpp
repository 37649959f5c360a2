#include "TextInjector.h"
#include "RecordingKeyboardPoster.h"
#include "SettableAccessibilityProbe.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace keyferry {
namespace {

using Sizes = std::vector<std::size_t>;

const std::string grinning = "\xF0\x9F\x98\x80"; // U+1F600, two UTF-16 units

class TextInjectorTest : public testing::Test {
protected:
    fakes::RecordingKeyboardPoster keyboard;
    fakes::SettableAccessibilityProbe probe;
    TextInjector injector{keyboard, probe};
};

TEST_F(TextInjectorTest, EmptyTextSucceedsWithoutTestingThePermission) {
    probe.trusted = false;
    EXPECT_TRUE(injector.insert(""));
    EXPECT_EQ(probe.callCount(), 0u);
    EXPECT_EQ(keyboard.attempts(), 0u);
}

TEST_F(TextInjectorTest, WithoutThePermissionNothingIsPosted) {
    probe.trusted = false;
    EXPECT_FALSE(injector.insert("hello"));
    EXPECT_EQ(keyboard.attempts(), 0u);
}

// A poster that must prepare keys for characters does it once for the whole text, before its first chunk.
TEST_F(TextInjectorTest, AnnouncesTheWholeTextWithItsLineEndsBeforeTheChunks) {
    EXPECT_TRUE(injector.insert("a\r\nb\rc and some more text to span chunks"));
    ASSERT_EQ(keyboard.announcements().size(), 1u);
    EXPECT_EQ(keyboard.announcements()[0].text, u"a\nb\nc and some more text to span chunks");
    EXPECT_EQ(keyboard.announcements()[0].chunksBefore, 0u);
    EXPECT_EQ(keyboard.chunks().size(), 2u);
}

TEST_F(TextInjectorTest, AnnouncesNothingWithoutThePermission) {
    probe.trusted = false;
    EXPECT_FALSE(injector.insert("hello"));
    EXPECT_TRUE(keyboard.announcements().empty());
}

TEST_F(TextInjectorTest, PermissionIsTestedWithoutPrompting) {
    EXPECT_TRUE(injector.insert("x"));
    EXPECT_EQ(probe.promptFlags(), (std::vector<bool>{false}));
}

TEST_F(TextInjectorTest, ShortTextIsOneChunk) {
    EXPECT_TRUE(injector.insert("héllo wörld"));
    EXPECT_EQ(keyboard.chunkSizes(), (Sizes{11}));
    EXPECT_EQ(keyboard.typedText(), "héllo wörld");
}

TEST_F(TextInjectorTest, LineEndsAreTypedAsLineFeedsInOneChunk) {
    EXPECT_TRUE(injector.insert("a\r\nb\rc\n"));
    ASSERT_EQ(keyboard.chunks().size(), 1u);
    EXPECT_EQ(keyboard.chunks()[0], u"a\nb\nc\n");
}

TEST_F(TextInjectorTest, CarriageReturnsInARowEachBecomeALineFeed) {
    EXPECT_TRUE(injector.insert("\r\r\n\n\r"));
    EXPECT_EQ(keyboard.typedUnits(), u"\n\n\n\n");
}

TEST_F(TextInjectorTest, TabsAndOtherControlCharactersPassUnchanged) {
    EXPECT_TRUE(injector.insert("a\tb\x1B"));
    EXPECT_EQ(keyboard.typedUnits(), u"a\tb\x1B");
}

TEST_F(TextInjectorTest, ExactlyTwentyUnitsIsOneChunk) {
    EXPECT_TRUE(injector.insert(std::string(20, 'x')));
    EXPECT_EQ(keyboard.chunkSizes(), (Sizes{20}));
}

TEST_F(TextInjectorTest, TwentyOneUnitsAreChunksOfTwentyAndOne) {
    EXPECT_TRUE(injector.insert(std::string(21, 'x')));
    EXPECT_EQ(keyboard.chunkSizes(), (Sizes{20, 1}));
}

TEST_F(TextInjectorTest, FortyFiveUnitsAreChunksOfTwentyTwentyAndFive) {
    std::string text;
    for (int index = 0; index < 45; ++index) {
        text.push_back(static_cast<char>('a' + index % 26));
    }
    EXPECT_TRUE(injector.insert(text));
    EXPECT_EQ(keyboard.chunkSizes(), (Sizes{20, 20, 5}));
    EXPECT_EQ(keyboard.typedText(), text);
}

TEST_F(TextInjectorTest, SurrogatePairAtTheChunkBoundaryMovesWholeToTheNextChunk) {
    const std::string text = std::string(19, 'a') + grinning + "more";
    EXPECT_TRUE(injector.insert(text));
    EXPECT_EQ(keyboard.chunkSizes(), (Sizes{19, 6}));
    EXPECT_EQ(keyboard.chunks()[1].substr(0, 2), u"\U0001F600");
    EXPECT_EQ(keyboard.typedText(), text);
}

TEST_F(TextInjectorTest, NineteenUnitsThenAnEmojiAreChunksOfNineteenAndTwo) {
    // 21 units: the first chunk would end with the emoji's first half, so it stops before the pair.
    EXPECT_TRUE(injector.insert(std::string(19, 'a') + grinning));
    EXPECT_EQ(keyboard.chunkSizes(), (Sizes{19, 2}));
}

TEST_F(TextInjectorTest, EmojiEndingATwentyUnitTextStaysInOneChunk) {
    EXPECT_TRUE(injector.insert(std::string(18, 'a') + grinning));
    EXPECT_EQ(keyboard.chunkSizes(), (Sizes{20}));
}

TEST_F(TextInjectorTest, LastChunkWhoseTwentiethUnitIsAHighSurrogateIsNotShortened) {
    // Only UTF-16 text can end with the first half of a pair (a cut-off emoji); the chunk reaches the end
    // of the text, so it goes out whole.
    std::u16string units(20, u'a');
    units += std::u16string(19, u'b');
    units.push_back(static_cast<char16_t>(0xD83D));
    EXPECT_TRUE(injector.insert(std::u16string_view(units)));
    EXPECT_EQ(keyboard.chunkSizes(), (Sizes{20, 20}));
    EXPECT_EQ(keyboard.typedUnits(), units);
}

TEST_F(TextInjectorTest, LoneHighSurrogateAtIndexNineteenStartsTheNextChunk) {
    std::u16string units(19, u'a');
    units.push_back(static_cast<char16_t>(0xD83D));
    units += u"bcd";
    EXPECT_TRUE(injector.insert(std::u16string_view(units)));
    EXPECT_EQ(keyboard.chunkSizes(), (Sizes{19, 4}));
    EXPECT_EQ(keyboard.chunks()[1][0], static_cast<char16_t>(0xD83D));
}

TEST_F(TextInjectorTest, Utf16TextFollowsTheSameRules) {
    probe.trusted = false;
    EXPECT_TRUE(injector.insert(std::u16string_view()));
    EXPECT_EQ(probe.callCount(), 0u);
    EXPECT_FALSE(injector.insert(std::u16string_view(u"x")));
    probe.trusted = true;
    EXPECT_TRUE(injector.insert(std::u16string_view(u"a\r\nb")));
    EXPECT_EQ(keyboard.typedUnits(), u"a\nb");
}

TEST_F(TextInjectorTest, PosterFailureStopsTypingAndEarlierChunksStay) {
    keyboard.failAtPost(2);
    EXPECT_FALSE(injector.insert(std::string(20, 'a') + std::string(20, 'b') + "c"));
    EXPECT_EQ(keyboard.typedText(), std::string(20, 'a'));
    EXPECT_EQ(keyboard.attempts(), 2u); // nothing is tried after the failure
}

TEST_F(TextInjectorTest, FirstPostFailingTypesNothing) {
    keyboard.failAtPost(1);
    EXPECT_FALSE(injector.insert("abc"));
    EXPECT_TRUE(keyboard.chunks().empty());
}

TEST_F(TextInjectorTest, InvalidUtf8IsTypedAsReplacementCharacters) {
    EXPECT_TRUE(injector.insert("a\xFF"
                                "b\xC3"));
    EXPECT_EQ(keyboard.typedUnits(), u"a\uFFFDb\uFFFD");
}

TEST_F(TextInjectorTest, ManyEmojiNeverSplitAPairAcrossEvents) {
    std::string text = "x";
    for (int index = 0; index < 30; ++index) {
        text += grinning;
    }
    EXPECT_TRUE(injector.insert(text));
    for (const auto& chunk : keyboard.chunks()) {
        ASSERT_FALSE(chunk.empty());
        EXPECT_LE(chunk.size(), 20u);
        EXPECT_NE(chunk.back() & 0xFC00, 0xD800) << "chunk ends with a high surrogate";
        EXPECT_NE(chunk.front() & 0xFC00, 0xDC00) << "chunk starts with a low surrogate";
    }
    EXPECT_EQ(keyboard.typedText(), text);
}

TEST_F(TextInjectorTest, TextWithACharacterThePosterCannotTypeIsRefusedBeforeAnyPost) {
    keyboard.untypable = u"\u0007";
    std::string text(45, 'a');
    text += '\a';
    EXPECT_FALSE(injector.insert(text));
    EXPECT_EQ(keyboard.attempts(), 0u);
}

TEST_F(TextInjectorTest, ThePosterIsAskedAboutTheWholeTextAsItWillBeTyped) {
    EXPECT_TRUE(injector.insert(std::string(30, 'x') + "\r\n" + grinning));
    EXPECT_EQ(keyboard.askedToType(), (std::vector<std::u16string>{std::u16string(30, u'x') + u"\n\U0001F600"}));
}

TEST_F(TextInjectorTest, EmptyTextNeverAsksThePoster) {
    keyboard.untypable = u"a";
    EXPECT_TRUE(injector.insert(""));
    EXPECT_TRUE(keyboard.askedToType().empty());
}

} // namespace
} // namespace keyferry
