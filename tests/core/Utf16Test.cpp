#include "Utf16.h"

#include <gtest/gtest.h>

namespace keyferry {
namespace {

TEST(Utf16FromUtf8, ConvertsEveryPlane) {
    EXPECT_EQ(utf16FromUtf8("aé€\xF0\x9F\x98\x80"), u"aé€\U0001F600");
    EXPECT_EQ(utf16FromUtf8("\xF4\x8F\xBF\xBF"), u"\U0010FFFF");
    EXPECT_EQ(utf16FromUtf8(""), u"");
}

TEST(Utf16FromUtf8, EachMaximalIllFormedSequenceBecomesOneReplacementCharacter) {
    EXPECT_EQ(utf16FromUtf8("\xFF"), u"\uFFFD");
    EXPECT_EQ(utf16FromUtf8("a\x80"
                            "b"),
              u"a\uFFFDb");                          // stray continuation byte
    EXPECT_EQ(utf16FromUtf8("\xE2\x82"), u"\uFFFD"); // truncated three-byte sequence
    EXPECT_EQ(utf16FromUtf8("\xE2\x82"
                            "a"),
              u"\uFFFDa");
    EXPECT_EQ(utf16FromUtf8("\xC0\xAF"), u"\uFFFD\uFFFD");                     // overlong
    EXPECT_EQ(utf16FromUtf8("\xE0\x80\xAF"), u"\uFFFD\uFFFD\uFFFD");           // overlong three-byte
    EXPECT_EQ(utf16FromUtf8("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");           // encoded surrogate
    EXPECT_EQ(utf16FromUtf8("\xF4\x90\x80\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD"); // above U+10FFFF
    EXPECT_EQ(utf16FromUtf8("\xF0\x9F\x98"), u"\uFFFD");                       // truncated emoji
}

TEST(Utf8FromUtf16, ConvertsPairsAndReplacesLoneSurrogates) {
    EXPECT_EQ(utf8FromUtf16(u"aé\U0001F600"), "aé\xF0\x9F\x98\x80");
    const std::u16string lone{u'a', static_cast<char16_t>(0xD83D), u'b', static_cast<char16_t>(0xDE00)};
    EXPECT_EQ(utf8FromUtf16(lone), "a\xEF\xBF\xBD"
                                   "b\xEF\xBF\xBD");
}

TEST(CodePointsFromUtf16, JoinsPairsAndReplacesLoneSurrogates) {
    EXPECT_EQ(codePointsFromUtf16(u"aé\U0001F600\u2028"), U"aé\U0001F600\u2028");
    const std::u16string lone{static_cast<char16_t>(0xDE00), u'b', static_cast<char16_t>(0xD83D)};
    EXPECT_EQ(codePointsFromUtf16(lone), U"\uFFFDb\uFFFD");
}

TEST(Utf16RoundTrip, WellFormedTextSurvivesBothWays) {
    const std::string text = "Grüße, 世界! \xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD \r\n\t";
    EXPECT_EQ(utf8FromUtf16(utf16FromUtf8(text)), text);
}

} // namespace
} // namespace keyferry
