// The watch on a window's client from outside, on a private Xvfb with a plain Xlib client that never answers
// pings: it is seen to handle its events while it runs, never while it is stopped.
// GoogleTest first: Xlib's macros (None, Bool) would break its templates.
#include <gtest/gtest.h>

#include "HelperProcess.h"
#include "TempFolder.h"
#include "X11ClientInbox.h"
#include "XvfbDisplay.h"

#include <X11/Xlib.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace keyferry {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class X11ClientInboxTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("DISPLAY", display.name().c_str(), 1);
        output = folder / "received.txt";
        receiver =
            std::make_unique<HelperProcess>(std::vector<std::string>{KEYFERRY_XLIB_RECEIVER, output.string(), "0"},
                                            std::map<std::string, std::string>{{"LC_ALL", "C.UTF-8"}});
        ASSERT_EQ(receiver->readLine(20s), std::optional<std::string>("ready"));
        connection = XOpenDisplay(nullptr);
        ASSERT_NE(connection, nullptr);
        int revert = 0;
        XGetInputFocus(connection, &focus, &revert);
    }

    void TearDown() override {
        if (receiver && receiver->pid() > 0) {
            kill(receiver->pid(), SIGCONT);
        }
        receiver.reset();
        if (connection != nullptr) {
            XCloseDisplay(connection);
        }
    }

    XvfbDisplay display;
    TempFolder folder{"keyferry-inbox"};
    std::filesystem::path output;
    std::unique_ptr<HelperProcess> receiver;
    Display* connection = nullptr;
    Window focus = 0;
};

TEST_F(X11ClientInboxTest, SeesARunningClientHandleWhatItWasSent) {
    X11ClientInbox inbox(connection);
    ASSERT_TRUE(inbox.follow(focus));
    EXPECT_TRUE(inbox.awaitHandled(Clock::now() + 5s));
}

TEST_F(X11ClientInboxTest, NeverTakesAStoppedClientForOneThatHandledWhatItWasSent) {
    X11ClientInbox inbox(connection);
    ASSERT_TRUE(inbox.follow(focus));
    ASSERT_EQ(kill(receiver->pid(), SIGSTOP), 0);
    EXPECT_FALSE(inbox.awaitHandled(Clock::now() + 300ms));
    ASSERT_EQ(kill(receiver->pid(), SIGCONT), 0);
    EXPECT_TRUE(inbox.awaitHandled(Clock::now() + 5s));
}

TEST_F(X11ClientInboxTest, CannotFollowAWindowOfNoClient) {
    X11ClientInbox inbox(connection);
    EXPECT_FALSE(inbox.follow(0x7ffffff0));
}

} // namespace
} // namespace keyferry
