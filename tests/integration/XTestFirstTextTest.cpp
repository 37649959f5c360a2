// The first text typed on an X server that has just started, into a window that opened moments before: a
// person opens an application and sends a text at once. Every case has its own fresh Xvfb and receiver, and
// every one of them must get the text exactly.
#include "HelperProcess.h"
#include "MixedSampleText.h"
#include "ReceivedText.h"
#include "TempFolder.h"
#include "TextInjector.h"
#include "X11AccessibilityProbe.h"
#include "XTestKeyboardPoster.h"
#include "XvfbDisplay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace keyferry {
namespace {

using namespace std::chrono_literals;

constexpr int cases = 20;

// Several chunks, each with characters the layout lacks, after plain ASCII.
const std::string firstText =
    "Hello 中文字 café ÉÀ Ωμέγα привет 👋🏽 done. Zwölf Boxkämpfer jagen Viktor quer "
    "über den großen Sylter Deich. Ça va? Ἀθῆναι, 日本語のテキスト, Ünïcödé ñ ß ø å.\n";

// Types `firstText` into a receiver started on a fresh X server; what the receiver recorded.
std::string typeIntoNewWindow(const std::vector<std::string>& receiverArguments, std::chrono::milliseconds pause) {
    XvfbDisplay display;
    setenv("DISPLAY", display.name().c_str(), 1);
    unsetenv("WAYLAND_DISPLAY");
    const TempFolder folder("keyferry-first-text");
    const auto output = folder / "received.txt";
    std::vector<std::string> arguments{receiverArguments.front(), output.string()};
    arguments.insert(arguments.end(), receiverArguments.begin() + 1, receiverArguments.end());
    HelperProcess receiver(arguments, {{"QT_QPA_PLATFORM", "xcb"}, {"LC_ALL", "C.UTF-8"}});
    if (receiver.readLine(20s) != std::optional<std::string>("ready")) {
        ADD_FAILURE() << arguments.front() << " did not take the focus";
        return {};
    }
    std::this_thread::sleep_for(pause); // the person sends the text moments after the window opened
    XTestKeyboardPoster::Timing timing;
    timing.restoreAfter = 300ms; // only shortens the wait at the end of each case; typing is the same
    XTestKeyboardPoster poster(timing);
    X11AccessibilityProbe probe;
    TextInjector injector(poster, probe);
    EXPECT_TRUE(injector.insert(firstText));
    return receivedText(output, firstText.size(), 1s);
}

void expectEveryCaseExact(const std::vector<std::string>& receiverArguments, std::chrono::milliseconds pause) {
    int inexact = 0;
    for (int index = 0; index < cases; ++index) {
        const std::string got = typeIntoNewWindow(receiverArguments, pause);
        if (got != firstText) {
            ++inexact;
            ADD_FAILURE() << "case " << index << " received \"" << got << "\"";
        }
    }
    EXPECT_EQ(inexact, 0) << "of " << cases << " cases";
}

TEST(XTestFirstTextTest, XlibClientThatJustOpenedReceivesTheFirstTextExactly) {
    expectEveryCaseExact({KEYFERRY_XLIB_RECEIVER, "0", "fresh"}, 300ms);
}

TEST(XTestFirstTextTest, XlibClientReceivesTextSentTheMomentItHasTheFocus) {
    expectEveryCaseExact({KEYFERRY_XLIB_RECEIVER, "0", "fresh"}, 0ms);
}

// A slow window that has just opened works through its first keys long after they were sent; the keymap
// changes made meanwhile, to type more characters than the spare keycodes hold, must not pass it by.
TEST(XTestFirstTextTest, SlowXlibClientThatJustOpenedReceivesMoreCharactersThanSpareKeycodesExactly) {
    XvfbDisplay display;
    setenv("DISPLAY", display.name().c_str(), 1);
    const TempFolder folder("keyferry-slow-first-text");
    const auto output = folder / "received.txt";
    HelperProcess receiver({KEYFERRY_XLIB_RECEIVER, output.string(), "5", "fresh"}, {{"LC_ALL", "C.UTF-8"}});
    ASSERT_EQ(receiver.readLine(20s), std::optional<std::string>("ready"));
    const std::string text = manyScriptSampleText(3000);
    XTestKeyboardPoster poster;
    X11AccessibilityProbe probe;
    TextInjector injector(poster, probe);
    ASSERT_TRUE(injector.insert(text));
    const std::string expected = withTypedLineEnds(text);
    const std::string got = receivedText(output, expected.size());
    EXPECT_EQ(got.size(), expected.size());
    EXPECT_TRUE(got == expected) << "first difference at byte "
                                 << std::mismatch(got.begin(), got.end(), expected.begin()).first - got.begin();
}

TEST(XTestFirstTextTest, QtWidgetThatJustOpenedReceivesTheFirstTextExactly) {
    expectEveryCaseExact({KEYFERRY_QT_RECEIVER, "0"}, 300ms);
}

} // namespace
} // namespace keyferry
