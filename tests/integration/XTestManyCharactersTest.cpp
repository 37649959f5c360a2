// Chinese with several times more distinct characters than the spare keycodes hold, typed into real X
// clients on a private Xvfb: every character must arrive, into windows that answer the window manager's
// pings (Qt, GTK, and an Xlib client that does) and into ones that never do (an Xlib client, and xterm, the plain
// Xlib program people type into most), fast and slow ones alike.
#include "HelperProcess.h"
#include "MixedSampleText.h"
#include "ReceivedText.h"
#include "ShiftPressCounter.h"
#include "TextInjector.h"
#include "X11AccessibilityProbe.h"
#include "XTestKeyboardPoster.h"
#include "XvfbDisplay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace keyferry {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// 3,000 characters with 800 distinct ideographs. Waiting for the slowest client's pace instead of the
// window's answer took about 38 s; a limit far above the expected second keeps the check clear of load.
constexpr std::size_t characters = 3000;
constexpr std::size_t distinct = 800;
constexpr double generousSeconds = 10;

class XTestManyCharactersTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("DISPLAY", display.name().c_str(), 1);
        unsetenv("WAYLAND_DISPLAY");
        output = std::filesystem::temp_directory_path() /
                 ("keyferry-many-" + std::to_string(getpid()) + "-" + display.name().substr(1) + ".txt");
    }

    void TearDown() override {
        receiver.reset();
        std::filesystem::remove(output);
    }

    void startReceiver(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin() + 1, output.string());
        receiver = std::make_unique<HelperProcess>(
            arguments, std::map<std::string, std::string>{{"QT_QPA_PLATFORM", "xcb"}, {"LC_ALL", "C.UTF-8"}});
        ASSERT_EQ(receiver->readLine(20s), std::optional<std::string>("ready")) << arguments.front();
    }

    // Chinese into a fast window started by `arguments`: exact, and at the window's pace, not the estimate's.
    void expectChineseAtItsOwnPace(std::vector<std::string> arguments) {
        startReceiver(std::move(arguments));
        if (HasFatalFailure()) {
            return;
        }
        const double seconds = typeAndCheck(chineseSampleText(characters, distinct));
        std::cout << characters / seconds << " chars/s to the last character, poster's exit included\n";
        EXPECT_LT(seconds, generousSeconds);
    }

    // Types `text` and waits for the receiver to hold all of it; the seconds from the start to that moment.
    double typeAndCheck(const std::string& text) {
        const auto started = Clock::now();
        {
            XTestKeyboardPoster poster;
            X11AccessibilityProbe probe;
            TextInjector injector(poster, probe);
            EXPECT_TRUE(injector.insert(text));
        }
        return expectReceived(text, started);
    }

    // Types `text` with keyferry-type, which is done sending long before a slow window has read it.
    void typeWithTool(const std::string& text) {
        const auto started = Clock::now();
        HelperProcess tool({KEYFERRY_TYPE_TOOL}, {}, text);
        EXPECT_EQ(tool.waitForExit(60s), std::optional<int>(0));
        expectReceived(text, started);
    }

    double expectReceived(const std::string& text, Clock::time_point started) {
        const std::string expected = withTypedLineEnds(text);
        const std::string got = receivedText(output, expected.size(), 2s);
        const double seconds = std::chrono::duration<double>(Clock::now() - started).count();
        EXPECT_EQ(got.size(), expected.size());
        EXPECT_TRUE(got == expected) << "first difference at byte "
                                     << std::mismatch(got.begin(), got.end(), expected.begin()).first - got.begin();
        return seconds;
    }

    XvfbDisplay display;
    std::filesystem::path output;
    std::unique_ptr<HelperProcess> receiver;
};

TEST_F(XTestManyCharactersTest, QtWidgetReceivesChineseExactlyAtItsOwnPace) {
    expectChineseAtItsOwnPace({KEYFERRY_QT_RECEIVER, "0"});
}

TEST_F(XTestManyCharactersTest, XlibClientAnsweringPingsReceivesChineseExactlyAtItsOwnPace) {
    expectChineseAtItsOwnPace({KEYFERRY_XLIB_RECEIVER, "0", "fresh", "ping"});
}

// A window that never answers is watched reading its connection instead: waiting for the slowest client's
// pace took about 38 s.
TEST_F(XTestManyCharactersTest, XlibClientThatNeverAnswersReceivesChineseExactlyAtItsOwnPace) {
    expectChineseAtItsOwnPace({KEYFERRY_XLIB_RECEIVER, "0", "fresh"});
}

// GTK windows answer pings, as Qt ones do.
TEST_F(XTestManyCharactersTest, GtkWindowReceivesChineseExactlyAtItsOwnPace) {
    expectChineseAtItsOwnPace({KEYFERRY_GTK_RECEIVER});
}

TEST_F(XTestManyCharactersTest, GtkWindowReceivesTextOfManyScriptsExactly) {
    startReceiver({KEYFERRY_GTK_RECEIVER});
    typeAndCheck(manyScriptSampleText(characters));
}

// xterm never answers pings either; its shell passes the text of every key on to the file unchanged.
TEST_F(XTestManyCharactersTest, XtermReceivesChineseExactlyAtItsOwnPace) {
    expectChineseAtItsOwnPace({KEYFERRY_XTERM_RECEIVER});
}

TEST_F(XTestManyCharactersTest, XtermReceivesTextOfManyScriptsExactly) {
    startReceiver({KEYFERRY_XTERM_RECEIVER});
    typeAndCheck(manyScriptSampleText(characters));
}

// Slow windows read each key 5 ms or more after the previous one, far behind the typing: each place is
// rebound only once they have said they have read it. 1,000 characters with 600 distinct keep the test short.
TEST_F(XTestManyCharactersTest, SlowQtWidgetReceivesChineseExactly) {
    startReceiver({KEYFERRY_QT_RECEIVER, "5"});
    typeAndCheck(chineseSampleText(1000, 600));
}

TEST_F(XTestManyCharactersTest, SlowXlibClientAnsweringPingsReceivesChineseExactly) {
    startReceiver({KEYFERRY_XLIB_RECEIVER, "5", "fresh", "ping"});
    typeAndCheck(chineseSampleText(1000, 600));
}

// A client that never answers is paced by the estimate of the slowest client instead.
TEST_F(XTestManyCharactersTest, SlowXlibClientThatNeverAnswersReceivesChineseExactly) {
    startReceiver({KEYFERRY_XLIB_RECEIVER, "5", "fresh"});
    typeAndCheck(chineseSampleText(600, 400));
}

// Clients that read their events the way XPending loops do, or that ask the server something while handling
// a key (and so read their connection with keys still queued), are seen reading as well.
TEST_F(XTestManyCharactersTest, SlowXlibClientThatNeverAnswersReadingWithXPendingReceivesChineseExactly) {
    startReceiver({KEYFERRY_XLIB_RECEIVER, "5", "fresh", "pending"});
    typeAndCheck(chineseSampleText(600, 400));
}

TEST_F(XTestManyCharactersTest, SlowXlibClientThatNeverAnswersAndAsksTheServerOnEachKeyReceivesChineseExactly) {
    startReceiver({KEYFERRY_XLIB_RECEIVER, "5", "fresh", "roundtrip"});
    typeAndCheck(chineseSampleText(600, 400));
}

// keyferry-type ends long before a slow window has read the text: the borrowed keycodes keep their
// characters until the window says it has read them all.
// Once a window is seen reading its keys slowly, characters go on plain places only, and those on shifted places
// move to plain ones: each Shift press would be one more key for it to handle. With both levels in use to the
// end, 184 of the 1,000 characters needed one; now 94, most of them before the window's pace is known, and 47 in
// the same text typed again by the same poster (100 while characters stayed on their shifted places).
TEST_F(XTestManyCharactersTest, SlowWindowGetsCharactersWithoutShiftOnceItsPaceIsKnown) {
    startReceiver({KEYFERRY_XLIB_RECEIVER, "5", "fresh", "ping"});
    constexpr std::size_t slowText = 1000;
    const std::string text = chineseSampleText(slowText, 600);
    ShiftPressCounter shiftPresses;
    XTestKeyboardPoster poster;
    X11AccessibilityProbe probe;
    TextInjector injector(poster, probe);
    EXPECT_TRUE(injector.insert(text));
    const std::size_t first = shiftPresses.count();
    EXPECT_TRUE(injector.insert(text));
    const std::size_t second = shiftPresses.count() - first;
    expectReceived(text + text, Clock::now());
    std::cout << first << " and " << second << " Shift presses for two texts of " << slowText << " characters\n";
    EXPECT_LT(first, slowText / 7);
    EXPECT_LT(second, slowText / 14);
}

TEST_F(XTestManyCharactersTest, KeyferryTypeExitsWithoutTakingTheLastCharactersFromASlowWindow) {
    startReceiver({KEYFERRY_QT_RECEIVER, "5"});
    typeWithTool(chineseSampleText(1000, 600));
}

// The same with a window that never answers: keyferry-type keeps the keycodes until it has seen the window read
// the last keys; the window is seconds behind when the tool has sent them, more than the 3 s it waits at most
// without seeing it read.
TEST_F(XTestManyCharactersTest, KeyferryTypeExitsWithoutTakingTheLastCharactersFromASlowWindowThatNeverAnswers) {
    startReceiver({KEYFERRY_XLIB_RECEIVER, "5", "fresh"});
    typeWithTool(manyScriptSampleText(3000));
}

} // namespace
} // namespace keyferry
