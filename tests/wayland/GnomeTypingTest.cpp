// Typing with keyferry-type's GNOME route under a headless mutter on a private session bus, into a GTK text
// view on Wayland that records what it gets. A remote-desktop session that idles keeps a keyboard on the
// seat first, as a real desktop's keyboard would. Characters of the layout arrive as their keys, the others
// through the Unicode entry.
#include "GtkReceiverTest.h"
#include "HeadlessCompositor.h"
#include "MixedSampleText.h"
#include "ReceivedText.h"
#include "StoppedReceiver.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>

namespace keyferry {
namespace {

using namespace std::chrono_literals;

class GnomeTypingTest : public GtkReceiverTest {
protected:
    static void SetUpTestSuite() {
        mutter = std::make_unique<HeadlessCompositor>(HeadlessCompositor::Kind::mutter);
        placeholder = mutter->run({"python3", KEYFERRY_GNOME_PLACEHOLDER_KEYBOARD});
        ASSERT_EQ(placeholder->readLine(30s), std::optional<std::string>("ready")) << mutter->log();
    }

    static void TearDownTestSuite() {
        placeholder.reset();
        mutter.reset();
    }

    void SetUp() override { startReceiver(*mutter); }

    // Types the text with keyferry-type, with the arguments given; the exit status.
    static int type(const std::string& text, const std::vector<std::string>& arguments = {"--backend=gnome"}) {
        std::vector<std::string> command{KEYFERRY_TYPE_TOOL};
        command.insert(command.end(), arguments.begin(), arguments.end());
        auto tool = mutter->run(command, {}, text);
        return tool->waitForExit(60s).value_or(-1);
    }

    static inline std::unique_ptr<HeadlessCompositor> mutter;
    static inline std::unique_ptr<HelperProcess> placeholder;
};

TEST_F(GnomeTypingTest, TextOfTheLayoutArrivesExactly) {
    const std::string text = "Hello, World! The quick brown fox jumps over the lazy dog.\n"
                             "0123456789 ~!@#$%^&*()_+`-=[]{}\\|;':\",./<>?\tEND\n";
    ASSERT_EQ(type(text), 0);
    EXPECT_EQ(receivedText(output, text.size(), std::chrono::seconds(3)), text);
}

// A Qt window with no input method (no IBus here) takes the layout's keys as they are.
TEST_F(GnomeTypingTest, AQtWindowGetsTextOfTheLayoutExactly) {
    startQtWindow(*mutter);
    const std::string text = "Hello, World! 0123456789 ~!@#$%^&*()_+`-=[]{}\\|;':\",./<>?\tEND\n";
    ASSERT_EQ(type(text), 0);
    EXPECT_EQ(receivedText(qtOutput, text.size(), 3s), text);
}

TEST_F(GnomeTypingTest, CharactersOutsideTheLayoutArriveThroughTheUnicodeEntry) {
    const std::string text = "a\u4e2d b\u00e9 c\U0001F600 d\u0416\n";
    ASSERT_EQ(type(text), 0);
    EXPECT_EQ(receivedText(output, text.size(), std::chrono::seconds(3)), text);
}

TEST_F(GnomeTypingTest, ATextWithACharacterNoKeyTypesIsRefusedWholeAndNothingArrives) {
    EXPECT_EQ(type("typed? \x07 no"), 1);
    EXPECT_EQ(type("yes"), 0);
    EXPECT_EQ(receivedText(output, 3, std::chrono::seconds(3)), "yes");
}

// A window that reads nothing for a while (busy, or stopped here) gets the whole text once it reads again,
// rather than being dropped by the compositor for the keys queued meanwhile while typing says "typed".
TEST_F(GnomeTypingTest, AGtkTextViewThatStopsReadingForAWhileStillGetsTheWholeText) {
    const std::string text = usLayoutSampleText(3000);
    const auto status = typeWhileReceiverStopped(
        receiver->pid(),
        [&] {
            return mutter->run({KEYFERRY_TYPE_TOOL, "--backend=gnome"}, {}, text);
        },
        3s);
    EXPECT_EQ(status, std::optional<int>(0));
    expectReceivedWhole(text, *mutter);
}

// Never a silent loss: when the window reads nothing for longer than typing waits, the text fails.
TEST_F(GnomeTypingTest, AWindowThatReadsNothingForLongerThanTypingWaitsFailsTheText) {
    const auto status = typeWhileReceiverStopped(
        receiver->pid(),
        [&] {
            return mutter->run({KEYFERRY_TYPE_TOOL, "--backend=gnome"}, {}, usLayoutSampleText(3000));
        },
        10s);
    EXPECT_EQ(status, std::optional<int>(1));
}

// Caps Lock, turned on by the user, would swap the case of every letter typed with the layout's keys.
TEST_F(GnomeTypingTest, WithCapsLockOnLettersStillArriveInTheirOwnCase) {
    // Turns the lock on or off; how it was before.
    const auto capsLock = [](const char* state) {
        auto tap = mutter->run({"python3", KEYFERRY_GNOME_CAPS_LOCK, state});
        const auto before = tap->readLine(20s);
        return tap->waitForExit(20s) == std::optional<int>(0) ? before : std::nullopt;
    };
    ASSERT_EQ(capsLock("on"), std::optional<std::string>("off"));
    const std::string text = "Hello, World! ABC def 123 \u00e9 \u0416\n";
    const int status = type(text);
    EXPECT_EQ(capsLock("off"), std::optional<std::string>("on")) << "the lock was not put back";
    ASSERT_EQ(status, 0);
    EXPECT_EQ(receivedText(output, text.size(), std::chrono::seconds(3)), text);
}

TEST_F(GnomeTypingTest, TheChoiceForThisSessionIsGnomesRemoteDesktop) {
    ASSERT_EQ(type("chosen", {}), 0);
    EXPECT_EQ(receivedText(output, 6, std::chrono::seconds(3)), "chosen");
}

} // namespace
} // namespace keyferry
