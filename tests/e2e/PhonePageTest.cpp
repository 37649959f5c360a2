// The phone page in headless Chromium against the real service over TLS, with this test playing the
// computer on its WebSocket: pair through the page, send a text in many scripts while the computer is
// offline, deliver and acknowledge it, see "Typed", then see the page tell that the pairing was removed.
#include "HelperProcess.h"
#include "HttpsClient.h"
#include "ServiceClock.h"
#include "TempFolder.h"
#include "TestServer.h"
#include "WebSocketClient.h"

#include <gtest/gtest.h>

#include <fstream>

namespace keyferry::service {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

const std::string mixedText = "Grüße aus Köln — Привет, мир! "
                              "こんにちは世界 مرحبا بالعالم नमस्ते "
                              "👋🏽 🇩🇪 👨‍👩‍👧 ✓\nzweite Zeile";

std::map<std::string, std::string> privateHome(const std::filesystem::path& home) {
    std::filesystem::create_directories(home);
    return {{"HOME", home.string()},
            {"XDG_CONFIG_HOME", (home / ".config").string()},
            {"XDG_CACHE_HOME", (home / ".cache").string()},
            {"XDG_DATA_HOME", (home / ".local/share").string()}};
}

TEST(PhonePageTest, PairSendFollowUntilTypedAndSeeThePairingRemoved) {
    TempFolder folder;
    SystemClock clock;
    TestServer server(folder.path() / "data", clock);
    HttpsClient client(server.port(), server.authority());
    const auto computer = client.post("/v1/computers/pair/start", "", json{{"name", "Desk"}, {"platform", "linux"}});
    ASSERT_EQ(computer.status, 200);
    const std::string computerToken = computer.json["computerToken"];

    const auto textFile = folder.path() / "text.txt";
    std::ofstream(textFile) << mixedText;
    const std::filesystem::path screenshots = KEYFERRY_E2E_SCREENSHOTS;
    std::filesystem::create_directories(screenshots);
    HelperProcess browser({"node", std::string(KEYFERRY_E2E_SOURCES) + "/phone-page.mjs", "--modules",
                           KEYFERRY_E2E_NODE, "--url", "https://127.0.0.1:" + std::to_string(server.port()), "--cert",
                           (folder.path() / "data" / "server.pem").string(), "--code", computer.json["pairCode"],
                           "--text-file", textFile.string(), "--profile", (folder.path() / "profile").string(), "--out",
                           screenshots.string(), "--expect-offline", "--expect-removal"},
                          privateHome(folder.path() / "home"));

    ASSERT_EQ(browser.readLine(60s), "paired");
    const auto phones = client.get("/v1/computers/phones", computerToken).json["phones"];
    ASSERT_EQ(phones.size(), 1u);
    EXPECT_EQ(phones[0]["name"], "Test Pixel");
    EXPECT_EQ(phones[0]["platform"], "web");

    ASSERT_EQ(browser.readLine(30s), "queued");
    WebSocketClient socket(server.port(), server.authority());
    ASSERT_EQ(socket.connect(computerToken), 101);
    ASSERT_EQ(socket.read().value_or(json())["type"], "connected");
    const auto frame = socket.read();
    ASSERT_TRUE(frame);
    EXPECT_EQ((*frame)["type"], "insert_text");
    EXPECT_EQ((*frame)["text"], mixedText);
    socket.ack((*frame)["id"]);

    ASSERT_EQ(browser.readLine(30s), "typed");
    const auto removal =
        client.post("/v1/computers/phones/remove", computerToken, json{{"pairingId", phones[0]["id"]}});
    EXPECT_EQ(removal.json["removed"], true);
    ASSERT_EQ(browser.readLine(30s), "removed");
    EXPECT_EQ(browser.waitForExit(30s), 0);
    for (const char* shot : {"1-pair", "2-offline", "3-typed", "4-removed"}) {
        EXPECT_GT(std::filesystem::file_size(screenshots / ("phone-page-" + std::string(shot) + ".png")), 1000u)
            << shot;
    }
}

} // namespace
} // namespace keyferry::service
