#include "RecordingKeyboardPoster.h"
#include "SettableAccessibilityProbe.h"

#include <gtest/gtest.h>

namespace keyferry::fakes {
namespace {

TEST(RecordingKeyboardPoster, RecordsChunksAndTheTextTheyType) {
    RecordingKeyboardPoster keyboard;
    EXPECT_TRUE(keyboard.postKeyPair(u"h\u00e9"));
    EXPECT_TRUE(keyboard.postKeyPair(u"\U0001F600!"));
    EXPECT_EQ(keyboard.chunkSizes(), (std::vector<std::size_t>{2, 3}));
    EXPECT_EQ(keyboard.typedText(), "h\xC3\xA9\xF0\x9F\x98\x80!");
}

TEST(RecordingKeyboardPoster, FailAtPostCountsFromNowAndFailsOnlyThatPost) {
    RecordingKeyboardPoster keyboard;
    EXPECT_TRUE(keyboard.postKeyPair(u"a"));
    keyboard.failAtPost(2);
    EXPECT_TRUE(keyboard.postKeyPair(u"b"));
    EXPECT_FALSE(keyboard.postKeyPair(u"c"));
    EXPECT_TRUE(keyboard.postKeyPair(u"d"));
    EXPECT_EQ(keyboard.typedText(), "abd");
    EXPECT_EQ(keyboard.attempts(), 4u);
}

TEST(SettableAccessibilityProbe, AnswersTheSettingAndRecordsPromptFlags) {
    SettableAccessibilityProbe probe;
    EXPECT_TRUE(probe.isTrusted(false));
    probe.trusted = false;
    EXPECT_FALSE(probe.isTrusted(true));
    EXPECT_EQ(probe.promptFlags(), (std::vector<bool>{false, true}));
}

} // namespace
} // namespace keyferry::fakes
