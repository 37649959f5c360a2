// A removed phone types nothing more: whoever ends a pairing (the computer, the phone itself, or a phone
// removing the computer), the texts of that phone still waiting are gone with it.
#include "ComputerSocket.h"
#include "WireTest.h"

#include <gtest/gtest.h>

namespace keyferry::service {
namespace {

using nlohmann::json;

class PhoneRemovalTest : public WireTest {
protected:
    // What the computer types (and acknowledges) until its socket stays quiet.
    std::vector<std::string> typeEverything(WebSocketClient& socket) { return readTexts(socket, Acknowledge::yes); }
};

TEST_F(PhoneRemovalTest, TextsOfAPhoneTheComputerRemovedAreNotDelivered) {
    const auto [computer, removed] = pairedComputer();
    const Phone kept = addPhone(computer, "iPad");
    sendText(removed, "from the removed phone");
    const std::string keptText = sendText(kept, "from the kept phone");
    sendText(removed, "from the removed phone again");
    const auto removal =
        client->post("/v1/computers/phones/remove", computer.token, json{{"pairingId", removed.pairingId}});
    ASSERT_EQ(removal.json["removed"], true);
    EXPECT_EQ(storedUntypedTexts(computer.id), 1);

    auto socket = connectComputer(computer);
    EXPECT_EQ(typeEverything(*socket), std::vector<std::string>{keptText});
}

TEST_F(PhoneRemovalTest, TextsOfAPhoneThatUnpairedAreNotDelivered) {
    const auto [computer, leaving] = pairedComputer();
    const Phone kept = addPhone(computer, "iPad");
    sendText(leaving, "before leaving");
    const std::string keptText = sendText(kept, "stays");
    ASSERT_EQ(client->post("/v1/phones/unpair", leaving.token).status, 200);

    auto socket = connectComputer(computer);
    EXPECT_EQ(typeEverything(*socket), std::vector<std::string>{keptText});
}

TEST_F(PhoneRemovalTest, ATextDeliveredButNotTypedIsNotSentAgainAfterItsPhoneIsRemoved) {
    const auto [computer, phone] = pairedComputer();
    auto socket = connectComputer(computer);
    sendText(phone, "on its way");
    const auto delivered = socket->read();
    ASSERT_TRUE(delivered && (*delivered)["type"] == "insert_text");
    client->post("/v1/computers/phones/remove", computer.token, json{{"pairingId", phone.pairingId}});
    socket->drop();

    auto again = connectComputer(computer);
    EXPECT_TRUE(typeEverything(*again).empty());
}

// A computer typing a long backlog: once the phone is removed, only the few texts already sent ahead of
// the acknowledgements can still arrive; the rest of that phone's backlog is dropped.
TEST_F(PhoneRemovalTest, RemovingAPhoneStopsItsBacklogOnAnOpenSocket) {
    const auto [computer, phone] = pairedComputer();
    auto socket = connectComputer(computer);
    constexpr int backlog = 20;
    for (int i = 0; i < backlog; ++i) {
        sendText(phone, "text " + std::to_string(i));
    }
    const auto first = socket->read();
    ASSERT_TRUE(first && (*first)["type"] == "insert_text");
    socket->ack((*first)["id"]);
    client->post("/v1/computers/phones/remove", computer.token, json{{"pairingId", phone.pairingId}});

    const auto typedAfterRemoval = typeEverything(*socket);
    EXPECT_LE(typedAfterRemoval.size(), ComputerSocket::textsAhead);
}

TEST_F(PhoneRemovalTest, RevokingTheComputerDropsItsWaitingTexts) {
    const auto [computer, phone] = pairedComputer();
    sendText(phone, "never typed");
    ASSERT_EQ(client->post("/v1/phones/computer/remove", phone.token).status, 200);
    WebSocketClient socket(server->port(), server->authority());
    EXPECT_EQ(socket.connect(computer.token), 401);
    stopServer();
    EXPECT_EQ(storedUntypedTexts(computer.id), 0);
}

} // namespace
} // namespace keyferry::service
