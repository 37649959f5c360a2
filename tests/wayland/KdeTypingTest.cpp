// Typing with keyferry-type's KDE route under a headless KWin on a private session bus, into a GTK text view
// on Wayland that records what it gets. The copy of keyferry-type that types is granted KDE's fake input by a
// desktop entry made from the one Keyferry installs; the build's own keyferry-type is not. KWin has a US and a
// Russian layout, the US one in effect unless a test switches: the two share no letter key, so without knowing
// the layout in effect every text with a letter would be refused.
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

class KdeTypingTest : public GtkReceiverTest {
protected:
    static void SetUpTestSuite() {
        kwin = std::make_unique<HeadlessCompositor>(
            HeadlessCompositor::Kind::kwin,
            std::vector<std::filesystem::path>{KEYFERRY_TYPE_TOOL, KEYFERRY_KDE_CAPS_LOCK}, KEYFERRY_DESKTOP_ENTRY,
            "us,ru");
    }

    static void TearDownTestSuite() { kwin.reset(); }

    void SetUp() override { startReceiver(*kwin); }

    // Types the text with a keyferry-type, with the arguments given; the exit status.
    static int type(const std::string& text, const std::string& tool,
                    const std::vector<std::string>& arguments = {"--backend=kde"}) {
        std::vector<std::string> command{tool};
        command.insert(command.end(), arguments.begin(), arguments.end());
        auto typing = kwin->run(command, {}, text);
        return typing->waitForExit(60s).value_or(-1);
    }

    static int typeGranted(const std::string& text) { return type(text, kwin->file("keyferry-type").string()); }

    // Puts a layout of KWin's keymap (0: us, 1: ru) in effect, as the user's layout switcher would.
    static int switchTo(const char* layout) {
        auto call = kwin->run({"gdbus", "call", "--session", "-d", "org.kde.keyboard", "-o", "/Layouts", "-m",
                               "org.kde.KeyboardLayouts.setLayout", layout});
        return call->waitForExit(10s).value_or(-1);
    }

    // Types the text with the Russian layout in effect, then puts the US layout back; the exit status.
    static int typeWithRussianInEffect(const std::string& text) {
        EXPECT_EQ(switchTo("1"), 0);
        const int status = typeGranted(text);
        EXPECT_EQ(switchTo("0"), 0);
        return status;
    }

    static inline std::unique_ptr<HeadlessCompositor> kwin;
};

TEST_F(KdeTypingTest, TextOfTheLayoutArrivesExactly) {
    const std::string text = "Hello, World! The quick brown fox jumps over the lazy dog.\n"
                             "0123456789 ~!@#$%^&*()_+`-=[]{}\\|;':\",./<>?\tEND\n";
    ASSERT_EQ(typeGranted(text), 0);
    EXPECT_EQ(receivedText(output, text.size(), std::chrono::seconds(3)), text);
}

TEST_F(KdeTypingTest, CharactersOutsideTheLayoutArriveThroughTheUnicodeEntry) {
    const std::string text = "a\u4e2d b\u00e9 c\U0001F600\n";
    ASSERT_EQ(typeGranted(text), 0);
    EXPECT_EQ(receivedText(output, text.size(), std::chrono::seconds(3)), text);
}

TEST_F(KdeTypingTest, AProgramWithoutTheDesktopEntryIsNotOfferedFakeInputAndTypesNothing) {
    EXPECT_EQ(type("nothing", KEYFERRY_TYPE_TOOL), 1);
    ASSERT_EQ(typeGranted("yes"), 0);
    EXPECT_EQ(receivedText(output, 3, std::chrono::seconds(3)), "yes");
}

TEST_F(KdeTypingTest, TheLayoutInEffectIsTheOneKdeSays) {
    const std::string text = "\u041f\u0440\u0438\u0432\u0435\u0442, \u043c\u0438\u0440!\n";
    ASSERT_EQ(typeWithRussianInEffect(text), 0);
    EXPECT_EQ(receivedText(output, text.size(), std::chrono::seconds(3)), text);
}

// Latin letters, and the Unicode entry that needs them, go through the US layout with the key held that puts
// it in effect; Russian stays the layout the user chose.
TEST_F(KdeTypingTest, WithRussianInEffectLatinLettersAndOtherCharactersArriveExactly) {
    const std::string text = "\u0434\u0430 hello, World \u4e2d\u00e9\U0001F600 \u0435\u0449\u0451\n";
    // Then more Russian: a group key left held would turn these letters into Latin ones.
    ASSERT_EQ(typeWithRussianInEffect(text), 0);
    ASSERT_EQ(typeWithRussianInEffect("\u0434\u0430"), 0);
    const std::string whole = text + "\u0434\u0430";
    EXPECT_EQ(receivedText(output, whole.size(), std::chrono::seconds(3)), whole);
}

// A Qt window with no input method takes the keys as they are: with Russian in effect, Cyrillic on its own keys
// and Latin letters on the US layout's keys, with the key held that puts it in effect.
TEST_F(KdeTypingTest, AQtWindowGetsTextOfTheLayoutInEffectAndOfTheNextExactly) {
    startQtWindow(*kwin);
    const std::string text = "\u041f\u0440\u0438\u0432\u0435\u0442, World! 0123456789 \u043c\u0438\u0440\tEND\n";
    ASSERT_EQ(typeWithRussianInEffect(text), 0);
    EXPECT_EQ(receivedText(qtOutput, text.size(), std::chrono::seconds(3)), text);
}

// Such a window would show the Unicode entry's hex digits as text: a text that needs the entry is refused
// whole, so it is not reported as typed.
TEST_F(KdeTypingTest, ATextThatNeedsTheUnicodeEntryIsRefusedForAQtWindowWithoutAnInputMethod) {
    startQtWindow(*kwin);
    EXPECT_EQ(typeGranted("a\u4e2d b\n"), 1);
    ASSERT_EQ(typeGranted("ab\n"), 0);
    EXPECT_EQ(receivedText(qtOutput, 3, std::chrono::seconds(3)), "ab\n");
}

// A window that reads nothing for a while (busy, or stopped here) gets the whole text once it reads again,
// rather than being dropped by the compositor for the keys queued meanwhile while typing says "typed".
TEST_F(KdeTypingTest, AGtkTextViewThatStopsReadingForAWhileStillGetsTheWholeText) {
    const std::string text = usLayoutSampleText(3000);
    const auto status = typeWhileReceiverStopped(
        receiver->pid(),
        [&] {
            return kwin->run({kwin->file("keyferry-type").string(), "--backend=kde"}, {}, text);
        },
        3s);
    EXPECT_EQ(status, std::optional<int>(0));
    expectReceivedWhole(text, *kwin);
}

// Never a silent loss: when the window reads nothing for longer than typing waits, the text fails.
TEST_F(KdeTypingTest, AWindowThatReadsNothingForLongerThanTypingWaitsFailsTheText) {
    const auto status = typeWhileReceiverStopped(
        receiver->pid(),
        [&] {
            return kwin->run({kwin->file("keyferry-type").string(), "--backend=kde"}, {}, usLayoutSampleText(3000));
        },
        10s);
    EXPECT_EQ(status, std::optional<int>(1));
}

// Caps Lock, turned on by the user, would swap the case of every letter typed with the layout's keys.
TEST_F(KdeTypingTest, WithCapsLockOnLettersStillArriveInTheirOwnCase) {
    // Turns the lock on or off; how it was before.
    const auto capsLock = [](const char* state) {
        auto tap = kwin->run({kwin->file("keyferry-kde-caps-lock").string(), state});
        const auto before = tap->readLine(20s);
        return tap->waitForExit(20s) == std::optional<int>(0) ? before : std::nullopt;
    };
    ASSERT_EQ(capsLock("on"), std::optional<std::string>("off"));
    const std::string text = "Hello, World! ABC def 123 \u00e9\n";
    const int status = typeGranted(text);
    EXPECT_EQ(capsLock("off"), std::optional<std::string>("on")) << "the lock was not put back";
    ASSERT_EQ(status, 0);
    EXPECT_EQ(receivedText(output, text.size(), std::chrono::seconds(3)), text);
}

TEST_F(KdeTypingTest, TheChoiceForThisSessionIsKdesFakeInput) {
    ASSERT_EQ(type("chosen", kwin->file("keyferry-type").string(), {}), 0);
    EXPECT_EQ(receivedText(output, 6, std::chrono::seconds(3)), "chosen");
}

} // namespace
} // namespace keyferry
