// The whole system on this machine: keyferry-service, the keyferry application on a private X display
// with gnome-keyring on a private session bus, a receiving window that has the keyboard focus, and headless
// Chromium as the phone on the phone page. The ctest command runs this inside tests/ui/with-desktop.sh and
// dbus-run-session, so DISPLAY, HOME and the session bus are private already.
#include "AppSession.h"
#include "TempFolder.h"
#include "Wait.h"

#include <gtest/gtest.h>

#include <fstream>

namespace keyferry::service {
namespace {

using namespace std::chrono_literals;

const std::string mixedText = "Grüße aus Köln — Привет, мир! "
                              "こんにちは世界 مرحبا بالعالم नमस्ते "
                              "👋🏽 🇩🇪 👨‍👩‍👧 ✓\nzweite Zeile";

TEST(AppEndToEndTest, APhoneTypesIntoTheFocusedWindowThroughTheService) {
    TempFolder folder;
    AppSession session(folder.path());
    const std::string code = session.requestPairingCode();
    AppSession::screenshot("app-e2e-0-desktop-with-code");

    const auto go = folder.path() / "go";
    std::ofstream(folder.path() / "text.txt") << mixedText;
    HelperProcess browser({"node",        std::string(KEYFERRY_E2E_SOURCES) + "/phone-page.mjs",
                           "--modules",   KEYFERRY_E2E_NODE,
                           "--url",       KEYFERRY_E2E_URL,
                           "--cert",      KEYFERRY_E2E_CERTIFICATES "/server.pem",
                           "--code",      code,
                           "--text-file", (folder.path() / "text.txt").string(),
                           "--profile",   (folder.path() / "profile").string(),
                           "--out",       KEYFERRY_E2E_SCREENSHOTS,
                           "--name",      "app-e2e",
                           "--go-file",   go.string()});
    ASSERT_EQ(browser.readLine(60s), "paired");

    session.focusReceiverAfterPairing();
    std::ofstream(go).put('\n');
    ASSERT_EQ(browser.readLine(60s), "sent");
    ASSERT_EQ(browser.readLine(90s), "typed");
    EXPECT_TRUE(testing::waitUntil([&] { return session.received() == mixedText; }, 10s))
        << "the receiver got: [" << session.received() << "]";
    EXPECT_EQ(browser.waitForExit(30s), 0);
    AppSession::screenshot("app-e2e-4-desktop-after-typing");
}

} // namespace
} // namespace keyferry::service
