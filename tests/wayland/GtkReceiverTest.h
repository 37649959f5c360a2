#pragma once

#include "HeadlessCompositor.h"
#include "MixedSampleText.h"
#include "ReceivedText.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

namespace keyferry {

// A test that types into a fresh GTK text view on Wayland for each test, under a compositor its suite shares.
// The view takes the focus and records what it gets in `output`, a file named after the test; it is stopped
// after the test. Test targets that use it define KEYFERRY_GTK_RECEIVER, the view's script; those that also
// type into a Qt window (startQtWindow) define KEYFERRY_QT_RECEIVER.
class GtkReceiverTest : public ::testing::Test {
protected:
    void startReceiver(HeadlessCompositor& desktop) {
        const std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        output = desktop.file(test + ".txt");
        receiver = desktop.run({"python3", KEYFERRY_GTK_RECEIVER, output.string()}, {{"GDK_BACKEND", "wayland"}});
        ASSERT_EQ(receiver->readLine(std::chrono::seconds(30)), std::optional<std::string>("ready"))
            << "no focus; " << desktop.log();
    }

#ifdef KEYFERRY_QT_RECEIVER
    // Opens a Qt window on Wayland, with no input method, that takes the focus from the view and records what it
    // gets in `qtOutput`.
    void startQtWindow(HeadlessCompositor& desktop) {
        qtOutput = desktop.file(output.stem().string() + "-qt.txt");
        qtReceiver = desktop.run({KEYFERRY_QT_RECEIVER, qtOutput.string(), "0"}, {{"QT_QPA_PLATFORM", "wayland"}});
        ASSERT_EQ(qtReceiver->readLine(std::chrono::seconds(30)), std::optional<std::string>("ready"))
            << "no focus; " << desktop.log();
    }
#endif

    void TearDown() override {
        qtReceiver.reset();
        receiver.reset();
    }

    // Expects the whole of `text` in the view, line ends as typed; the desktop's log on a shortfall.
    void expectReceivedWhole(const std::string& text, HeadlessCompositor& desktop) {
        const std::string expected = withTypedLineEnds(text);
        const std::string got = receivedText(output, expected.size(), std::chrono::seconds(3));
        EXPECT_EQ(got.size(), expected.size()) << desktop.log();
        EXPECT_TRUE(got == expected);
    }

    std::unique_ptr<HelperProcess> receiver;
    std::filesystem::path output;
    std::unique_ptr<HelperProcess> qtReceiver;
    std::filesystem::path qtOutput;
};

} // namespace keyferry
