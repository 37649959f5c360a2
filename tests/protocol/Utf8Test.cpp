#include "Utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace keyferry {
namespace {

TEST(IsValidUtf8, AcceptsWellFormedTextOnly) {
    EXPECT_TRUE(isValidUtf8(""));
    EXPECT_TRUE(isValidUtf8("plain ascii"));
    EXPECT_TRUE(isValidUtf8("é€\xF0\x9F\x98\x80\xEF\xBF\xBD"));
    EXPECT_FALSE(isValidUtf8("\xC3"));
    EXPECT_FALSE(isValidUtf8("\xC3\x28"));
    EXPECT_FALSE(isValidUtf8("\xED\xA0\x80"));
    EXPECT_FALSE(isValidUtf8("\xF8\x88\x80\x80\x80"));
}

TEST(IsValidUtf8, RefusesOverlongFormsAndValuesAboveTheLastCodePoint) {
    EXPECT_FALSE(isValidUtf8("\xC0\xAF"));         // "/" in two bytes
    EXPECT_FALSE(isValidUtf8("\xE0\x80\xAF"));     // "/" in three bytes
    EXPECT_FALSE(isValidUtf8("\xF0\x80\x80\xAF")); // "/" in four bytes
    EXPECT_FALSE(isValidUtf8("\xF4\x90\x80\x80")); // U+110000
    EXPECT_TRUE(isValidUtf8("\xF4\x8F\xBF\xBF"));  // U+10FFFF
    EXPECT_TRUE(isValidUtf8(std::string("a\0b", 3)));
}

TEST(Utf8CodePointCount, CountsCharactersNotBytes) {
    EXPECT_EQ(utf8CodePointCount(""), 0u);
    EXPECT_EQ(utf8CodePointCount("abc"), 3u);
    EXPECT_EQ(utf8CodePointCount("é€\xF0\x9F\x98\x80"), 3u);
    EXPECT_EQ(utf8CodePointCount("\xEF\xBF\xBD"), 1u);
}

TEST(Utf8CodePointCount, IsNothingForIllFormedText) {
    EXPECT_FALSE(utf8CodePointCount("ab\xFF"));
    EXPECT_FALSE(utf8CodePointCount("\xED\xBF\xBF")); // an encoded low surrogate
    EXPECT_FALSE(utf8CodePointCount("\xE2\x82"));     // truncated "€"
}

TEST(ReadUtf8Sequence, ReadsOneCharacterAndItsLength) {
    const std::string text = "a€\xF0\x9F\x98\x80";
    const Utf8Sequence first = readUtf8Sequence(text, 0);
    EXPECT_EQ(first.codePoint, U'a');
    EXPECT_EQ(first.length, 1u);
    const Utf8Sequence euro = readUtf8Sequence(text, 1);
    EXPECT_EQ(euro.codePoint, U'€');
    EXPECT_EQ(euro.length, 3u);
    EXPECT_TRUE(euro.wellFormed);
    const Utf8Sequence grin = readUtf8Sequence(text, 4);
    EXPECT_EQ(grin.codePoint, U'\U0001F600');
    EXPECT_EQ(grin.length, 4u);
}

TEST(ReadUtf8Sequence, AnIllFormedSequenceConsumesItsMaximalPrefix) {
    // The lead byte of "€" and its first continuation, then "A": the two bytes are one bad sequence.
    const Utf8Sequence truncated = readUtf8Sequence("\xE2\x82"
                                                    "A",
                                                    0);
    EXPECT_FALSE(truncated.wellFormed);
    EXPECT_EQ(truncated.codePoint, U'\uFFFD');
    EXPECT_EQ(truncated.length, 2u);
    // A byte that can never start a sequence is one bad sequence on its own.
    const Utf8Sequence stray = readUtf8Sequence("\x80\x80", 0);
    EXPECT_FALSE(stray.wellFormed);
    EXPECT_EQ(stray.length, 1u);
    // A surrogate's second byte is out of range for 0xED: only the lead is consumed.
    EXPECT_EQ(readUtf8Sequence("\xED\xA0\x80", 0).length, 1u);
}

} // namespace
} // namespace keyferry
