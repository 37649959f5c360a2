#pragma once

#include "HttpsClient.h"
#include "TempFolder.h"
#include "TestServer.h"
#include "WebSocketClient.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace keyferry::service {

// The service as the application and the phone page meet it: real TLS on 127.0.0.1, a temporary data
// folder, and a manual clock so that expiry needs no waiting. The helpers record a failed expectation
// when the service refuses what they ask.
class WireTest : public ::testing::Test {
protected:
    WireTest() { startServer(); }

    void startServer();
    void stopServer();
    void restartServer();

    struct Computer {
        std::string id;
        std::string token;
        std::string code;
    };
    struct Phone {
        std::string pairingId;
        std::string token;
    };

    Computer startComputer();
    Phone pairPhone(const std::string& code, const std::string& name = "Pixel");
    std::pair<Computer, Phone> pairedComputer();
    // A further phone for a paired computer, through a new code.
    Phone addPhone(const Computer& computer, const std::string& name);
    // Sends a text that the service must accept; its id.
    std::string sendText(const Phone& phone, const std::string& text);
    // Opens the computer's socket and reads its "connected" frame.
    std::unique_ptr<WebSocketClient> connectComputer(const Computer& computer);
    enum class Acknowledge { no, yes };
    // The ids of the insert_text frames that arrive until the socket stays quiet for half a second.
    std::vector<std::string> readTexts(WebSocketClient& socket, Acknowledge acknowledge);
    // The state the phone sees for one of its texts ("missing" when it has none of that id).
    std::string textState(const Phone& phone, const std::string& id);
    // How many texts of the computer wait untyped in the service's database.
    std::int64_t storedUntypedTexts(const std::string& computerId) const;
    // Polls until the phone sees `state` (the socket's acknowledgement is handled asynchronously).
    bool eventuallyState(const Phone& phone, const std::string& id, const std::string& state);

    TempFolder folder;
    ManualClock clock{1'800'000'000'000};
    std::unique_ptr<TestServer> server;
    std::unique_ptr<HttpsClient> client;
};

} // namespace keyferry::service
