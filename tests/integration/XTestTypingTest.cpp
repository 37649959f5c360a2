// Typing through TextInjector and the XTest poster into real X clients on a private Xvfb: the bytes a
// client records must be exactly the bytes sent, line ends as typed.
#include "HelperProcess.h"
#include "KeymapChangeCounter.h"
#include "MixedSampleText.h"
#include "ReceivedText.h"
#include "TempFolder.h"
#include "TextInjector.h"
#include "Utf16.h"
#include "Wait.h"
#include "X11AccessibilityProbe.h"
#include "XTestKeyboardPoster.h"
#include "XvfbDisplay.h"

#include <gtest/gtest.h>
// Xlib's macros (None, Bool, ...) clash with GoogleTest's names: included after it.
#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <unistd.h>

namespace keyferry {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t sampleCharacters = 10000;

class XTestTypingTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("DISPLAY", display.name().c_str(), 1);
        unsetenv("WAYLAND_DISPLAY");
        output = folder / "received.txt";
    }

    void TearDown() override { receiver.reset(); }

    void startReceiver(const std::string& program, int millisecondsPerKey) {
        receiver = std::make_unique<HelperProcess>(
            std::vector<std::string>{program, output.string(), std::to_string(millisecondsPerKey)},
            std::map<std::string, std::string>{{"QT_QPA_PLATFORM", "xcb"}, {"LC_ALL", "C.UTF-8"}});
        ASSERT_EQ(receiver->readLine(20s), std::optional<std::string>("ready")) << program << " did not take the focus";
    }

    std::string received(std::size_t bytes) const { return receivedText(output, bytes); }

    void expectTypedExactly(const std::string& text, XTestKeyboardPoster& poster) {
        X11AccessibilityProbe probe;
        TextInjector injector(poster, probe);
        ASSERT_TRUE(injector.insert(text));
        const std::string expected = withTypedLineEnds(text);
        const std::string got = received(expected.size());
        ASSERT_EQ(got.size(), expected.size());
        EXPECT_TRUE(got == expected) << "first difference at byte "
                                     << std::mismatch(got.begin(), got.end(), expected.begin()).first - got.begin();
    }

    XvfbDisplay display;
    TempFolder folder{"keyferry-xtest"};
    std::filesystem::path output;
    std::unique_ptr<HelperProcess> receiver;
};

TEST_F(XTestTypingTest, XlibClientReceivesMixedTextExactly) {
    startReceiver(KEYFERRY_XLIB_RECEIVER, 0);
    XTestKeyboardPoster poster;
    expectTypedExactly(mixedSampleText(sampleCharacters), poster);
}

TEST_F(XTestTypingTest, QtWidgetReceivesMixedTextExactly) {
    startReceiver(KEYFERRY_QT_RECEIVER, 0);
    XTestKeyboardPoster poster;
    expectTypedExactly(mixedSampleText(sampleCharacters), poster);
}

// A client that lags seconds behind reads the borrowed keys long after they were bound.
TEST_F(XTestTypingTest, SlowXlibClientReceivesMixedTextExactly) {
    startReceiver(KEYFERRY_XLIB_RECEIVER, 5);
    XTestKeyboardPoster poster;
    expectTypedExactly(mixedSampleText(sampleCharacters), poster);
}

TEST_F(XTestTypingTest, SlowQtWidgetReceivesMixedTextExactly) {
    startReceiver(KEYFERRY_QT_RECEIVER, 5);
    XTestKeyboardPoster poster;
    expectTypedExactly(mixedSampleText(sampleCharacters), poster);
}

// More distinct characters than spare keycodes: bindings are recycled while typing.
TEST_F(XTestTypingTest, TextWithMoreCharactersThanSpareKeycodesArrivesExactly) {
    startReceiver(KEYFERRY_QT_RECEIVER, 0);
    XTestKeyboardPoster::Timing fastClients;
    fastClients.slowestKeyInterval = 0ms;
    XTestKeyboardPoster poster(fastClients);
    expectTypedExactly(manyScriptSampleText(sampleCharacters), poster);
}

// Another layout (German: y and z swapped, umlauts on their own keys), chosen before and while typing.
// Qt windows fetch and compile their whole keymap on every change: the characters of a text that fit in the
// spare places are bound in one request, wherever the spare keycodes lie (the server reports a request for
// every keyboard once more on the core keyboard: two notifications), typing it changes nothing more, and
// giving the keycodes back is one request too.
TEST_F(XTestTypingTest, BindsAndGivesBackTheCharactersOfATextInOneKeymapChangeEach) {
    startReceiver(KEYFERRY_QT_RECEIVER, 0);
    KeymapChangeCounter changes;
    const std::string text = chineseSampleText(600, 150);
    std::size_t announced = 0;
    {
        XTestKeyboardPoster poster;
        poster.prepare(utf16FromUtf8(text));
        announced = changes.count();
        EXPECT_GE(announced, 1U);
        EXPECT_LE(announced, 2U);
        expectTypedExactly(text, poster);
        EXPECT_EQ(changes.count(), announced);
    }
    EXPECT_GE(changes.count(), announced + 1) << "the keycodes were not given back";
    EXPECT_LE(changes.count(), announced + 2);
}

TEST_F(XTestTypingTest, FollowsTheLayoutInUseAndItsChanges) {
    startReceiver(KEYFERRY_QT_RECEIVER, 0);
    XTestKeyboardPoster poster;
    X11AccessibilityProbe probe;
    TextInjector injector(poster, probe);
    const std::string first = "Zwölf Boxkämpfer jagen Viktor quer über den großen Sylter Deich. 中文 👋🏽\n";
    const std::string second = "The quick brown fox jumps over the lazy dog; y/z, [], {}, ñ.\n";
    HelperProcess german({"setxkbmap", "-display", display.name(), "de"});
    ASSERT_EQ(german.waitForExit(20s), std::optional<int>(0));
    Display* observer = XOpenDisplay(display.name().c_str());
    ASSERT_NE(observer, nullptr);
    EXPECT_NE(XKeysymToKeycode(observer, XK_odiaeresis), 0) << "the German layout should have a key for ö";
    XCloseDisplay(observer);
    ASSERT_TRUE(injector.insert(first));
    ASSERT_EQ(received(first.size()), first);
    HelperProcess french({"setxkbmap", "-display", display.name(), "fr"});
    ASSERT_EQ(french.waitForExit(20s), std::optional<int>(0));
    ASSERT_TRUE(injector.insert(second));
    EXPECT_EQ(received(first.size() + second.size()), first + second);
}

std::string xtestKeyboardId(const std::string& displayName) {
    Display* connection = XOpenDisplay(displayName.c_str());
    int count = 0;
    XIDeviceInfo* devices = XIQueryDevice(connection, XIAllDevices, &count);
    std::string id;
    for (int index = 0; index < count; ++index) {
        if (devices[index].use == XISlaveKeyboard &&
            std::string(devices[index].name).find("XTEST") != std::string::npos) {
            id = std::to_string(devices[index].deviceid);
        }
    }
    XIFreeDeviceInfo(devices);
    XCloseDisplay(connection);
    return id;
}

// A layout set on the keyboards but not on the XTest device (which then still has another one) must not leak
// into the text: keys are typed as the user's layout says.
TEST_F(XTestTypingTest, TypesInTheUsersLayoutWhateverTheXTestDeviceCarries) {
    startReceiver(KEYFERRY_QT_RECEIVER, 0);
    const std::string device = xtestKeyboardId(display.name());
    ASSERT_FALSE(device.empty());
    HelperProcess german({"setxkbmap", "-display", display.name(), "-device", device, "de"});
    ASSERT_EQ(german.waitForExit(20s), std::optional<int>(0));
    XTestKeyboardPoster poster;
    expectTypedExactly("yz YZ qwerty? - [y/z] @#", poster);
}

// The user's Caps Lock and a Control key held down must neither change the text nor be lost.
class UserModifiersTest : public XTestTypingTest {
protected:
    void SetUp() override {
        XTestTypingTest::SetUp();
        user = XOpenDisplay(display.name().c_str());
        ASSERT_NE(user, nullptr);
        control = XKeysymToKeycode(user, XK_Control_L);
        XkbLockModifiers(user, XkbUseCoreKbd, LockMask, LockMask);
        XTestFakeKeyEvent(user, control, True, CurrentTime);
        XSync(user, False);
    }

    void TearDown() override {
        XTestFakeKeyEvent(user, control, False, CurrentTime);
        XkbLockModifiers(user, XkbUseCoreKbd, LockMask, 0);
        XCloseDisplay(user);
        XTestTypingTest::TearDown();
    }

    void expectModifiersStillActive() {
        XkbStateRec state{};
        XkbGetState(user, XkbUseCoreKbd, &state);
        EXPECT_NE(state.locked_mods & LockMask, 0U) << "Caps Lock was not put back";
        EXPECT_NE(state.base_mods & ControlMask, 0U) << "the held Control key was not put back";
    }

    Display* user = nullptr;
    KeyCode control = 0;
};

TEST_F(UserModifiersTest, XlibClientReceivesExactTextWithCapsLockAndControlHeld) {
    startReceiver(KEYFERRY_XLIB_RECEIVER, 0);
    XTestKeyboardPoster poster;
    expectTypedExactly(mixedSampleText(sampleCharacters), poster);
    expectModifiersStillActive();
}

TEST_F(UserModifiersTest, QtWidgetReceivesExactTextWithCapsLockAndControlHeld) {
    startReceiver(KEYFERRY_QT_RECEIVER, 0);
    XTestKeyboardPoster poster;
    expectTypedExactly(mixedSampleText(sampleCharacters), poster);
    expectModifiersStillActive();
}

// The keyboard state is asked for again only when the server reports a change: Caps Lock and Control that the
// user takes between two texts are still cleared for the second one, and put back after it.
TEST_F(XTestTypingTest, ModifiersTakenBetweenTextsNeitherChangeTheNextTextNorAreLost) {
    startReceiver(KEYFERRY_QT_RECEIVER, 0);
    XTestKeyboardPoster poster;
    X11AccessibilityProbe probe;
    TextInjector injector(poster, probe);
    const std::string first = mixedSampleText(500);
    const std::string second = mixedSampleText(2000);
    ASSERT_TRUE(injector.insert(first));
    Display* user = XOpenDisplay(display.name().c_str());
    ASSERT_NE(user, nullptr);
    const KeyCode control = XKeysymToKeycode(user, XK_Control_L);
    XkbLockModifiers(user, XkbUseCoreKbd, LockMask, LockMask);
    XTestFakeKeyEvent(user, control, True, CurrentTime);
    XSync(user, False);
    ASSERT_TRUE(injector.insert(second));
    const std::string expected = withTypedLineEnds(first + second);
    EXPECT_EQ(received(expected.size()), expected);
    XkbStateRec state{};
    XkbGetState(user, XkbUseCoreKbd, &state);
    EXPECT_NE(state.locked_mods & LockMask, 0U) << "Caps Lock was not put back";
    EXPECT_NE(state.base_mods & ControlMask, 0U) << "the held Control key was not put back";
    XTestFakeKeyEvent(user, control, False, CurrentTime);
    XkbLockModifiers(user, XkbUseCoreKbd, LockMask, 0);
    XCloseDisplay(user);
}

std::vector<KeySym> keyboardMapping(Display* connection) {
    int minKeycode = 0;
    int maxKeycode = 0;
    XDisplayKeycodes(connection, &minKeycode, &maxKeycode);
    int perKeycode = 0;
    KeySym* raw =
        XGetKeyboardMapping(connection, static_cast<KeyCode>(minKeycode), maxKeycode - minKeycode + 1, &perKeycode);
    std::vector<KeySym> mapping(raw, raw + (maxKeycode - minKeycode + 1) * perKeycode);
    XFree(raw);
    return mapping;
}

TEST_F(XTestTypingTest, BorrowedKeycodesGetTheirSymbolsBackWhenTypingIdles) {
    Display* observer = XOpenDisplay(display.name().c_str());
    ASSERT_NE(observer, nullptr);
    const auto original = keyboardMapping(observer);
    startReceiver(KEYFERRY_XLIB_RECEIVER, 0);
    XTestKeyboardPoster::Timing timing;
    timing.slowestKeyInterval = 0ms;
    timing.restoreAfter = 300ms;
    XTestKeyboardPoster poster(timing);
    expectTypedExactly("Grüße, 世界 👋🏽", poster);
    EXPECT_NE(keyboardMapping(observer), original) << "the characters should have been bound to spare keycodes";
    EXPECT_TRUE(testing::waitUntil([&] { return keyboardMapping(observer) == original; }, 1500ms));
    XCloseDisplay(observer);
}

TEST_F(XTestTypingTest, BorrowedKeycodesGetTheirSymbolsBackAtDestruction) {
    Display* observer = XOpenDisplay(display.name().c_str());
    ASSERT_NE(observer, nullptr);
    const auto original = keyboardMapping(observer);
    startReceiver(KEYFERRY_XLIB_RECEIVER, 0);
    {
        XTestKeyboardPoster poster;
        expectTypedExactly("Ça va? Ἀθῆναι", poster);
    }
    EXPECT_EQ(keyboardMapping(observer), original);
    XCloseDisplay(observer);
}

TEST_F(XTestTypingTest, KeyferryTypeTypesStandardInputExactly) {
    startReceiver(KEYFERRY_XLIB_RECEIVER, 0);
    const std::string text = mixedSampleText(2000);
    HelperProcess tool({KEYFERRY_TYPE_TOOL}, {}, text);
    EXPECT_EQ(tool.waitForExit(60s), std::optional<int>(0));
    const std::string expected = withTypedLineEnds(text);
    EXPECT_TRUE(received(expected.size()) == expected);
}

TEST_F(XTestTypingTest, KeyferryTypeFailsClearlyWithoutDisplay) {
    HelperProcess tool({KEYFERRY_TYPE_TOOL}, {{"DISPLAY", ""}, {"WAYLAND_DISPLAY", "wayland-0"}}, "hello");
    const auto status = tool.waitForExit(30s);
    ASSERT_TRUE(status.has_value());
    EXPECT_NE(*status, 0);
}

TEST_F(XTestTypingTest, ProbeTrustsXvfbWithXTest) {
    X11AccessibilityProbe probe;
    EXPECT_TRUE(probe.isTrusted(false));
    EXPECT_TRUE(probe.isTrusted(true));
}

// The X server going away must turn into failed calls, never end the process.
TEST(XTestKeyboardPosterTest, ReportsFailureWhenTheXServerGoesAway) {
    auto server = std::make_unique<XvfbDisplay>();
    setenv("DISPLAY", server->name().c_str(), 1);
    XTestKeyboardPoster poster;
    EXPECT_TRUE(poster.postKeyPair(u"abc \u00e9\u4e2d"));
    server.reset();
    EXPECT_FALSE(poster.postKeyPair(u"def \u00e8\u6587"));
    EXPECT_FALSE(poster.postKeyPair(u"ghi"));
}

// Asked before every text: it answers from the connection it keeps, and notices when the server goes away.
TEST(X11AccessibilityProbeTest, KeepsOneConnectionAndFollowsTheServer) {
    auto server = std::make_unique<XvfbDisplay>();
    setenv("DISPLAY", server->name().c_str(), 1);
    X11AccessibilityProbe probe;
    ASSERT_TRUE(probe.isTrusted(false));
    // A probe that connected for every question would now find no server.
    setenv("DISPLAY", ":64999", 1);
    constexpr int questions = 1000;
    const auto started = std::chrono::steady_clock::now();
    for (int question = 0; question < questions; ++question) {
        ASSERT_TRUE(probe.isTrusted(false)) << "question " << question;
    }
    const std::chrono::duration<double, std::micro> each = (std::chrono::steady_clock::now() - started) / questions;
    std::cout << "typing availability answered in " << each.count() << " us\n";
    setenv("DISPLAY", server->name().c_str(), 1);
    server.reset();
    EXPECT_FALSE(probe.isTrusted(false));
    auto restarted = std::make_unique<XvfbDisplay>();
    setenv("DISPLAY", restarted->name().c_str(), 1);
    EXPECT_TRUE(probe.isTrusted(false));
}

TEST(X11AccessibilityProbeTest, WaylandSessionWithoutXIsNotTrusted) {
    unsetenv("DISPLAY");
    setenv("WAYLAND_DISPLAY", "wayland-0", 1);
    X11AccessibilityProbe probe;
    EXPECT_FALSE(probe.isTrusted(false));
    EXPECT_FALSE(probe.isTrusted(true));
}

} // namespace
} // namespace keyferry
